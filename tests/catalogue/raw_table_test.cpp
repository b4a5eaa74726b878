// SPDX-License-Identifier: MIT
// The table's bytes as they stand.
#include <gtest/gtest.h>

#include <string_view>
#include <utility>

#include "catalogue/task_list_test.h"
#include "platform/platform.h"
#include "support/failing_files.h"
#include "support/private_member.h"

namespace kel::test {

struct FileNameOf {
  friend auto memberOf(FileNameOf);
};
template struct OpenMember<FileNameOf, &BrelTUIsList::mTUIsFileName>;

namespace {

constexpr const char* kFunction = "RetrieveRawTUIsList";
const ReportedLine kTakenFromResource{
    "info", kFunction, "An external KEL_ALLTASKS.csv TUIs file could not be opened. Retrieving internal resource. \n"};
const ReportedLine kFileIsEmpty{"error", kFunction,
                                "The KEL_ALLTASKS.csv TUIs file is EMPTY. Retrieving internal resource. \n"};
const ReportedLine kResourceIsEmpty{"error", kFunction,
                                    "Brel's internally stored version of the KEL_ALLTASKS.csv TUIs file is empty. \n"};

class RawTable : public TaskList {
 protected:
  bool retrieve() {
    return printed([this] { return mList.RetrieveRawTUIsList(&mName, &mBuffer, &mLength); });
  }

  /// Has the list know the built-in table, with no trace of that on the outlets.
  void readBuiltIn() {
    ASSERT_TRUE(readTUIs());
    std::filesystem::remove(LogPath("Tasks.logs"));
    mConsole.clear();
  }

  /// The block that was given out for a file, whole.
  std::string takeBlock() {
    const std::string content(mBuffer, mLength);
    std::free(const_cast<char*>(mBuffer));
    mBuffer = nullptr;
    return content;
  }

  const char* mName = "before";
  const char* mBuffer = "before";
  std::uint32_t mLength = 99;
};

TEST_F(RawTable, IsTheBuiltInOneIfThereIsNoFile) {
  readBuiltIn();
  EXPECT_TRUE(retrieve());
  EXPECT_STREQ(mName, "table.csv");
  EXPECT_EQ(mBuffer, platform::findResource(nullptr, "#101", "TUISFILE").bytes);
  EXPECT_EQ(mLength, 4101U);
  expectReported({kTakenFromResource});
}

TEST_F(RawTable, IsNothingIfThereIsNoFileAndNothingWasRead) {
  EXPECT_TRUE(retrieve());
  EXPECT_STREQ(mName, "table.csv");
  EXPECT_EQ(mBuffer, nullptr);
  EXPECT_EQ(mLength, 0U);
  expectReported({kTakenFromResource});
}

TEST_F(RawTable, IsTheBuiltInOneIfTheFileIsEmpty) {
  readBuiltIn();
  mDirectory.write("table.csv", "");
  EXPECT_TRUE(retrieve());
  EXPECT_EQ(mBuffer, platform::findResource(nullptr, "#101", "TUISFILE").bytes);
  EXPECT_EQ(mLength, 4101U);
  expectReported({kFileIsEmpty});
}

TEST_F(RawTable, FailsIfTheFileIsEmptyAndNothingWasRead) {
  mDirectory.write("table.csv", "");
  EXPECT_FALSE(retrieve());
  EXPECT_EQ(mBuffer, nullptr);
  EXPECT_EQ(mLength, 0U);
  expectReported({kFileIsEmpty, kResourceIsEmpty});
}

TEST_F(RawTable, IsTheBuiltInOneIfTheFileHasNoPosition) {
  readBuiltIn();
  mDirectory.write("table.csv", "ONE");
  EXPECT_TRUE(printed([this] {
    const FailingTell noPosition;
    return mList.RetrieveRawTUIsList(&mName, &mBuffer, &mLength);
  }));
  EXPECT_EQ(mBuffer, platform::findResource(nullptr, "#101", "TUISFILE").bytes);
  EXPECT_EQ(mLength, 4101U);
  expectReported({kFileIsEmpty});
}

TEST_F(RawTable, HasTheExactBytesOfAFile) {
  std::string content = "ONE\r\nTWO\n\r\n\x1A three";
  content += '\0';
  for (int byte = 0; byte < 0xFF; ++byte) content += static_cast<char>(byte);
  mDirectory.write("table.csv", content);
  EXPECT_TRUE(retrieve());
  EXPECT_STREQ(mName, "table.csv");
  EXPECT_EQ(mLength, content.size());
  EXPECT_EQ(takeBlock(), content);
  expectReported({});
}

// The rest of the block is not the file's: no more is said of it here than that it can be read.
TEST_F(RawTable, IsCopiedUpToAByte0xFFButKeepsItsLength) {
  const std::string content = std::string("ONE,TWO") + '\xFF' + "THREE";
  mDirectory.write("table.csv", content);
  EXPECT_TRUE(retrieve());
  EXPECT_EQ(mLength, content.size());
  const std::string copied = takeBlock();
  EXPECT_EQ(copied.substr(0, 7), "ONE,TWO");
  EXPECT_EQ(copied.find("THREE"), copied.npos);
}

TEST_F(RawTable, IsCopiedUpToWhereTheFileFailsButKeepsItsLength) {
  mDirectory.write("table.csv", "ONE,TWO,THREE");
  EXPECT_TRUE(printed([this] {
    const FailingRead fails(7);
    return mList.RetrieveRawTUIsList(&mName, &mBuffer, &mLength);
  }));
  EXPECT_EQ(mLength, 13U);
  EXPECT_EQ(takeBlock().substr(0, 7), "ONE,TWO");
  expectReported({});
}

TEST_F(RawTable, IsTheBuiltInOneIfTheFileIsAFolder) {
  readBuiltIn();
  std::filesystem::create_directory("table.csv");
  EXPECT_TRUE(retrieve());
  EXPECT_EQ(mBuffer, platform::findResource(nullptr, "#101", "TUISFILE").bytes);
  EXPECT_EQ(mLength, 4101U);
  expectReported({kTakenFromResource});
}

TEST_F(RawTable, IsAnyFilesThatOpensWhateverItHolds) {
  readBuiltIn();
  mDirectory.write("table.csv", "no table at all");
  EXPECT_TRUE(retrieve());
  EXPECT_EQ(takeBlock(), "no table at all");
  EXPECT_EQ(tuiOf("TASK_ID_TRACE_ADAPTER"), 614400U);
}

// Nothing takes the name away; the list is on its guard all the same.
TEST_F(RawTable, FailsWithoutAName) {
  readBuiltIn();
  char*& name = mList.*memberOf(FileNameOf{});
  std::free(std::exchange(name, nullptr));
  EXPECT_FALSE(retrieve());
  EXPECT_EQ(mName, nullptr);
  EXPECT_EQ(mBuffer, nullptr);
  EXPECT_EQ(mLength, 0U);
  expectReported({{"error", kFunction, "Brel has a NULL name for the KEL_ALLTASKS.csv TUIs file. \n"}});
}

TEST(RawTableOfAFreshList, GoesByTheCustomaryName) {
  const ScratchDirectory directory;
  directory.write("KEL_ALLTASKS.csv", "mine");
  BrelTUIsList list;
  const char* name = nullptr;
  const char* buffer = nullptr;
  std::uint32_t length = 0;
  EXPECT_TRUE(list.RetrieveRawTUIsList(&name, &buffer, &length));
  EXPECT_STREQ(name, "KEL_ALLTASKS.csv");
  EXPECT_EQ(std::string_view(buffer, length), "mine");
  std::free(const_cast<char*>(buffer));
}

}  // namespace
}  // namespace kel::test
