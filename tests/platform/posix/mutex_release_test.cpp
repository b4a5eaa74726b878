// A mutex that is released while others wait for it.
#include <gmock/gmock.h>

#include "platform/background.h"

namespace kel::platform {
namespace {

using testing::Each;

// Handed over to the sleeper, which keeps it here, it could not be had.
TEST(MutexRelease, LeavesTheMutexFreeForWhoeverComesFirst) {
  const Owned mutex(createMutex(true));
  const Owned mayLeave(createEvent(false, false));
  int taken = 0;
  for (int i = 0; i < 10; ++i) {
    Waiters waiter(1, [&] {
      const std::uint32_t result = waitForOne(mutex, kLong);
      EXPECT_EQ(waitForOne(mayLeave, kLong), kWaitObject);
      EXPECT_TRUE(releaseMutex(mutex));
      return result;
    });
    EXPECT_TRUE(releaseMutex(mutex));
    if (waitForOne(mutex, 0) == kWaitObject) {
      ++taken;
      EXPECT_TRUE(releaseMutex(mutex));
    }
    setEvent(mayLeave);
    EXPECT_THAT(waiter.results(), Each(kWaitObject));
    ASSERT_EQ(waitForOne(mutex, kLong), kWaitObject);
  }
  EXPECT_GT(taken, 0);
  EXPECT_TRUE(releaseMutex(mutex));
}

}  // namespace
}  // namespace kel::platform
