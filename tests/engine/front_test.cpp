// SPDX-License-Identifier: MIT
// The front functions: what they do without an engine, and the look-ups that have no export.
#include "engine/engine_test.h"

namespace kel::test {
namespace {

class FrontTest : public EngineTest, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(FrontTest, EveryFunctionReturnsOneForAHandleWithoutAnEngineAndLeavesItsOutputsAlone) {
  start();
  const std::uint32_t handle = GetParam();
  const std::uint64_t requests = Requests();

  EXPECT_EQ(BrelFinalize(handle), 1u);

  std::uint32_t number = 4711;
  EXPECT_EQ(BrelFindTuiByName(handle, kDebugVal, &number), 1u);
  char untouched[] = "untouched";
  char* text = untouched;
  EXPECT_EQ(BrelGetStatusString(handle, 2, &text), 1u);
  EXPECT_EQ(BrelGetCallbackStatusString(handle, 2, &text), 1u);
  std::uint64_t userVersion = 0;
  EXPECT_EQ(BrelValidateVersion(handle, untouched, "", 0, &userVersion, "."), 1u);

  EXPECT_EQ(BrelGetTraceFilePath(handle, &text), 1u);
  EXPECT_EQ(BrelSetTraceFilePath(handle, "path"), 1u);
  std::uint8_t severities[256] = {};
  std::uint8_t* buffer = severities;
  EXPECT_EQ(BrelGetTraceSeverityMultiple(handle, &buffer, &number), 1u);
  EXPECT_EQ(BrelSetTraceSeverityMultiple(handle, severities), 1u);
  EXPECT_EQ(BrelGetAllStatistics(handle, &buffer, &number), 1u);
  EXPECT_EQ(BrelGetAllStatisticsSize(handle, &number), 1u);
  EXPECT_EQ(BrelResetStatisticsBuffer(handle), 1u);

  task record{};
  record.TUI = kDebugRefTui;
  record.responseExpected = 1;
  task* response = &record;
  EXPECT_EQ(BrelIssueCommand(handle, 1, &record, &response, &number, nullptr), 1u);
  EXPECT_EQ(BrelIssueAsyncCommand(handle, 1, &record, &number, nullptr, nullptr), 1u);
  const Answer answer = Invoke(handle, kDebugVal, nullptr, 0);
  EXPECT_EQ(answer.status, 1u);
  EXPECT_FALSE(answer.written);
  EXPECT_EQ(BrelInvokeAsyncTask(handle, kDebugVal, 1, nullptr, 0, 0, 1, &number, nullptr, nullptr), 1u);

  EXPECT_EQ(number, 4711u);
  EXPECT_EQ(text, untouched);
  EXPECT_EQ(buffer, severities);
  EXPECT_EQ(response, &record);
  EXPECT_EQ(Requests(), requests);
}

INSTANTIATE_TEST_SUITE_P(Handles, FrontTest, ::testing::Values(1u, 15u, 16u, 0xFFFFFFFFu));

using LookUpTest = EngineTest;

TEST_F(LookUpTest, ANameGivesItsTui) {
  const std::uint32_t handle = start();
  std::uint32_t tui = 0;
  EXPECT_EQ(BrelFindTuiByName(handle, "TASK_ID_TRACE_ADAPTER", &tui), 2u);
  EXPECT_EQ(tui, 614400u);
}

TEST_F(LookUpTest, NoNameIsOneThatIsUnknown) {
  const std::uint32_t handle = start();
  std::uint32_t tui = 4711;
  EXPECT_EQ(BrelFindTuiByName(handle, nullptr, &tui), 2u);
  EXPECT_EQ(tui, 0u);
}

TEST_F(LookUpTest, AnUnknownNameIsASuccessWithTuiZeroAndALineInTheLog) {
  const std::uint32_t handle = start();
  engineLog.fresh();
  for (const char* name : {"NO_SUCH_TASK", "task_id_trace_adapter", ""}) {
    std::uint32_t tui = 4711;
    EXPECT_EQ(BrelFindTuiByName(handle, name, &tui), 2u);
    EXPECT_EQ(tui, 0u);
    EXPECT_EQ(engineLog.fresh(), EngineLog().error("BrelFindTuiByName", "could not find TUI \n").text());
  }
}

}  // namespace
}  // namespace kel::test
