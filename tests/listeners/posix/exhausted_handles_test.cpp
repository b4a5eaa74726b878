// SPDX-License-Identifier: MIT
// What a listener does when the system has no event or thread left.
#include <gtest/gtest.h>

#include "listeners/listener_test.h"
#include "platform/posix/kernel_objects.h"
#include "support/posix/exhausted_handles.h"

namespace kel::test {
namespace {

template <class Listener>
using StarvedListener = ListenerTest<Listener>;
TYPED_TEST_SUITE(StarvedListener, Listeners, ListenerName);

TYPED_TEST(StarvedListener, HasNoDataEvent) {
  this->dataEvent = this->stopWaitEvent = this->generalStopEvent;
  const ExhaustedHandles handles(0);
  EXPECT_EQ(this->init(), LISTENER_INIT_FAILED);
  EXPECT_EQ(this->dataEvent, nullptr);
  EXPECT_EQ(this->stopWaitEvent, nullptr);
  EXPECT_EQ(this->console(), "init - could not create mDataEvent \n");
  EXPECT_EQ(this->log(), "");
}

TYPED_TEST(StarvedListener, KeepsItsFirstEventForTheShutdown) {
  const ExhaustedHandles handles(1);
  const std::size_t before = platform::posix::openHandles();
  EXPECT_EQ(this->init(), LISTENER_INIT_FAILED);
  EXPECT_EQ(this->dataEvent, nullptr);
  EXPECT_EQ(this->stopWaitEvent, nullptr);
  EXPECT_EQ(platform::posix::openHandles(), before + 1);
  EXPECT_EQ(this->console(), "init - could not create mStopWaitEvent \n");
  EXPECT_EQ(this->listener->shutdown(), LISTENER_SHUTDOWN_OK);
  EXPECT_EQ(platform::posix::openHandles(), before);
}

TYPED_TEST(StarvedListener, DoesNotStartWithoutAThread) {
  ASSERT_EQ(this->init(), LISTENER_INIT_OK);
  const ExhaustedHandles handles(0);
  EXPECT_EQ(this->listener->startListen(), LISTENER_NOT_STARTED);
  EXPECT_EQ(this->console(), "Listener Thread creation failed.\n");
  EXPECT_EQ(this->log(), "");
}

}  // namespace
}  // namespace kel::test
