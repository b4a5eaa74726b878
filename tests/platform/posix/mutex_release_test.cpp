// SPDX-License-Identifier: MIT
// A mutex that is released while others wait for it.
#include <gmock/gmock.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>

#include "platform/background.h"

namespace kel::platform {
namespace {

using testing::Each;

/// Has this thread, and those that it starts, run on one processor.
void stayOnThisProcessor() {
  cpu_set_t processor;
  CPU_ZERO(&processor);
  CPU_SET(static_cast<std::size_t>(sched_getcpu()), &processor);
  ASSERT_EQ(sched_setaffinity(0, sizeof processor, &processor), 0);
}

void setPolicy(pid_t thread, int policy) {
  const sched_param none{};
  EXPECT_EQ(sched_setscheduler(thread, policy, &none), 0);
}

// Handed over to the sleeper, which is not let run and would keep it, it could not be had.
TEST(MutexRelease, LeavesTheMutexFreeForWhoeverComesFirst) {
  stayOnThisProcessor();
  const Owned mutex(createMutex(true));
  const Owned mayLeave(createEvent(false, false));
  int taken = 0;
  for (int i = 0; i < 10; ++i) {
    std::atomic<pid_t> thread = 0;
    Waiters waiter(1, [&] {
      thread = gettid();
      const std::uint32_t result = waitForOne(mutex, kLong);
      EXPECT_EQ(waitForOne(mayLeave, kLong), kWaitObject);
      EXPECT_TRUE(releaseMutex(mutex));
      return result;
    });
    setPolicy(thread, SCHED_IDLE);
    EXPECT_TRUE(releaseMutex(mutex));
    if (waitForOne(mutex, 0) == kWaitObject) {
      ++taken;
      EXPECT_TRUE(releaseMutex(mutex));
    }
    setPolicy(thread, SCHED_OTHER);
    setEvent(mayLeave);
    EXPECT_THAT(waiter.results(), Each(kWaitObject));
    ASSERT_EQ(waitForOne(mutex, kLong), kWaitObject);
  }
  EXPECT_GT(taken, 0);  // of ten times: another process may have run, and the waiter behind it
  EXPECT_TRUE(releaseMutex(mutex));
}

}  // namespace
}  // namespace kel::platform
