// SPDX-License-Identifier: MIT
// What becomes of a built-in table other than the shipped one. This program has its own findResource(), ahead of the
// platform's.
#include <gtest/gtest.h>

#include <cstring>

#include "catalogue/task_list_test.h"
#include "platform/platform.h"

namespace {

const char* gTable = nullptr;
std::string gAskedFor;

}  // namespace

namespace kel::platform {

Resource findResource(Module, const char* name, const char* type) {
  gAskedFor = std::string(type) + " " + name;
  if (gTable == nullptr) return {};
  return {gTable, 1};  // the size plays no part in the reading
}

}  // namespace kel::platform

namespace kel::test {
namespace {

const ReportedLine kFileNotOpened{"info", "ReadTUIs", kNotOpened};
const ReportedLine kMissing{"error", "ReadTUIs",
                            "The resouce equivalent of the KEL_ALLTASKS.csv TUIs file could NOT be found. \n"};

TEST_F(TaskList, FailsWithoutABuiltInTable) {
  gTable = nullptr;
  EXPECT_FALSE(readTUIs());
  expectReported({kMissing});
  EXPECT_EQ(gAskedFor, "TUISFILE #101");
}

TEST_F(TaskList, FailsWithoutABuiltInTableEvenIfThereIsAFile) {
  gTable = nullptr;
  EXPECT_FALSE(readTable("ONE,  0, 0, KEL_TRACE, 1, REF, 1001, 0x3e9\n"));
  expectReported({kMissing});
}

TEST_F(TaskList, WalksTheBuiltInTextToItsEndMark) {
  gTable =
      "ONE,  0, 0, KEL_TRACE, 1, REF, 1001, 0x3e9\r\n"
      "TWO,  1, 0, KEL_TRACE, 1, VAL, 1002, 0x3ea\n";
  EXPECT_TRUE(readTUIs());
  expectReported({kFileNotOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 1002U);
}

TEST_F(TaskList, PassesOverBlankLinesOfTheBuiltInText) {
  gTable =
      "\r\nONE,  0, 0, KEL_TRACE, 1, REF, 1001, 0x3e9\r\n"
      "\r\n \t\r\n"
      "TWO,  1, 0, KEL_TRACE, 1, VAL, 1002, 0x3ea\r\n\r\n";
  EXPECT_TRUE(readTUIs());
  expectReported({kFileNotOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 1002U);
}

TEST_F(TaskList, ALineOfTheBuiltInTextMayBeLong) {
  const std::string table = "ONE,  0, 0, KEL_TRACE, 1, REF, 1001, 0x3e9" + std::string(300, ' ') +
                            "\r\nTWO,  1, 0, KEL_TRACE, 1, VAL, 1002, 0x3ea\r\n";
  gTable = table.c_str();
  EXPECT_TRUE(readTUIs());
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 1002U);
}

TEST_F(TaskList, FailsWithAFaultInTheBuiltInText) {
  gTable =
      "ONE,  0, 0, KEL_TRACE, 1, REF, 1001, 0x3e9\r\n"
      "TWO,  1, 0, KEL_TRACE, 1\r\n"
      "THREE,  2, 0, KEL_TRACE, 1, VAL, 1003, 0x3eb\r\n";
  EXPECT_FALSE(readTUIs());
  expectReported({kFileNotOpened,
                  {"error", "ReadOneTUI", "could not read TYPE field. \n"},
                  {"error", "ReadTUIs", kEndedUnexpectedly}});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("THREE"), 0U);
}

TEST_F(TaskList, IsEmptyWithAnEmptyBuiltInText) {
  gTable = "";
  EXPECT_TRUE(readTUIs());
  expectReported({kFileNotOpened});
}

TEST_F(TaskList, ReadsTheBuiltInTextThroughOnceForAllLists) {
  static char table[] = "ONE,  0, 0, KEL_TRACE, 1, REF, 1001, 0x3e9\n";
  gTable = table;
  EXPECT_TRUE(readTUIs());
  // No table changes in a process. This one does, which shows that it is not looked at again.
  std::memcpy(table, "TWO", 3);
  ALogger silent;
  BrelTUIsList other;
  other.SetTUIsFile(&silent, "table.csv");
  EXPECT_TRUE(other.ReadTUIs());
  std::uint32_t tui = 0;
  EXPECT_TRUE(other.FindTuiByName("test", "ONE", &tui));
  EXPECT_EQ(tui, 1001U);
  EXPECT_FALSE(other.FindTuiByName("test", "TWO", &tui));
}

TEST_F(TaskList, TellsAgainOfAFaultInTheBuiltInText) {
  static char table[] = "ONE,  0, 0, KEL_TRACE, 1, XXX, 1001, 0x3e9\n";
  gTable = table;
  EXPECT_FALSE(readTUIs());
  EXPECT_FALSE(readTUIs());
  const ReportedLine type{"error", "ReadOneTUI", "could not resolve TYPE field. \n"};
  const ReportedLine ended{"error", "ReadTUIs", kEndedUnexpectedly};
  expectReported({kFileNotOpened, type, ended, kFileNotOpened, type, ended});
  std::memcpy(std::strstr(table, "XXX"), "REF", 3);
  EXPECT_TRUE(readTUIs());
  EXPECT_EQ(tuiOf("ONE"), 1001U);
}

TEST_F(TaskList, RetrievesTheBuiltInTextWithTheSizeThatItIsSaidToHave) {
  gTable = "ONE";
  printed([this] { return mList.ReadTUIs(); });
  const char* name = nullptr;
  const char* buffer = nullptr;
  std::uint32_t length = 0;
  EXPECT_TRUE(printed([&] { return mList.RetrieveRawTUIsList(&name, &buffer, &length); }));
  EXPECT_EQ(buffer, gTable);
  EXPECT_EQ(length, 1U);
}

}  // namespace
}  // namespace kel::test
