// SPDX-License-Identifier: MIT
// A listener's start, its ends and its failures.
#include <gtest/gtest.h>

#include "listeners/listener_test.h"
#include "support/platform_calls.h"

namespace kel::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const char* const kStopped = "listenerThreadFunc - stop wait event received - exiting listener thread \n";
const char* const kGenerallyStopped =
    "listenerThreadFunc - general stop wait event received - exiting listener thread \n";

TEST(ListenerResult, HasTheNumbersThatTheEngineComparesWith) {
  EXPECT_EQ(LISTENER_INIT_FAILED, 0u);
  EXPECT_EQ(LISTENER_INIT_OK, 1u);
  EXPECT_EQ(LISTENER_SHUTDOWN_PROBLEM, 2u);
  EXPECT_EQ(LISTENER_SHUTDOWN_OK, 3u);
  EXPECT_EQ(LISTENER_DATA_NOT_TAKEN, 4u);
  EXPECT_EQ(LISTENER_DATA_TAKEN, 5u);
  EXPECT_EQ(LISTENER_NOT_STARTED, 6u);
  EXPECT_EQ(LISTENER_STARTED, 7u);
  EXPECT_EQ(LISTENER_STOP_PROBLEM, 8u);
  EXPECT_EQ(LISTENER_STOPPED, 9u);
}

template <class Listener>
using Lifecycle = ListenerTest<Listener>;
TYPED_TEST_SUITE(Lifecycle, Listeners, ListenerName);

TYPED_TEST(Lifecycle, BeginsWithTwoAutoResetEvents) {
  this->dataEvent = this->stopWaitEvent = this->generalStopEvent;
  EXPECT_EQ(this->init(), LISTENER_INIT_OK);
  EXPECT_NE(this->dataEvent, this->stopWaitEvent);
  for (platform::Handle event : {this->dataEvent, this->stopWaitEvent}) {
    EXPECT_NE(event, this->generalStopEvent);
    EXPECT_EQ(platform::waitForOne(event, 0), platform::kWaitTimeout);
    EXPECT_TRUE(platform::setEvent(event));
    EXPECT_EQ(platform::waitForOne(event, 0), platform::kWaitObject);
    EXPECT_EQ(platform::waitForOne(event, 0), platform::kWaitTimeout);
  }
  EXPECT_EQ(this->console(), "");
}

TYPED_TEST(Lifecycle, WritesNothingToAFileBeforeTheStart) {
  this->init();
  this->receive("data");
  EXPECT_EQ(this->log(), "");
  EXPECT_TRUE(LogPath(NameOf<TypeParam>::kLog).empty());
  EXPECT_THAT(this->leftInQueue(), ElementsAre("data"));
}

TYPED_TEST(Lifecycle, TellsTheStartOnBothOutlets) {
  this->start();
  EXPECT_EQ(this->log(), this->line("info", "startListen", "\n"));
  EXPECT_EQ(this->console(), "");
  EXPECT_NE(this->handleText, "");
  EXPECT_EQ(this->handleText.find_first_not_of("0123456789ABCDEF"), std::string::npos);
}

TYPED_TEST(Lifecycle, EndsAtAStopWithNothingToDo) {
  this->start();
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_EQ(this->console(), std::string(kStopped) + "stopListen - listener thread exited \n");
}

TYPED_TEST(Lifecycle, ClosesItsHandlesAtTheStop) {
  this->start();
  this->listener->stopListen();
  EXPECT_FALSE(platform::setEvent(this->dataEvent));
  EXPECT_FALSE(platform::setEvent(this->stopWaitEvent));
  EXPECT_TRUE(platform::setEvent(this->generalStopEvent));
}

TYPED_TEST(Lifecycle, HasNothingToStopAfterTheStop) {
  this->start();
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOP_PROBLEM);
  EXPECT_EQ(this->console(), std::string(kStopped) + "stopListen - listener thread exited \n");
}

TYPED_TEST(Lifecycle, StopsAheadOfTheNextBufferAndLosesTheRest) {
  this->start();
  this->engine.hold();
  this->receive("one");
  this->engine.waitFor(1);
  this->receive("two");
  this->receive("three");
  platform::setEvent(this->stopWaitEvent);
  this->engine.letGo();
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_THAT(this->engine.data(), ElementsAre("one"));
  EXPECT_THAT(this->leftInQueue(), ElementsAre("two", "three"));
  EXPECT_THAT(this->console(), EndsWith("listenerThreadFunc - data event received, data processing finished \n" +
                                        std::string(kStopped) + "stopListen - listener thread exited \n"));
  EXPECT_THAT(
      this->log(),
      EndsWith(this->line("info", "listenerThreadFunc", "data event received, data processing finished \n") +
               this->line("info", "listenerThreadFunc", "stop wait event received - exiting listener thread \n") +
               this->line("info", "stopListen", "listener thread exited \n")));
}

TYPED_TEST(Lifecycle, LooksAtTheStopAfterItHasWokenForData) {
  this->init();
  this->receive("one");
  platform::setEvent(this->stopWaitEvent);
  ASSERT_EQ(this->listener->startListen(), LISTENER_STARTED);
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_THAT(this->engine.data(), ElementsAre());
  EXPECT_THAT(this->leftInQueue(), ElementsAre("one"));
  EXPECT_THAT(this->console(), EndsWith("listenerThreadFunc - data event received, extracting from queue \n" +
                                        std::string(kStopped) + "stopListen - listener thread exited \n"));
}

TYPED_TEST(Lifecycle, EndsAtTheGeneralStopByItself) {
  this->start();
  platform::setEvent(this->generalStopEvent);
  // Its own stop would end it too, so wait until it has gone: it does not take what comes any more.
  const std::string gone =
      this->line("info", "listenerThreadFunc", "general stop wait event received - exiting listener thread \n");
  while (this->log() != this->line("info", "startListen", "\n") + gone) std::this_thread::yield();
  EXPECT_EQ(this->receive("data"), LISTENER_DATA_TAKEN);
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_THAT(this->engine.data(), ElementsAre());
  EXPECT_THAT(this->leftInQueue(), ElementsAre("data"));
  EXPECT_THAT(this->console(), AllOf(HasSubstr(kGenerallyStopped), EndsWith("stopListen - listener thread exited \n")));
}

TYPED_TEST(Lifecycle, EndsAtTheGeneralStopAheadOfTheNextBuffer) {
  this->start();
  this->engine.hold();
  this->receive("one");
  this->engine.waitFor(1);
  this->receive("two");
  platform::setEvent(this->generalStopEvent);
  this->engine.letGo();
  EXPECT_THAT(this->engine.data(), ElementsAre("one"));
  // Without a stop of its own, so that this one counts.
  const std::string gone =
      this->line("info", "listenerThreadFunc", "general stop wait event received - exiting listener thread \n");
  while (!this->log().ends_with(gone)) std::this_thread::yield();
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_THAT(this->engine.data(), ElementsAre("one"));
  EXPECT_THAT(this->leftInQueue(), ElementsAre("two"));
  EXPECT_THAT(this->console(), EndsWith("listenerThreadFunc - data event received, data processing finished \n" +
                                        std::string(kGenerallyStopped) + "stopListen - listener thread exited \n"));
}

TYPED_TEST(Lifecycle, LeavesTheGeneralStopSetForOthers) {
  this->start();
  platform::setEvent(this->generalStopEvent);
  this->listener->stopListen();
  EXPECT_EQ(platform::waitForOne(this->generalStopEvent, 0), platform::kWaitObject);
}

TYPED_TEST(Lifecycle, WaitsForTheEngineBeforeItHasStopped) {
  this->start();
  this->engine.hold();
  this->receive("one");
  this->engine.waitFor(1);
  std::atomic<bool> stopped{false};
  std::thread stopper([&] {
    EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
    stopped = true;
  });
  std::this_thread::yield();
  EXPECT_FALSE(stopped);
  this->engine.letGo();
  stopper.join();
}

TYPED_TEST(Lifecycle, EndsWhenItCannotWait) {
  platform::closeHandle(this->generalStopEvent);
  this->generalStopEvent = nullptr;
  this->start();
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  // The thread may be quicker than the one that notes its handle.
  EXPECT_THAT(this->console(), AllOf(StartsWith("listenerThreadFunc - Listener Thread exited with code 0. Handle= "),
                                     EndsWith(" \nstopListen - listener thread exited \n")));
}

// A look at the stops that fails keeps nothing back; the wait that follows ends the thread.
TYPED_TEST(Lifecycle, EndsWhenItCannotWaitAgain) {
  this->start();
  this->engine.hold();
  this->receive("one");
  this->engine.waitFor(1);
  this->receive("two");
  platform::closeHandle(this->generalStopEvent);
  this->generalStopEvent = nullptr;
  this->engine.letGo();
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_THAT(this->engine.data(), ElementsAre("one", "two"));
  EXPECT_THAT(this->log(),
              HasSubstr(this->line("error", "listenerThreadFunc", "Listener Thread exited with code 0. Handle= 0x")));
}

TYPED_TEST(Lifecycle, HasNothingToStopBeforeItsEventsAreThere) {
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOP_PROBLEM);
  EXPECT_EQ(this->console(), "");
}

TYPED_TEST(Lifecycle, CannotStopAThreadThatWasNeverStarted) {
  this->init();
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOP_PROBLEM);
  EXPECT_EQ(this->console(), "stopListen - unhandled result on wait for listener thread exit \n");
}

TYPED_TEST(Lifecycle, TellsThatTheWaitForItsThreadFailed) {
  this->startQuietly();
  {
    const FailingCall failing(PlatformCall::kWaitForOne);
    EXPECT_EQ(this->listener->stopListen(), LISTENER_STOP_PROBLEM);
  }
  EXPECT_TRUE(platform::setEvent(this->dataEvent));
  EXPECT_THAT(this->log(),
              HasSubstr(this->line("error", "stopListen", "unhandled result on wait for listener thread exit \n")));
}

TYPED_TEST(Lifecycle, StaysOpenIfTheWaitForItsThreadTimesOut) {
  this->startQuietly();
  {
    const FailingCall failing(PlatformCall::kWaitForOneInTime);
    EXPECT_EQ(this->listener->stopListen(), LISTENER_STOP_PROBLEM);
  }
  EXPECT_TRUE(platform::setEvent(this->dataEvent));
  EXPECT_THAT(this->console(), HasSubstr("stopListen - WAIT_TIMEOUT on wait for listener thread exit \n"));
  EXPECT_THAT(this->log(),
              HasSubstr(this->line("error", "stopListen", "WAIT_TIMEOUT on wait for listener thread exit \n")));
}

TYPED_TEST(Lifecycle, ShutsDownRepeatedly) {
  EXPECT_EQ(this->listener->shutdown(), LISTENER_SHUTDOWN_OK);
  this->init();
  EXPECT_EQ(this->listener->shutdown(), LISTENER_SHUTDOWN_OK);
  EXPECT_EQ(this->listener->shutdown(), LISTENER_SHUTDOWN_OK);
  EXPECT_FALSE(platform::setEvent(this->dataEvent));
  EXPECT_EQ(this->console(), "");
}

TYPED_TEST(Lifecycle, TellsWhichHandlesWouldNotClose) {
  this->init();
  {
    const FailingCall failing(PlatformCall::kCloseHandle);
    EXPECT_EQ(this->listener->shutdown(), LISTENER_SHUTDOWN_PROBLEM);
  }
  EXPECT_EQ(this->console(),
            "shutdown - could not close mDataEvent handle \n"
            "shutdown - could not close mStopWaitEvent handle \n");
  EXPECT_EQ(this->listener->shutdown(), LISTENER_SHUTDOWN_OK);
}

// Each is reason enough by itself.
TYPED_TEST(Lifecycle, TellsOfTheOneHandleThatWouldNotClose) {
  this->init();
  {
    const FailingCall failing(PlatformCall::kCloseHandle, 1);
    EXPECT_EQ(this->listener->shutdown(), LISTENER_SHUTDOWN_PROBLEM);
  }
  this->start();
  {
    const FailingCall failing(PlatformCall::kCloseHandle, 2);
    EXPECT_EQ(this->listener->stopListen(), LISTENER_STOP_PROBLEM);
  }
  EXPECT_EQ(this->console(), "shutdown - could not close mStopWaitEvent handle \n" + std::string(kStopped) +
                                 "shutdown - could not close mListenerThread handle \n"
                                 "stopListen - problem on listener thread shutdown \n");
}

TYPED_TEST(Lifecycle, TellsThatAStopHadAProblem) {
  this->start();
  {
    const FailingCall failing(PlatformCall::kCloseHandle);
    EXPECT_EQ(this->listener->stopListen(), LISTENER_STOP_PROBLEM);
  }
  EXPECT_THAT(this->console(), EndsWith("shutdown - could not close mDataEvent handle \n"
                                        "shutdown - could not close mStopWaitEvent handle \n"
                                        "shutdown - could not close mListenerThread handle \n"
                                        "stopListen - problem on listener thread shutdown \n"));
  EXPECT_THAT(this->log(), EndsWith(this->line("error", "shutdown", "could not close mDataEvent handle \n") +
                                    this->line("error", "shutdown", "could not close mStopWaitEvent handle \n") +
                                    this->line("error", "shutdown", "could not close mListenerThread handle \n") +
                                    this->line("error", "stopListen", "problem on listener thread shutdown \n")));
  EXPECT_EQ(this->listener->shutdown(), LISTENER_SHUTDOWN_OK);
}

TYPED_TEST(Lifecycle, ShutsDownAtItsEnd) {
  this->init();
  this->listener = std::make_unique<TypeParam>();
  EXPECT_FALSE(platform::setEvent(this->dataEvent));
  EXPECT_FALSE(platform::setEvent(this->stopWaitEvent));
}

}  // namespace
}  // namespace kel::test
