// SPDX-License-Identifier: MIT
// The async listener by itself: what a thread does with each of its events, what it says, and how it ends.
#include "async/listener_test.h"

#include <chrono>
#include <future>
#include <thread>

namespace kel::test {

struct ThreadFunctionOf {
  friend auto memberOf(ThreadFunctionOf);
};
template struct OpenMember<ThreadFunctionOf, &AsyncListener::listenerThreadFunc>;
struct LoggerOf {
  friend auto memberOf(LoggerOf);
};
template struct OpenMember<LoggerOf, &AsyncListener::mLogger>;

AsyncListenerTest::AsyncListenerTest() {
  registry.switchLogsOn();
  listener = std::make_unique<AsyncListener>();
  gFake = &engine;
  testing::internal::CaptureStdout();
}

AsyncListenerTest::~AsyncListenerTest() {
  for (const platform::Handle event : {dataEvent, stopEvent, generalStopEvent}) platform::closeHandle(event);
}

std::uint32_t AsyncListenerTest::run(std::uint32_t seqNum, bool isStream) {
  (listener.get()->*memberOf(LoggerOf{})).setFileName("Brel_Async_Listener.logs");
  return memberOf(ThreadFunctionOf{})(arguments(seqNum, isStream));
}

std::string AsyncListenerTest::console() { return masked(testing::internal::GetCapturedStdout()); }

void AsyncListenerTest::expectTold(const std::vector<std::string>& lines) {
  std::string logged, printed;
  for (const std::string& levelAndText : lines) {
    const std::size_t blank = levelAndText.find(' ');
    const std::string text = levelAndText.substr(blank + 1);
    logged += line(levelAndText.substr(0, blank), "listenerThreadFunc", text);
    printed += "listenerThreadFunc - " + text;
  }
  EXPECT_EQ(log(), logged);
  EXPECT_EQ(console(), printed);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(AsyncListenerTest, HasTheSettingsOfItsConstruction) {
  EXPECT_EQ(listener->mLogToConsole, 0u);
  EXPECT_EQ(listener->mWaitTimeout, 10000u);
  EXPECT_EQ(console(), "");
}

TEST_F(AsyncListenerTest, InitTakesWhatItIsGivenAndTheConsoleSwitch) {
  EXPECT_EQ(init(3), 1u);
  EXPECT_EQ(listener->mLogToConsole, 1u);
  EXPECT_EQ(listener->init(0, nullptr, nullptr, nullptr, nullptr, 256, nullptr, nullptr, nullptr, 0), 1u);
  EXPECT_EQ(listener->mLogToConsole, 0u);
  EXPECT_EQ(console(), "");
}

TEST_F(AsyncListenerTest, ShutdownDoesNothing) {
  EXPECT_EQ(listener->shutdown(), 3u);
  init(3);
  EXPECT_EQ(listener->shutdown(), 3u);
  EXPECT_EQ(listener->shutdown(), 3u);
  EXPECT_TRUE(platform::setEvent(dataEvent));
  EXPECT_EQ(console(), "");
}

// ---------------------------------------------------------------------------------------------------------------------
// Data
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(AsyncListenerTest, HandsOnAllThatIsQueuedAndWaitsAgain) {
  init(3);
  engine.queue = {"one", "two"};
  engine.whileProcessing = [this] {
    if (engine.queue.empty()) listener->mWaitTimeout = 0;  // read at the start only
  };
  listener->mWaitTimeout = 20;
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(3), 0u);
  EXPECT_THAT(engine.calls, ElementsAre("take 3", "process 3 0 one 3", "take 3", "process 3 0 two 3", "take 3",
                                        "process 3 2 null 0", "free 3"));
  EXPECT_EQ(engine.givenEvent, dataEvent);
  expectTold({
      "info (3) - data event received. queueRes = 0 \n",
      "info (3) - data event received, extracting from queue. \n",
      "info (3) - data event received, processing data. \n",
      "info (3) - data event received, data processing finished. \n",
      "info (3) - Deallocated memory for asynchBuffer number 1. \n",
      "info (3) - data event received, extracting from queue. \n",
      "info (3) - data event received, processing data. \n",
      "info (3) - data event received, data processing finished. \n",
      "info (3) - Deallocated memory for asynchBuffer number 2. \n",
      "info (3) - data event received, extracting from queue. \n",
      "info (3) - data event received, queue empty. \n",
      "error (3) - WAIT_TIMEOUT on Multiple wait. Handle= # \n",
      "info (3) - processing with errorCode WAIT_TIMEOUT. \n",
      "info (3) - processing with errorCode WAIT_TIMEOUT finished. \n",
      "info (3) - freeing sequence data. \n",
      "info (3) - sequence data freed. \n",
      "info (3) - exiting with code 0 - End of listenerThreadFunc(). Handle= # \n",
  });
}

TEST_F(AsyncListenerTest, CountsItsBuffersOverAllWaits) {
  init(3);
  engine.queue = {"one"};
  engine.whileProcessing = [this] {
    if (engine.count("process 3 0 one 3") == 1 && engine.queue.empty()) {
      engine.queue = {"two"};
      platform::setEvent(dataEvent);
      engine.whileProcessing = [this] { platform::setEvent(stopEvent); };
    }
  };
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(3, true), 1u);
  EXPECT_THAT(log(), testing::HasSubstr("number 1. \n"));
  EXPECT_THAT(log(), testing::HasSubstr("number 2. \n"));

  // The next thread's count is its own.
  engine.queue = {"three"};
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(4, true), 1u);
  EXPECT_THAT(log(), testing::HasSubstr("(4) - Deallocated memory for asynchBuffer number 1. \n"));
  console();
}

TEST_F(AsyncListenerTest, AnAnswerForWhichThereIsNoMemoryIsLostAndTheNextOneHandedOn) {
  init(3);
  engine.queue = {"one", "two"};
  engine.whileProcessing = [this] {
    if (!engine.queue.empty()) throw std::bad_alloc();
    platform::setEvent(stopEvent);
  };
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(3), 1u);
  EXPECT_THAT(engine.calls, ElementsAre("take 3", "process 3 0 one 3", "take 3", "process 3 0 two 3", "free 3"));
  EXPECT_THAT(log(), testing::HasSubstr(line("error", "listenerThreadFunc",
                                             "(3) - out of memory, an answer is dropped. \n")));
  console();
}

TEST_F(AsyncListenerTest, ADataEventWithNothingQueuedIsNoFault) {
  init(3);
  listener->mWaitTimeout = 0;
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(3), 0u);
  EXPECT_THAT(engine.calls, ElementsAre("take 3", "process 3 2 null 0", "free 3"));
  console();
}

TEST_F(AsyncListenerTest, EndsWithoutFreeingWhenTheNextBufferCannotBeHad) {
  init(3);
  engine.retrieveResult = kNextBufferFailed;
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(3), 0u);
  EXPECT_THAT(engine.calls, ElementsAre("take 3"));
  expectTold({
      "info (3) - data event received. queueRes = 0 \n",
      "info (3) - data event received, extracting from queue. \n",
      "error (3) - data event received, problem extracting from queue. \n",
  });
}

TEST_F(AsyncListenerTest, EndsWithoutFreeingWhenTheEngineIsGone) {
  init(3);
  engine.queue = {"one", "two"};
  engine.processResult = 0;
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(3), 4u);
  EXPECT_THAT(engine.calls, ElementsAre("take 3", "process 3 0 one 3"));
  expectTold({
      "info (3) - data event received. queueRes = 0 \n",
      "info (3) - data event received, extracting from queue. \n",
      "info (3) - data event received, processing data. \n",
      "error (3) - exiting with code 4 - mProcessDataFunc() returned false. Handle= # \n",
  });
}

// An engine that is gone gives this result for the queue as well, and it reads as data that is not there.
TEST_F(AsyncListenerTest, AnUnknownResultOfTheQueueIsHandedOnAsNoData) {
  init(3);
  engine.retrieveResult = 7;
  engine.processResult = 0;
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(3), 4u);
  EXPECT_THAT(engine.calls, ElementsAre("take 3", "process 3 0 null 0"));
  console();
}

// ---------------------------------------------------------------------------------------------------------------------
// Stops
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(AsyncListenerTest, AStopFreesTheSequence) {
  init(3);
  platform::setEvent(stopEvent);
  EXPECT_EQ(run(3), 1u);
  EXPECT_THAT(engine.calls, ElementsAre("free 3"));
  expectTold({
      "info (3) - stop wait event received (external loop) - exiting listener thread \n",
      "info (3) - freeing sequence data. \n",
      "info (3) - sequence data freed. \n",
  });
}

TEST_F(AsyncListenerTest, AGeneralStopFreesTheSequenceAndStaysSet) {
  init(3);
  platform::setEvent(generalStopEvent);
  EXPECT_EQ(run(3), 2u);
  EXPECT_THAT(engine.calls, ElementsAre("free 3"));
  EXPECT_EQ(platform::waitForOne(generalStopEvent, 0), platform::kWaitObject);
  expectTold({
      "info (3) - general stop wait event received (external loop) - exiting listener thread \n",
      "info (3) - freeing sequence data. \n",
      "info (3) - sequence data freed. \n",
  });
}

TEST_F(AsyncListenerTest, DataWinsOverAStopAndIsThenNotTaken) {
  init(3);
  engine.queue = {"one"};
  platform::setEvent(stopEvent);
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(3), 1u);
  EXPECT_THAT(engine.calls, ElementsAre("free 3"));
  expectTold({
      "info (3) - data event received. queueRes = 0 \n",
      "info (3) - stop wait event received (internal loop) - exiting listener thread. \n",
      "info (3) - freeing sequence data. \n",
      "info (3) - sequence data freed. \n",
  });
}

TEST_F(AsyncListenerTest, DataWinsOverAGeneralStopAndIsThenNotTaken) {
  init(3);
  engine.queue = {"one"};
  platform::setEvent(generalStopEvent);
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(3), 2u);
  EXPECT_THAT(engine.calls, ElementsAre("free 3"));
  expectTold({
      "info (3) - data event received. queueRes = 0 \n",
      "info (3) - general stop wait event received (internal loop) - exiting listener thread. \n",
      "info (3) - freeing sequence data. \n",
      "info (3) - sequence data freed. \n",
  });
}

TEST_F(AsyncListenerTest, AStopEndsItAheadOfTheNextBuffer) {
  for (const platform::Handle stop : {stopEvent, generalStopEvent}) {
    init(3);
    engine.calls.clear();
    engine.queue = {"one", "two", "three"};
    engine.whileProcessing = [stop] { platform::setEvent(stop); };
    platform::setEvent(dataEvent);
    EXPECT_EQ(run(3, true), stop == stopEvent ? 1u : 2u);
    EXPECT_THAT(engine.calls, ElementsAre("take 3", "process 3 0 one 3", "free 3"));
    EXPECT_THAT(engine.queue, ElementsAre("two", "three"));
  }
  console();
}

TEST_F(AsyncListenerTest, TheSequencesOwnStopWinsOverTheGeneralOne) {
  init(3);
  platform::setEvent(generalStopEvent);
  platform::setEvent(stopEvent);
  EXPECT_EQ(run(3), 1u);
  console();
}

TEST_F(AsyncListenerTest, AWaitThatFailsEndsItWithoutFreeing) {
  init(3);
  platform::closeHandle(stopEvent);
  EXPECT_EQ(run(3), 3u);
  EXPECT_THAT(engine.calls, IsEmpty());
  expectTold({"error (3) - exiting with code 3. Handle= # \n"});
}

// ---------------------------------------------------------------------------------------------------------------------
// Time-outs
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(AsyncListenerTest, NoAnswerInTimeIsReportedOnceAndTheSequenceFreed) {
  init(3);
  listener->mWaitTimeout = 0;
  EXPECT_EQ(run(3), 0u);
  EXPECT_THAT(engine.calls, ElementsAre("process 3 2 null 0", "free 3"));
  expectTold({
      "error (3) - WAIT_TIMEOUT on Multiple wait. Handle= # \n",
      "info (3) - processing with errorCode WAIT_TIMEOUT. \n",
      "info (3) - processing with errorCode WAIT_TIMEOUT finished. \n",
      "info (3) - freeing sequence data. \n",
      "info (3) - sequence data freed. \n",
      "info (3) - exiting with code 0 - End of listenerThreadFunc(). Handle= # \n",
  });
}

TEST_F(AsyncListenerTest, WhatTheEngineSaysToATimeOutIsNotLookedAt) {
  init(3);
  listener->mWaitTimeout = 0;
  engine.processResult = 0;
  EXPECT_EQ(run(3), 0u);
  EXPECT_THAT(engine.calls, ElementsAre("process 3 2 null 0", "free 3"));
  console();
}

TEST_F(AsyncListenerTest, EachWaitHasTheWholeTime) {
  init(3);
  constexpr auto kWait = std::chrono::milliseconds(60);
  listener->mWaitTimeout = static_cast<std::uint32_t>(kWait.count());
  engine.queue = {"one"};
  std::chrono::steady_clock::time_point processed, timedOut;
  engine.whileProcessing = [&] {
    if (engine.calls.back() == "process 3 0 one 3") {
      std::this_thread::sleep_for(2 * kWait);  // the time is over, were it counted from the start
      processed = std::chrono::steady_clock::now();
    } else {
      timedOut = std::chrono::steady_clock::now();
    }
  };
  platform::setEvent(dataEvent);
  EXPECT_EQ(run(3), 0u);
  EXPECT_GE(timedOut - processed, kWait - std::chrono::milliseconds(1));
  console();
}

TEST_F(AsyncListenerTest, AStreamHasNoTimeOut) {
  init(3);
  listener->mWaitTimeout = 0;
  auto thread = std::async(std::launch::async, [&] { return run(3, true); });
  EXPECT_EQ(thread.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
  platform::setEvent(stopEvent);
  EXPECT_EQ(thread.get(), 1u);
  EXPECT_THAT(engine.calls, ElementsAre("free 3"));
  console();
}

}  // namespace
}  // namespace kel::test
