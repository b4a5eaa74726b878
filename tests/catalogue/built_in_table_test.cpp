// SPDX-License-Identifier: MIT
// The table that is built in: what it holds, and that the list holds it.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <new>
#include <set>
#include <string_view>
#include <thread>
#include <vector>

#include "adapter/TaskRecord.h"
#include "catalogue/shipped_rows.h"
#include "catalogue/task_list_test.h"
#include "platform/platform.h"
#include "support/failing_heap.h"
#include "support/private_member.h"

namespace kel::test {

struct TuiByNameOf {
  friend auto memberOf(TuiByNameOf);
};
struct NameByTuiOf {
  friend auto memberOf(NameByTuiOf);
};

template struct OpenMember<TuiByNameOf, &BrelTUIsList::mTuiByName>;
template struct OpenMember<NameByTuiOf, &BrelTUIsList::mNameByTui>;

namespace {

TEST(BuiltInTable, HasTheShippedRowsInTheirOrderByteForByte) {
  std::string text;
  for (const TableRow& row : kShippedRows) text += RowText(row) + "\r\n";
  ASSERT_EQ(text.size(), 4101U);

  const platform::Resource table = platform::findResource(nullptr, "#101", "TUISFILE");
  ASSERT_NE(table.bytes, nullptr);
  EXPECT_EQ(table.size, 4101U);
  EXPECT_EQ(std::string_view(table.bytes, table.size), text);
  EXPECT_EQ(table.bytes[table.size], '\0');
}

TEST(BuiltInTable, EachRowsColumnsComposeItsTUI) {
  for (const TableRow& row : kShippedRows) {
    const std::uint8_t type = row.type == "REF" ? 1 : 0;
    EXPECT_EQ(ComposeTUI(row.index, row.zone, TargetNumber(row.target), row.priority, type), row.decimalTUI)
        << row.name;
    EXPECT_EQ(std::stoul(std::string(row.hexTUI), nullptr, 16), row.decimalTUI) << row.name;
    EXPECT_EQ(GetTuiIndex(row.decimalTUI), row.index) << row.name;
    EXPECT_EQ(GetTuiTarget(row.decimalTUI), TargetNumber(row.target)) << row.name;
    EXPECT_EQ(GetTuiType(row.decimalTUI), type) << row.name;
    EXPECT_EQ(GetTuiSeqNum(row.decimalTUI), 0U) << row.name;
  }
}

TEST(BuiltInTable, NamesAndTUIsAreUniqueAndNoTUIIsZero) {
  std::set<std::string_view> names;
  std::set<std::uint32_t> TUIs;
  for (const TableRow& row : kShippedRows) {
    names.insert(row.name);
    TUIs.insert(row.decimalTUI);
  }
  EXPECT_EQ(names.size(), 50U);
  EXPECT_EQ(TUIs.size(), 50U);
  EXPECT_EQ(TUIs.count(0), 0U);
}

TEST(BuiltInTable, KeepsWithinItsForm) {
  std::map<std::string_view, int> rowsOfTarget;
  std::size_t longestName = 0;
  for (const TableRow& row : kShippedRows) {
    ++rowsOfTarget[row.target];
    longestName = std::max(longestName, row.name.size());
    EXPECT_TRUE(row.priority >= 1 && row.priority <= 3) << row.name;
    EXPECT_TRUE(row.type == "REF" || row.type == "VAL") << row.name;
  }
  EXPECT_EQ(longestName, 47U);
  EXPECT_EQ(rowsOfTarget,
            (std::map<std::string_view, int>{
                {"KEL_USER_MODE_DRIVER", 5}, {"KEL_FIRMWARE", 16}, {"KEL_TRACE", 3}, {"KEL_UPPER_DSPS", 26}}));
}

TEST(ComposeTUI, MasksNothing) {
  EXPECT_EQ(ComposeTUI(0xFF, 0, 0, 0, 0), 0xFFU);
  EXPECT_EQ(ComposeTUI(0, 0xFF, 0, 0, 0), 0x1FE0U);
  EXPECT_EQ(ComposeTUI(0, 0, 0xFF, 0, 0), 0xFF000U);
  EXPECT_EQ(ComposeTUI(0, 0, 0, 0xFF, 0), 0xFF0000U);
  EXPECT_EQ(ComposeTUI(0, 0, 0, 0, 0xFF), 0x7F80000U);
}

TEST_F(TaskList, HoldsTheFiftyBuiltInRowsIfThereIsNoFile) {
  ASSERT_TRUE(readTUIs());
  expectReported({{"info", "ReadTUIs", kNotOpened}});
  for (const TableRow& row : kShippedRows) {
    EXPECT_EQ(tuiOf(std::string(row.name)), row.decimalTUI);
    EXPECT_EQ(nameOf(row.decimalTUI), row.name);
  }
  EXPECT_EQ((mList.*memberOf(TuiByNameOf{}))->size(), 50U);
  EXPECT_EQ((mList.*memberOf(NameByTuiOf{}))->size(), 50U);
}

TEST_F(TaskList, TheBuiltInRowsOfOneListStayWhenAnotherReadsAFile) {
  BrelTUIsList other;
  other.SetTUIsFile(&mLogger, "other.csv");
  ASSERT_TRUE(other.ReadTUIs());
  ASSERT_TRUE(readTUIs());
  ASSERT_TRUE(readTable("ONE,  0, 0, KEL_TRACE, 1, REF, 614400, 0x3e9\n"));
  EXPECT_EQ(nameOf(614400), "ONE");
  EXPECT_EQ(nameOf(90304), "TASK_ID_TRACE_UTIL_PATH_GET");
  EXPECT_EQ(tuiOf("TASK_ID_TRACE_ADAPTER"), 0U);

  std::uint32_t tui = 0;
  EXPECT_TRUE(other.FindTuiByName("test", "TASK_ID_TRACE_ADAPTER", &tui));
  EXPECT_EQ(tui, 614400U);
  EXPECT_FALSE(other.FindTuiByName("test", "ONE", &tui));
  EXPECT_EQ((other.*memberOf(NameByTuiOf{}))->at(614400), "TASK_ID_TRACE_ADAPTER");
}

TEST_F(TaskList, KeepsTheTUIsOfAFileWhenItReadsTheBuiltInRows) {
  ASSERT_TRUE(readTable("ONE,  0, 0, KEL_TRACE, 1, REF, 1001, 0x3e9\n"));
  std::filesystem::remove("table.csv");
  ASSERT_TRUE(readTUIs());
  EXPECT_EQ(tuiOf("ONE"), 0U);
  EXPECT_EQ(nameOf(1001), "ONE");
  EXPECT_EQ(tuiOf("TASK_ID_TRACE_ADAPTER"), 614400U);

  BrelTUIsList other;
  other.SetTUIsFile(&mLogger, "table.csv");
  ASSERT_TRUE(other.ReadTUIs());
  EXPECT_EQ((other.*memberOf(NameByTuiOf{}))->size(), 50U);
}

TEST_F(TaskList, WithoutMemoryForTheBuiltInRowsLeavesThemToTheNext) {
  ALogger silent;
  bool failed = true;
  for (int objects = 0; failed; ++objects) {
    BrelTUIsList list;
    list.SetTUIsFile(&silent, "table.csv");
    bool read = false;
    {
      const FailingHeap heap(objects);
      try {
        read = list.ReadTUIs();
      } catch (const std::bad_alloc&) {
      }
      failed = heap.failed();
    }
    EXPECT_EQ(read, !failed) << objects;
    if (!read) continue;
    EXPECT_EQ((list.*memberOf(TuiByNameOf{}))->size(), 50U) << objects;
    EXPECT_EQ((list.*memberOf(NameByTuiOf{}))->size(), 50U) << objects;
  }
}

TEST_F(TaskList, IsReadByManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      BrelTUIsList list;
      EXPECT_TRUE(list.ReadTUIs());
      EXPECT_EQ((list.*memberOf(TuiByNameOf{}))->size(), 50U);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(TaskList, ReadsTheShippedTableFromAFileAlike) {
  const platform::Resource table = platform::findResource(nullptr, "#101", "TUISFILE");
  ASSERT_TRUE(readTable(std::string(table.bytes, table.size)));
  expectReported({{"info", "ReadTUIs", kOpened}});
  for (const TableRow& row : kShippedRows) {
    EXPECT_EQ(tuiOf(std::string(row.name)), row.decimalTUI);
    EXPECT_EQ(nameOf(row.decimalTUI), row.name);
  }
  EXPECT_EQ((mList.*memberOf(TuiByNameOf{}))->size(), 50U);
}

}  // namespace
}  // namespace kel::test
