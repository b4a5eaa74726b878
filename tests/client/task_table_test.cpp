// SPDX-License-Identifier: MIT
// The task table of the client layer, beside the library's own reader.
#include "client/task_table_test.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <istream>
#include <iterator>
#include <new>
#include <streambuf>
#include <utility>

#include "catalogue/BrelTUIsList.h"
#include "catalogue/random_tables.h"
#include "catalogue/shipped_rows.h"
#include "engine/Brel.h"
#include "engine/Instances.h"
#include "platform/ini_cases.h"
#include "platform/platform.h"
#include "support/core_process.h"
#include "support/failing_heap.h"
#include "support/private_member.h"

namespace kel::test {

struct TuiByNameOf {
  friend auto memberOf(TuiByNameOf);
};
template struct OpenMember<TuiByNameOf, &BrelTUIsList::mTuiByName>;

std::optional<NamesAndTuis> LibrarysRead(const std::string& path) {
  BrelTUIsList list;
  list.SetTUIsFile(nullptr, path.c_str());
  if (!list.ReadTUIs()) return std::nullopt;
  const BrelTUIsList::TuiByName& rows = *(list.*memberOf(TuiByNameOf{}));
  return NamesAndTuis(rows.begin(), rows.end());
}

namespace {

/// One of several pieces.
template <std::size_t kSize>
std::string anyOf(Random& random, const std::string (&pieces)[kSize]) {
  return pieces[Below(random, kSize)];
}

/// A table of rows that are all but right: what the reader looks at is varied, and nothing else.
std::string nearlyRight(Random& random) {
  const std::string names[] = {"A", "A", "B", "C D", "", std::string(98, 'N'), std::string(99, 'N')};
  const std::string commas[] = {",", ", ", ", ", ", ", ",  ", " ,", ",\t"};
  const std::string targets[] = {"KEL_TRACE", "KEL_TRACE", "", "X Y", std::string(98, 'T'), std::string(100, 'T')};
  const std::string types[] = {"REF", "VAL", "REF", "VAL", "REFUSED", "ref", "VA", ""};
  const std::string numbers[] = {"1", "229952", "-1", "+7", "4294967296", "99999999999999999999", "0x10", "12 3",
                                 "7", "65536",  "+",  "",   "- 5"};
  const std::string hexes[] = {"0x1", "0x1", "0x1", "", "0x1, more", std::string(100, 'h')};
  const std::string ends[] = {"\n",
                              "\n",
                              "\r\n",
                              "\r\n",
                              "\r\n",
                              "\r",
                              "\n\n",
                              " \r\n",
                              std::string(1, '\0'),
                              std::string(Below(random, 300), ' ') + "\n",
                              "\x1A\n",
                              "\r\r\n",
                              ""};
  std::string table;
  for (std::uint32_t rows = Below(random, 6); rows > 0; --rows) {
    const auto comma = [&] { return anyOf(random, commas); };
    table += anyOf(random, names) + comma() + "0" + comma() + "1" + comma() + anyOf(random, targets) + comma() + "1" +
             comma() + anyOf(random, types) + comma() + anyOf(random, numbers) + comma() + anyOf(random, hexes) +
             anyOf(random, ends);
  }
  return table;
}

class TaskTableTest : public testing::Test {
 protected:
  /// What both readers make of a file of that content.
  void expectReadAlike(const std::string& content) {
    mFolder.write("table.csv", content);
    const std::optional<NamesAndTuis> librarys = LibrarysRead("table.csv");
    EXPECT_EQ(NamesAndTuisOf(TaskTable::read("table.csv")), librarys);
    EXPECT_EQ(NamesAndTuisOf(TaskTable::inForce("table.csv")), librarys.value_or(NamesAndTuis()));
  }

  ScratchDirectory mFolder;
};

TEST_F(TaskTableTest, BuiltInIsTheLibrarysInItsOrder) {
  const TaskTable table = TaskTable::builtIn();
  EXPECT_EQ(NamesAndTuisOf(table), LibrarysRead(""));
  ASSERT_EQ(table.size(), std::size(kShippedRows));
  for (std::size_t row = 0; row < table.size(); ++row) {
    EXPECT_EQ(table.rows()[row].name, kShippedRows[row].name);
    EXPECT_EQ(table.rows()[row].tui, kShippedRows[row].decimalTUI);
  }
}

TEST_F(TaskTableTest, FindsNamesThatAreExactlyTheSame) {
  const TaskTable table = TaskTable::builtIn();
  EXPECT_EQ(table.find("TASK_ID_TRACE_ADAPTER"), 614400U);
  EXPECT_EQ(table.find(std::string_view("TASK_ID_TRACE_ADAPTER, and more").substr(0, 21)), 614400U);
  for (const char* unknown : {"", "task_id_trace_adapter", " TASK_ID_TRACE_ADAPTER", "TASK_ID_TRACE_ADAPTE"}) {
    EXPECT_EQ(table.find(unknown), std::nullopt) << unknown;
  }
  EXPECT_EQ(TaskTable().find("TASK_ID_TRACE_ADAPTER"), std::nullopt);
}

TEST_F(TaskTableTest, FindsNamesWithoutTheHeap) {
  const TaskTable table = TaskTable::builtIn();
  std::optional<std::uint32_t> known, unknown;
  {
    const FailingHeap heap;
    known = table.find("TASK_ID_DB_UPDATE_DONE_CONFIRMATION_TASK_DEVICE");
    unknown = table.find("TASK_ID_DB_UPDATE_DONE_CONFIRMATION_TASK_DEVICE and more");
  }
  EXPECT_EQ(known, 0x34161U);
  EXPECT_EQ(unknown, std::nullopt);
}

TEST_F(TaskTableTest, AnExhaustedHeapThrowsBadAllocAndNothingElse) {
  mFolder.write("table.csv", RowText(kShippedRows[0]) + "\n" + RowText(kShippedRows[1]) + "\n");
  mFolder.writeSettings("TUIsFilePath=table.csv\n");
  for (const auto& make : {+[] { return TaskTable::builtIn(); }, +[] { return TaskTable::read("table.csv").value(); },
                           +[] { return TaskTable::inForce(""); }}) {
    const std::size_t whole = make().size();
    bool failed = true;
    for (int objects = 0; failed; ++objects) {
      const FailingHeap heap(objects);
      try {
        EXPECT_EQ(make().size(), whole);
      } catch (const std::bad_alloc&) {
        EXPECT_TRUE(heap.failed());
      }
      failed = heap.failed();
    }
  }
}

TEST_F(TaskTableTest, ANameOfTwoRowsStandsWhereItFirstDidWithTheLastTui) {
  mFolder.write("table.csv",
                "ONE, 0, 0, T, 1, VAL, 1, 0x1\nTWO, 0, 0, T, 1, VAL, 2, 0x2\nONE, 0, 0, T, 1, VAL, 3, 0x3");
  const std::optional<TaskTable> table = TaskTable::read("table.csv");
  ASSERT_TRUE(table);
  ASSERT_EQ(table->size(), 2U);
  EXPECT_EQ(table->rows()[0].name, "ONE");
  EXPECT_EQ(table->rows()[0].tui, 3U);
  EXPECT_EQ(table->rows()[1].name, "TWO");
  EXPECT_EQ(table->find("ONE"), 3U);
}

TEST_F(TaskTableTest, IsNoneForAFileThatIsNotThereAndBuiltInWhereOneIsInForce) {
  std::filesystem::create_directory("folder");
  for (const char* path : {"missing.csv", "folder", "folder/", "folder/missing.csv"}) {
    EXPECT_EQ(NamesAndTuisOf(TaskTable::read(path)), std::nullopt) << path;
    EXPECT_EQ(NamesAndTuisOf(TaskTable::inForce(path)), LibrarysRead(path)) << path;
    EXPECT_EQ(TaskTable::inForce(path).size(), 50U) << path;
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// Reading as the library does
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(TaskTableTest, EdgesOfTheFormatReadAsInTheLibrary) {
  const std::string row = "ONE,  0, 0, KEL_TRACE, 1, REF, 1001, 0x3e9";
  const auto padded = [&](std::size_t size) { return row + std::string(size - row.size(), ' '); };
  const std::string cases[] = {
      "",
      "\n",
      "\r\n",
      " \t\r\n" + row,
      row,
      row + "\n",
      row + "\r\n",
      row + "\r",
      row + "\r\r\n",
      row + "\n\n" + row,
      row + "\n \t\n" + row,
      "\x1A",
      row + "\n\x1A",
      row + "\x1A" + row,
      row + "\r\x1A",
      row.substr(0, 20) + "\x1A",
      std::string(1, '\0'),
      row + std::string(1, '\0') + "junk\nTWO" + row,
      row + "\n" + std::string(1, '\0') + "\n" + row,
      padded(253) + "\n" + "2" + row,
      padded(254) + "2" + row,
      padded(254) + "\n2" + row,
      padded(253) + "\r\n2" + row,
      padded(254) + "\r\n2" + row,
      padded(255) + "2" + row,
      padded(508) + "2" + row,
      std::string(99, 'N') + row,
      std::string(96, 'N') + row,
      std::string(97, 'N') + row,
      "TIGHT,0,0,T,1,REF,7,0x7",
      "TIGHT,0,0,T,1,REF,7",
      ",0,0,T,1,REF,7,0x7",
      "A\xFF\x80,0,0,T,1,REF,7,0x7\n" + row,
      "A, 0, 0, T, 1, ref, 7, 0x7",
      "A, 0, 0, T, 1, REFERENCE, 7, 0x7",
      "A, 0, 0, T, 1, VAL, , 0x7",
      "A, 0, 0, T, 1, VAL, -1, 0x7",
      "A, 0, 0, T, 1, VAL, 99999999999, 0x7",
      "A, 0, 0, T, 1, VAL, \v7, 0x7",
      "A, 0, 0, T, 1, VAL, 7 ",
      "A, 0, 0, T, 1, VAL, 7,",
      row + "\nA, 0, 0",
  };
  for (const std::string& content : cases) {
    SCOPED_TRACE(testing::PrintToString(content));
    expectReadAlike(content);
  }
}

/// Bytes that can be read, and then a failure.
class FailingBuffer : public std::streambuf {
 public:
  explicit FailingBuffer(std::string bytes) : mBytes(std::move(bytes)) {
    setg(mBytes.data(), mBytes.data(), mBytes.data() + mBytes.size());
  }

 protected:
  int_type underflow() override { throw std::ios_base::failure("the disk is gone"); }

 private:
  std::string mBytes;
};

TEST_F(TaskTableTest, ALineThatCannotBeReadToItsEndIsNone) {
  FailingBuffer buffer("one\r\ntwo");
  std::istream stream(&buffer);
  detail::LineReader lines(stream);
  ASSERT_TRUE(lines.next());
  EXPECT_EQ(lines.line(), "one");
  EXPECT_FALSE(lines.next());
}

TEST_F(TaskTableTest, RandomBytesAndSpoiltTablesReadAsInTheLibrary) {
  for (std::uint32_t seed = 1; seed <= 1000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    expectReadAlike(RandomTableText(seed));
  }
}

TEST_F(TaskTableTest, RowsThatAreNearlyRightReadAsInTheLibrary) {
  std::uint32_t taken = 0;
  for (std::uint32_t seed = 1; seed <= 3000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    expectReadAlike(nearlyRight(random));
    taken += TaskTable::read("table.csv").value_or(TaskTable()).size() > 0;
  }
  EXPECT_GT(taken, 300U) << "the tables are too wrong to show much";
}

// ---------------------------------------------------------------------------------------------------------------------
// The table in force
// ---------------------------------------------------------------------------------------------------------------------

/// What an engine that comes up with that path knows; nothing if it does not come up.
NamesAndTuis engineKnows(const char* path) {
  NamesAndTuis known;
  std::uint32_t handle = kNoBrelHandle;
  if (BrelInit(&handle, path, 0, nullptr, nullptr, nullptr) != kStatusOk) return known;
  for (const char* name : {"WHICH", "TASK_ID_TRACE_ADAPTER"}) {
    std::uint32_t tui = 0;
    BrelFindTuiByName(handle, name, &tui);
    if (tui != 0) known[name] = tui;
  }
  BrelFinalize(handle);
  return known;
}

NamesAndTuis tableKnows(const TaskTable& table) {
  NamesAndTuis known;
  for (const char* name : {"WHICH", "TASK_ID_TRACE_ADAPTER"}) {
    if (const auto tui = table.find(name)) known[name] = *tui;
  }
  return known;
}

TEST_F(TaskTableTest, InForceIsTheTableThatAnEngineComesUpWith) {
  const CoreProcess process;
  const auto which = [](std::uint32_t tui) { return "WHICH, 0, 0, T, 1, VAL, " + std::to_string(tui) + ", 0x0\n"; };
  const std::string separator(1, static_cast<char>(std::filesystem::path::preferred_separator));
  mFolder.write("given.csv", which(1));
  mFolder.write("named.csv", which(2));
  mFolder.write("spoilt.csv", "WHICH, 0, 0\n");
  mFolder.write("two words.csv", which(3));
  const std::string settings[] = {"",
                                  "TUIsFilePath=named.csv\n",
                                  "tuisfilepath = \"named.csv\"\n",
                                  "TUIsFilePath='two words.csv'  \n",
                                  "TUIsFilePath=." + separator + "named.csv\n",
                                  "TUIsFilePath=missing.csv\n",
                                  "TUIsFilePath=spoilt.csv\n",
                                  "TUIsFilePath=\n",
                                  "TUIsFilePath\nTUIsFilePath=named.csv\n",
                                  ";TUIsFilePath=named.csv\n",
                                  "[Other]\nTUIsFilePath=named.csv\n",
                                  "TUIsFilePath=KEL_ALLTASKS.csv\n"};
  for (const bool isDefaultThere : {false, true}) {
    if (isDefaultThere) mFolder.write("KEL_ALLTASKS.csv", which(4));
    std::filesystem::remove("Brel.ini");
    for (const std::string& lines : settings) {
      for (const char* path : {"", "given.csv", "missing.csv", "spoilt.csv", "KEL_ALLTASKS.csv"}) {
        SCOPED_TRACE(lines + " and " + path + (isDefaultThere ? ", with a default" : ""));
        EXPECT_EQ(tableKnows(TaskTable::inForce(path)), engineKnows(*path != '\0' ? path : nullptr));
      }
      mFolder.writeSettings(lines);
    }
  }
}

TEST_F(TaskTableTest, AFolderInThePlaceOfBrelIniLeavesTheDefault) {
  const CoreProcess process;
  mFolder.write("KEL_ALLTASKS.csv", "WHICH, 0, 0, T, 1, VAL, 4, 0x4\n");
  std::filesystem::create_directory("Brel.ini");
  EXPECT_EQ(tableKnows(TaskTable::inForce("")), engineKnows(nullptr));
  EXPECT_EQ(TaskTable::inForce("").find("WHICH"), 4U);
}

TEST_F(TaskTableTest, SettingsAreReadAsThePlatformReadsThem) {
  std::uint32_t compared = 0;
  for (const platform::IniCase& ini : platform::kIniCases) {
    if (ini.size != detail::kIniTextSize || ini.defaultText != std::string("default")) continue;
    SCOPED_TRACE(ini.name);
    const std::string fileName = "./" + std::string(ini.name) + ".ini";
    mFolder.write(fileName, ini.content);
    EXPECT_EQ(detail::iniText(fileName.c_str(), ini.section, ini.key, ini.defaultText), ini.expected);
    ++compared;
  }
  EXPECT_GT(compared, 50U);
}

TEST_F(TaskTableTest, LongSettingsAreCutAsThePlatformCutsThem) {
  for (const std::string& quote : {std::string(), std::string("\"")}) {
    for (std::size_t size = 1018; size < 1030; ++size) {
      mFolder.writeSettings("Key=" + quote + std::string(size, 'x') + "y" + quote + "\n");
      char expected[detail::kIniTextSize];
      platform::iniValue("Common", "Key", "", expected, sizeof expected, "./Brel.ini");
      EXPECT_EQ(detail::iniText("./Brel.ini", "Common", "Key", "none"), expected) << size << quote;
    }
  }
}

}  // namespace
}  // namespace kel::test
