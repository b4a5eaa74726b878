// SPDX-License-Identifier: MIT
// Buffers on their way through a listener.
#include <gtest/gtest.h>

#include "listeners/listener_test.h"

namespace kel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

template <class Listener>
using Delivery = ListenerTest<Listener>;
TYPED_TEST_SUITE(Delivery, Listeners, ListenerName);

TYPED_TEST(Delivery, HandsABufferToTheEngineOnTheListenersThread) {
  this->start();
  EXPECT_EQ(this->receive("data"), LISTENER_DATA_TAKEN);
  this->engine.waitFor(1);
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  ASSERT_THAT(this->engine.processed(), SizeIs(1));
  EXPECT_EQ(this->engine.processed()[0].engineHandle, 5u);
  EXPECT_EQ(this->engine.processed()[0].data, "data");
  EXPECT_NE(this->engine.processed()[0].thread, std::this_thread::get_id());
}

TYPED_TEST(Delivery, HandsFourBytesOnUnchanged) {
  this->start();
  const std::string code("\x04\x00\xFF\x80", 4);
  this->receive(code);
  this->engine.waitFor(1);
  EXPECT_THAT(this->engine.data(), ElementsAre(code));
}

TYPED_TEST(Delivery, HandsBuffersOfAnySizeOn) {
  this->start();
  const std::string large(100'000, 'x');
  this->receive("");
  this->receive(large);
  this->engine.waitFor(2);
  EXPECT_THAT(this->engine.data(), ElementsAre("", large));
}

TYPED_TEST(Delivery, LeavesTheBufferToWhoeverBringsIt) {
  this->start();
  this->engine.hold();
  std::string data = "first";
  this->receive(data);
  this->engine.waitFor(1);
  data = "later";
  this->receive(data);
  data = "xxxxx";
  this->engine.letGo();
  this->engine.waitFor(2);
  EXPECT_THAT(this->engine.data(), ElementsAre("first", "later"));
}

// Both are there before the thread is, so the one set event stands for both.
TYPED_TEST(Delivery, HandsABurstOnInItsOrderAfterOneWakeUp) {
  ASSERT_EQ(this->init(), LISTENER_INIT_OK);
  EXPECT_EQ(this->receive("one"), LISTENER_DATA_TAKEN);
  EXPECT_EQ(this->receive("two"), LISTENER_DATA_TAKEN);
  ASSERT_EQ(this->listener->startListen(), LISTENER_STARTED);
  this->engine.waitFor(2);
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_THAT(this->engine.data(), ElementsAre("one", "two"));
  EXPECT_EQ(this->console(),
            "recvData - inserting buffer to queue \n"
            "recvData - set data event \n"
            "recvData - inserting buffer to queue \n"
            "recvData - set data event \n"
            "listenerThreadFunc - data event received, extracting from queue \n"
            "listenerThreadFunc - data event received, processing data \n"
            "listenerThreadFunc - data event received, data processing finished \n"
            "listenerThreadFunc - data event received, processing data \n"
            "listenerThreadFunc - data event received, data processing finished \n"
            "listenerThreadFunc - stop wait event received - exiting listener thread \n"
            "stopListen - listener thread exited \n");
}

TYPED_TEST(Delivery, HandsOnWhatComesWhileTheEngineIsBusy) {
  this->start();
  this->engine.hold();
  this->receive("one");
  this->engine.waitFor(1);
  this->receive("two");
  this->receive("three");
  this->engine.letGo();
  this->engine.waitFor(3);
  EXPECT_THAT(this->engine.data(), ElementsAre("one", "two", "three"));
}

TYPED_TEST(Delivery, WakesAgainForEachBuffer) {
  this->start();
  for (std::size_t i = 1; i <= 100; ++i) {
    ASSERT_EQ(this->receive("data"), LISTENER_DATA_TAKEN);
    this->engine.waitFor(i);
  }
}

TYPED_TEST(Delivery, IsToldOnBothOutletsInOrder) {
  this->start();
  this->receive("data");
  this->engine.waitFor(1);
  this->listener->stopListen();
  EXPECT_EQ(this->console(),
            "recvData - inserting buffer to queue \n"
            "recvData - set data event \n"
            "listenerThreadFunc - data event received, extracting from queue \n"
            "listenerThreadFunc - data event received, processing data \n"
            "listenerThreadFunc - data event received, data processing finished \n"
            "listenerThreadFunc - stop wait event received - exiting listener thread \n"
            "stopListen - listener thread exited \n");
  EXPECT_EQ(this->log(),
            this->line("info", "startListen", "\n") + this->line("info", "recvData", "inserting buffer to queue \n") +
                this->line("info", "recvData", "set data event \n") +
                this->line("info", "listenerThreadFunc", "data event received, extracting from queue \n") +
                this->line("info", "listenerThreadFunc", "data event received, processing data \n") +
                this->line("info", "listenerThreadFunc", "data event received, data processing finished \n") +
                this->line("info", "listenerThreadFunc", "stop wait event received - exiting listener thread \n") +
                this->line("info", "stopListen", "listener thread exited \n"));
}

TYPED_TEST(Delivery, PrintsNothingWithTheConsoleOff) {
  this->listener->mLogToConsole = 0;
  this->start();
  this->receive("data");
  this->engine.waitFor(1);
  this->listener->stopListen();
  EXPECT_EQ(this->console(), "");
  EXPECT_EQ(this->handleText, "");
}

TYPED_TEST(Delivery, EndsWithAnEngineThatHasNoUseForIt) {
  this->start();
  this->engine.answer(0);
  this->receive("one");
  this->engine.waitFor(1);
  EXPECT_EQ(this->receive("two"), LISTENER_DATA_TAKEN);
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_THAT(this->engine.data(), ElementsAre("one"));
  EXPECT_THAT(this->leftInQueue(), ElementsAre("two"));
}

TYPED_TEST(Delivery, TellsThatTheEngineHadNoUseForIt) {
  this->start();
  this->engine.answer(0);
  this->receive("one");
  this->engine.waitFor(1);
  this->listener->stopListen();
  const std::string console = this->console();
  EXPECT_EQ(console,
            "recvData - inserting buffer to queue \n"
            "recvData - set data event \n"
            "listenerThreadFunc - data event received, extracting from queue \n"
            "listenerThreadFunc - data event received, processing data \n"
            "listenerThreadFunc - Listener Thread exited with code 0 - mProcessDataFunc() returned false. Handle= " +
                this->handleText +
                " \n"
                "stopListen - listener thread exited \n");
  const std::string error =
      this->line("error", "listenerThreadFunc",
                 "Listener Thread exited with code 0 - mProcessDataFunc() returned false. Handle= 0x");
  EXPECT_THAT(this->log(),
              HasSubstr(this->line("info", "listenerThreadFunc", "data event received, processing data \n") + error));
}

TYPED_TEST(Delivery, IsRefusedBeforeThereIsAListener) {
  EXPECT_EQ(this->receive("data"), LISTENER_DATA_NOT_TAKEN);
  EXPECT_EQ(this->console(),
            "recvData - inserting buffer to queue \n"
            "recvData - set data event \n"
            "problem setting mDataEvent\n");
  EXPECT_THAT(this->leftInQueue(), ElementsAre("data"));
}

TYPED_TEST(Delivery, IsRefusedAfterTheStop) {
  this->start();
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_EQ(this->receive("data"), LISTENER_DATA_NOT_TAKEN);
  EXPECT_THAT(this->console(), HasSubstr("problem setting mDataEvent\n"));
  EXPECT_THAT(this->engine.data(), SizeIs(0));
  EXPECT_THAT(this->leftInQueue(), ElementsAre("data"));
}

}  // namespace
}  // namespace kel::test
