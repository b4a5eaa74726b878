// SPDX-License-Identifier: MIT
// What a listener does with a queue that fails.
#include "support/failing_queue.h"

#include <gtest/gtest.h>

#include "listeners/listener_test.h"

namespace kel::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

template <class Listener>
using ListenerOfFailingQueue = ListenerTest<Listener>;
TYPED_TEST_SUITE(ListenerOfFailingQueue, Listeners, ListenerName);

TYPED_TEST(ListenerOfFailingQueue, IsNotInitialisedAndKeepsItsEventsForTheShutdown) {
  {
    const FailingQueue failing(QueueCall::kInit);
    EXPECT_EQ(this->init(), LISTENER_INIT_FAILED);
  }
  EXPECT_EQ(this->console(), "init - could not init safe queue \n");
  EXPECT_TRUE(platform::setEvent(this->dataEvent));
  EXPECT_TRUE(platform::setEvent(this->stopWaitEvent));
  EXPECT_EQ(this->listener->shutdown(), LISTENER_SHUTDOWN_OK);
  EXPECT_FALSE(platform::setEvent(this->dataEvent));
  EXPECT_FALSE(platform::setEvent(this->stopWaitEvent));
}

TYPED_TEST(ListenerOfFailingQueue, KeepsTheCopyThatIsNotQueuedAndGoesOn) {
  this->start();
  std::uint8_t* kept = nullptr;
  {
    const FailingQueue failing(QueueCall::kInsert);
    EXPECT_EQ(this->receive("lost"), LISTENER_DATA_NOT_TAKEN);
    kept = failing.refused();
  }
  EXPECT_EQ(this->receive("taken"), LISTENER_DATA_TAKEN);
  this->engine.waitFor(1);
  EXPECT_THAT(this->engine.data(), ElementsAre("taken"));
  EXPECT_EQ(std::string(kept, kept + 4), "lost");
  std::free(kept);
  EXPECT_THAT(this->console(), StartsWith("recvData - inserting buffer to queue \n"
                                          "problem inserting to queue - 6\n"
                                          "recvData - inserting buffer to queue \n"));
  EXPECT_THAT(this->log(), HasSubstr(this->line("info", "recvData", "inserting buffer to queue \n") +
                                     this->line("error", "listenerThreadFunc", "problem inserting to queue - 6 \n") +
                                     this->line("info", "recvData", "inserting buffer to queue \n")));
}

TYPED_TEST(ListenerOfFailingQueue, EndsItsThreadIfNothingCanBeTaken) {
  this->start();
  const std::string ended =
      this->line("info", "listenerThreadFunc", "data event received, extracting from queue \n") +
      this->line("error", "listenerThreadFunc", "data event received, problem extracting from map \n");
  {
    const FailingQueue failing(QueueCall::kExtract);
    EXPECT_EQ(this->receive("one"), LISTENER_DATA_TAKEN);
    while (!this->log().ends_with(ended)) std::this_thread::yield();
  }
  EXPECT_EQ(this->receive("two"), LISTENER_DATA_TAKEN);
  EXPECT_EQ(this->listener->stopListen(), LISTENER_STOPPED);
  EXPECT_THAT(this->engine.data(), ElementsAre());
  EXPECT_THAT(this->leftInQueue(), ElementsAre("one", "two"));
  EXPECT_THAT(this->console(), HasSubstr("listenerThreadFunc - data event received, problem extracting from map \n"));
}

TYPED_TEST(ListenerOfFailingQueue, ClosesItsThreadAllTheSameAndTellsThatTheStopHadAProblem) {
  this->start();
  {
    const FailingQueue failing(QueueCall::kShutdown);
    EXPECT_EQ(this->listener->stopListen(), LISTENER_STOP_PROBLEM);
  }
  EXPECT_FALSE(platform::setEvent(this->dataEvent));
  EXPECT_EQ(this->listener->shutdown(), LISTENER_SHUTDOWN_OK);
  EXPECT_THAT(this->console(), EndsWith("shutdown - could not shutdown safe queue \n"
                                        "stopListen - problem on listener thread shutdown \n"));
  EXPECT_THAT(this->log(), EndsWith(this->line("error", "shutdown", "could not shutdown safe queue \n") +
                                    this->line("error", "stopListen", "problem on listener thread shutdown \n")));
}

}  // namespace
}  // namespace kel::test
