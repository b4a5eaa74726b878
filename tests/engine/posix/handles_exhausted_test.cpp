// SPDX-License-Identifier: MIT
// What the engine does when the process can have no further handle. Only where the limit can be reached in a moment.
#include <optional>

#include "engine/engine_test.h"
#include "platform/platform.h"
#include "platform/posix/kernel_objects.h"
#include "support/posix/exhausted_handles.h"

namespace kel::test {
namespace {

struct Shortage {
  std::uint32_t handles;
  const char* function;
  const char* problem;
  const char* initProblem;
};

class StartTest : public EngineTest, public ::testing::WithParamInterface<Shortage> {};

TEST_P(StartTest, FailsWithOneAndLeavesNothingOpen) {
  const Shortage& shortage = GetParam();
  const ExhaustedHandles exhausted(shortage.handles);
  const std::size_t open = platform::posix::openHandles();
  std::uint32_t handle = 0;
  auto engine = AddBrelInst(&handle);
  engine->mBroadcastCallback = [](auto...) {};
  engine->mAlertsCallback = [](auto...) {};
  EXPECT_EQ(engine->init(nullptr, false, nullptr), kStatusFailed);
  Log told = EngineLog();
  if (shortage.function != nullptr) told.error(shortage.function, shortage.problem);
  EXPECT_THAT(LogText("Brel.logs"),
              ::testing::HasSubstr(told.error("init", shortage.initProblem).info("Finalize", "Start \n").text()));
  engine.reset();
  RemoveBrelInst(handle);
  EXPECT_EQ(platform::posix::openHandles(), open);
  EXPECT_EQ(OpenConnections(), 0u);
}

constexpr const char* kAlerts = "ActivateAlerterThread";
constexpr const char* kBroadcasts = "ActivateBroadcastThread";
constexpr const char* kNoAlerts = "could not activate alerter thread \n";
constexpr const char* kNoBroadcasts = "could not activate broadcast thread \n";

// The first handle is the sequencer's mutex, the second the stop event; then come two events and a thread each.
INSTANTIATE_TEST_SUITE_P(
    ShortOfHandles, StartTest,
    ::testing::Values(Shortage{0, nullptr, nullptr, "could not create mGeneralStopEvent \n"},
                      Shortage{1, nullptr, nullptr, "could not create mGeneralStopEvent \n"},
                      Shortage{2, kAlerts, "problem init alerts listener \n", kNoAlerts},
                      Shortage{3, kAlerts, "problem init alerts listener \n", kNoAlerts},
                      Shortage{4, kAlerts, "problem starting alerts listener \n", kNoAlerts},
                      Shortage{5, kBroadcasts, "problem init broadcast listener \n", kNoBroadcasts},
                      Shortage{6, kBroadcasts, "problem init broadcast listener \n", kNoBroadcasts},
                      Shortage{7, kBroadcasts, "problem starting broadcast listener \n", kNoBroadcasts}),
    [](const auto& shortage) { return "With" + std::to_string(shortage.param.handles); });

using HandlesExhaustedTest = EngineTest;

TEST_F(HandlesExhaustedTest, ATaskWithoutEventsFailsAndItsNumberStaysLost) {
  const std::uint32_t handle = start();
  std::optional<ExhaustedHandles> exhausted(2);
  engineLog.fresh();
  EXPECT_EQ(InvokeVal(handle, {}).status, kStatusFailed);
  EXPECT_EQ(engineLog.fresh(), EngineLog().error("IssueCommandBase", "could not assign sequence number \n").text());
  exhausted.reset();
  EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).payload, Bytes({1, 2, 3}));
  EXPECT_EQ(LastRequest().seqTUI >> 24, 1u);
}

}  // namespace
}  // namespace kel::test
