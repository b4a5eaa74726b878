// SPDX-License-Identifier: MIT
// The end of an engine step by step: what is done already while the next step runs, and what is left undone by a step
// that fails.
#include <future>
#include <stdexcept>
#include <thread>

#include "async/engine_inside.h"
#include "engine/DorvBinding.h"
#include "engine/IncomingData.h"
#include "engine/engine_test.h"
#include "support/platform_calls.h"

namespace kel::test {
namespace {

void IgnoreBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
}
void IgnoreAlert(Status) {}

/// An engine with both listeners, whose log is at the start of its end.
class TearDownTest : public EngineTest {
 protected:
  void SetUp() override {
    handle = start(&IgnoreBroadcast, &IgnoreAlert);
    engine = GetBrelInst(handle);
    dorvHandle = BrelGetDorvHandle(handle);
    engineLog.fresh();
  }
  void TearDown() override {
    gDorv.Disconnect = Dorv_Disconnect;
    gDorv.Finalize = Dorv_Finalize;
    engine.reset();
    RemoveBrelInst(handle);
  }
  /// The steps behind the adapter's, which no failure of the adapter keeps from being taken.
  static std::string withTheRest(Log& log) {
    return log.info("ShutdownAlerterThread", "stopped alerts listener \n")
        .info("ShutdownBroadcastThread", "stopped broadcast listener \n")
        .info("ShutdownAsyncThread", "all async listener threads already stopped \n")
        .info("Finalize", "End \n")
        .text();
  }
  static Log begun() { return EngineLog().info("Finalize", "Start \n"); }

  std::uint32_t handle = kNoBrelHandle;
  std::uint32_t dorvHandle = 0;
  std::shared_ptr<BrelEngine> engine;
};

std::atomic<std::uint32_t> gFinalized{0};

TEST_F(TearDownTest, ALinkThatCannotBeCutKeepsItsAdapterRow) {
  gDorv.Disconnect = [](std::uint32_t) { return std::uint32_t{DORV_FAILED}; };
  gDorv.Finalize = [](std::uint32_t) {
    ++gFinalized;
    return std::uint32_t{DORV_OK};
  };
  EXPECT_EQ(BrelFinalize(handle), kStatusFailed);
  EXPECT_EQ(engineLog.fresh(),
            withTheRest(begun().error("Finalize", "error disconnecting Dorv.dll from Upper Driver \n")));
  EXPECT_EQ(gFinalized, 0u);
  EXPECT_EQ(GetBrelInst(handle), engine);
}

TEST_F(TearDownTest, AnAdapterRowThatCannotBeGivenBackIsTold) {
  gDorv.Finalize = [](std::uint32_t) { return std::uint32_t{DORV_FAILED}; };
  EXPECT_EQ(BrelFinalize(handle), kStatusFailed);
  EXPECT_EQ(engineLog.fresh(), withTheRest(begun()
                                               .info("Finalize", "Dorv.dll disconnected from Upper Driver \n")
                                               .error("Finalize", "error finalizing Dorv.dll \n")));
  EXPECT_EQ(OpenConnections(), 0u);
  EXPECT_EQ(GetBrelInst(handle), engine);
}

TEST_F(TearDownTest, AnExceptionEndsItThereAndLeavesItsLock) {
  gDorv.Disconnect = [](std::uint32_t) -> std::uint32_t { throw std::runtime_error("of the adapter"); };
  EXPECT_EQ(BrelFinalize(handle), kStatusFailed);
  EXPECT_EQ(engineLog.fresh(), begun().error("Finalize", "failed - exception caught! \n").text());
  EXPECT_EQ(GetBrelInst(handle), engine);

  gDorv.Disconnect = Dorv_Disconnect;
  auto again = std::async(std::launch::async, [this] { return BrelFinalize(handle); });
  ASSERT_EQ(again.wait_for(std::chrono::milliseconds(kLong)), std::future_status::ready);
  EXPECT_EQ(again.get(), kStatusOk);
}

TEST_F(TearDownTest, ListenersThatCannotBeStoppedAreToldAndTheEndGoesOn) {
  {
    const FailingCall notSet(PlatformCall::kSetEvent);
    EXPECT_EQ(engine->Finalize(), kStatusOk);
  }
  EXPECT_EQ(engineLog.fresh(), begun()
                                   .info("Finalize", "Dorv.dll disconnected from Upper Driver \n")
                                   .info("Finalize", "Dorv.dll finalized \n")
                                   .error("ShutdownAlerterThread", "problem stopping alerts listener \n")
                                   .error("ShutdownBroadcastThread", "problem stopping broadcast listener \n")
                                   .info("ShutdownAsyncThread", "all async listener threads already stopped \n")
                                   .info("Finalize", "End \n")
                                   .text());
  const std::weak_ptr<BrelEngine> last = engine;
  engine.reset();
  RemoveBrelInst(handle);
  while (!last.expired()) std::this_thread::yield();
}

// From the first step on what comes in is dropped, though the listeners run still.
TEST_F(TearDownTest, AnEngineWhoseLinkIsBeingCutIsUpNoLonger) {
  static std::atomic<bool> wasUp{true};
  static std::atomic<std::uint32_t> alertTaken{4711};
  gDorv.Disconnect = [](std::uint32_t dorv) {
    wasUp = EngineInside(*GetBrelInstByDorvHandle(dorv)).initialized().load();
    alertTaken = BrelEngineAlertsCallback(dorv, DORV_SOCKET_WAS_CLOSED_BY_PEER);
    return Dorv_Disconnect(dorv);
  };
  EXPECT_EQ(engine->Finalize(), kStatusOk);
  EXPECT_FALSE(wasUp);
  EXPECT_EQ(alertTaken, 0u);
}

TEST_F(TearDownTest, TheLinkIsNotCutWhileAClientIsBeingCalled) {
  static const platform::Handle cut = platform::createEvent(true, false);
  gDorv.Disconnect = [](std::uint32_t dorv) {
    platform::setEvent(cut);
    return Dorv_Disconnect(dorv);
  };
  std::future<Status> ended;
  {
    const platform::InSection calling(EngineInside(*engine).initLock());
    ended = std::async(std::launch::async, [this] { return engine->Finalize(); });
    EXPECT_EQ(platform::waitForOne(cut, 200), platform::kWaitTimeout);
  }
  EXPECT_EQ(ended.get(), kStatusOk);
  EXPECT_EQ(platform::waitForOne(cut, 0), platform::kWaitObject);
  platform::closeHandle(cut);
}

// Each time an event is set the listener that is told to stop gets no more data.
TEST_F(TearDownTest, AListenerIsNoLongerActiveWhenItIsToldToStop) {
  const auto record = Record(5u << 12, 0, 0, "");
  std::vector<std::string> told;
  {
    const AfterSetEvent toldToStop([&] {
      engineLog.fresh();
      std::atomic<bool>& initialized = EngineInside(*engine).initialized();
      initialized = true;  // an alert is looked at in no other case
      BrelEngineAlertsCallback(dorvHandle, 3);
      initialized = false;
      BrelEngineCallback(dorvHandle, record.data(), static_cast<std::uint32_t>(record.size()));
      told.push_back(engineLog.fresh());
    });
    EXPECT_EQ(engine->Finalize(), kStatusOk);
  }
  const auto alert = [] { return EngineLog().error("BrelEngineAlertsCallback", "callback - errorCode = 3 \n"); };
  constexpr const char* kNoAlerts = "callback - Alert arrived but no alerts callback exists \n";
  const std::string noAlerts = alert().info("BrelEngineAlertsCallback", kNoAlerts).text();
  ASSERT_EQ(told.size(), 2u);
  EXPECT_THAT(told[0], ::testing::StartsWith(noAlerts));
  EXPECT_EQ(told[1], alert()
                         .info("BrelEngineAlertsCallback", kNoAlerts)
                         .info("BrelEngineCallback", "callback - callback received \n")
                         .info("BrelEngineCallback", "callback - Broadcast arrived but no broadcast callback exists \n")
                         .text());
}

}  // namespace
}  // namespace kel::test
