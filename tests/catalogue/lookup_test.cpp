// SPDX-License-Identifier: MIT
// Names to TUIs and back.
#include <gtest/gtest.h>

#include "adapter/TaskRecord.h"
#include "catalogue/shipped_rows.h"
#include "catalogue/task_list_test.h"
#include "engine/Brel.h"
#include "engine/BrelEngine.h"

namespace kel::test {
namespace {

const std::string kNotFound = "could not find TUI \n";

// A list with the built-in table, and outlets on which nothing stands yet.
class Lookup : public TaskList {
 protected:
  void SetUp() override {
    ASSERT_TRUE(readTUIs());
    std::filesystem::remove(LogPath("Tasks.logs"));
    mConsole.clear();
  }

  bool find(const char* callerName, const std::string& name) {
    return printed([&] { return mList.FindTuiByName(callerName, name, &mTui); });
  }

  bool findName(const char* callerName, std::uint32_t tui) {
    char* block = nullptr;
    const bool found = printed([&] { return mList.FindNameByTui(callerName, tui, &block); });
    mName = block;
    std::free(block);
    return found;
  }

  std::uint32_t mTui = 99;
  std::string mName;
};

TEST_F(Lookup, ANameGivesItsTUI) {
  EXPECT_TRUE(find("InvokeTask", "TASK_ID_TRACE_ADAPTER"));
  EXPECT_EQ(mTui, 614400U);
  expectReported({});
}

TEST_F(Lookup, CaseAndBlanksCount) {
  for (const char* name : {"task_id_trace_adapter", "TASK_ID_TRACE_ADAPTER ", " TASK_ID_TRACE_ADAPTER",
                           "TASK_ID_TRACE_ADAPTE", "TASK_ID_TRACE_ADAPTER,", ""}) {
    mTui = 99;
    EXPECT_FALSE(find("InvokeTask", name)) << name;
    EXPECT_EQ(mTui, 0U);
  }
}

TEST_F(Lookup, AnUnknownNameIsReportedUnderTheCallersName) {
  EXPECT_FALSE(find("GetAllStatistics", "task_id_trace_adapter"));
  EXPECT_EQ(mTui, 0U);
  expectReported({{"error", "GetAllStatistics", kNotFound}});
}

TEST_F(Lookup, ATUIGivesItsNameInABlockOfItsOwn) {
  char* one = nullptr;
  char* other = nullptr;
  EXPECT_TRUE(mList.FindNameByTui("HandleBroadcastResponse", 614400, &one));
  EXPECT_TRUE(mList.FindNameByTui("HandleBroadcastResponse", 614400, &other));
  EXPECT_STREQ(one, "TASK_ID_TRACE_ADAPTER");
  EXPECT_STREQ(other, one);
  EXPECT_NE(one, other);
  std::free(one);
  std::free(other);
  expectReported({});
}

TEST_F(Lookup, AnUnknownTUIGivesANameAllTheSame) {
  EXPECT_FALSE(findName("HandleBroadcastResponse", 0));
  EXPECT_EQ(mName, "UNKNOWN_TASK");
  expectReported({{"error", "HandleBroadcastResponse", kNotFound}});
}

TEST_F(Lookup, AWordWithASequenceByteIsNoTUI) {
  EXPECT_FALSE(findName("test", MakeSeqTUI(614400, 1)));
  EXPECT_EQ(mName, "UNKNOWN_TASK");
  EXPECT_FALSE(findName("test", MakeSeqTUI(614400, 0x80)));
  EXPECT_TRUE(findName("test", MakeSeqTUI(614400, 0)));
}

TEST_F(Lookup, NoBroadcastHasANameInTheBuiltInTable) {
  for (const TableRow& row : kShippedRows) {
    EXPECT_FALSE(findName("test", (row.decimalTUI & ~0xF000U) | kTargetBroadcast << 12));
    EXPECT_EQ(mName, "UNKNOWN_TASK");
  }
}

TEST_F(Lookup, ABroadcastHasANameIfAFileGivesItsNumberOne) {
  ASSERT_TRUE(readTable("MY_BROADCAST,  0, 0, KEL_ANYTHING, 1, VAL, 86016, 0x15000\n"));
  ASSERT_EQ(GetTuiTarget(86016), kTargetBroadcast);
  EXPECT_TRUE(findName("test", 86016));
  EXPECT_EQ(mName, "MY_BROADCAST");
}

TEST_F(Lookup, FailuresChangeNothing) {
  EXPECT_FALSE(find("test", "NOTHING"));
  EXPECT_FALSE(findName("test", 12345));
  EXPECT_FALSE(find("test", "NOTHING"));
  EXPECT_FALSE(findName("test", 12345));
  EXPECT_TRUE(find("test", "TASK_ID_UMAC_INIT"));
  EXPECT_EQ(mTui, 230017U);
  EXPECT_TRUE(findName("test", 230017));
  EXPECT_EQ(mName, "TASK_ID_UMAC_INIT");
}

TEST_F(Lookup, AnEmptyListFindsNothing) {
  BrelTUIsList list;
  list.SetTUIsFile(&mLogger, nullptr);
  EXPECT_FALSE(list.FindTuiByName("test", "TASK_ID_TRACE_ADAPTER", &mTui));
  EXPECT_EQ(mTui, 0U);
}

// The client tests the TUI: no task has TUI 0.
TEST_F(Lookup, TheEngineTakesAnUnknownNameForSuccess) {
  BrelEngine engine;
  std::uint32_t tui = 99;
  EXPECT_EQ(engine.BrelFindTuiByName("NO_SUCH_TASK", &tui), 2U);
  EXPECT_EQ(tui, 0U);
  engine.Finalize();
}

TEST_F(Lookup, TheFrontFunctionRefusesAnUnknownEngine) {
  std::uint32_t tui = 99;
  EXPECT_EQ(BrelFindTuiByName(99, "TASK_ID_TRACE_ADAPTER", &tui), 1U);
  EXPECT_EQ(BrelFindTuiByName(0, "TASK_ID_TRACE_ADAPTER", &tui), 1U);
}

}  // namespace
}  // namespace kel::test
