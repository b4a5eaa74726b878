// SPDX-License-Identifier: MIT
// Mutexes: who owns them, and what becomes of one whose owner has ended.
#include <gmock/gmock.h>

#include <array>
#include <thread>

#include "platform/background.h"
#include "support/process_resources.h"

namespace kel::platform {
namespace {

using testing::Each;
using testing::Lt;

constexpr std::uint32_t kNotOwner = 288;

/// What another thread's wait of that length comes to. If it gets the mutex it gives it back.
std::uint32_t triedElsewhere(Handle mutex, std::uint32_t milliseconds = 0) {
  std::uint32_t result = kWaitFailed;
  std::thread([&] {
    result = waitForOne(mutex, milliseconds);
    if (result != kWaitTimeout) releaseMutex(mutex);
  }).join();
  return result;
}

TEST(Mutex, AWaitMakesItsThreadTheOwner) {
  const Owned mutex(createMutex(false));
  EXPECT_EQ(waitForOne(mutex, 0), kWaitObject);
  EXPECT_EQ(triedElsewhere(mutex), kWaitTimeout);
  EXPECT_TRUE(releaseMutex(mutex));
  EXPECT_EQ(triedElsewhere(mutex), kWaitObject);
}

TEST(Mutex, AMutexMayBeCreatedOwned) {
  const Owned mutex(createMutex(true));
  EXPECT_EQ(triedElsewhere(mutex), kWaitTimeout);
  EXPECT_TRUE(releaseMutex(mutex));
  EXPECT_EQ(triedElsewhere(mutex), kWaitObject);
}

TEST(Mutex, TheOwnerEntersAgainAndReleasesAsOften) {
  const Owned mutex(createMutex(true));
  EXPECT_EQ(waitForOne(mutex, 0), kWaitObject);
  EXPECT_EQ(waitForOne(mutex, kInfinite), kWaitObject);
  EXPECT_TRUE(releaseMutex(mutex));
  EXPECT_TRUE(releaseMutex(mutex));
  EXPECT_EQ(triedElsewhere(mutex), kWaitTimeout);
  EXPECT_TRUE(releaseMutex(mutex));
  EXPECT_EQ(triedElsewhere(mutex), kWaitObject);
}

TEST(Mutex, AnotherThreadCannotReleaseIt) {
  const Owned mutex(createMutex(true));
  std::thread([&] {
    EXPECT_FALSE(releaseMutex(mutex));
    EXPECT_EQ(lastError(), kNotOwner);
  }).join();
  EXPECT_TRUE(releaseMutex(mutex));
}

TEST(Mutex, AFreeMutexCannotBeReleased) {
  const Owned mutex(createMutex(false));
  EXPECT_FALSE(releaseMutex(mutex));
  EXPECT_EQ(lastError(), kNotOwner);
}

TEST(Mutex, EachWaiterBecomesTheOwnerInTheEnd) {
  const Owned mutex(createMutex(true));
  Waiters waiters(3, [&] {
    const std::uint32_t result = waitForOne(mutex, kLong);
    EXPECT_TRUE(releaseMutex(mutex));
    return result;
  });
  EXPECT_TRUE(releaseMutex(mutex));
  EXPECT_THAT(waiters.results(), Each(kWaitObject));
}

TEST(Mutex, AWaiterIsNotPassedOverForEver) {
  constexpr int kRounds = 500;
  const Owned mutex(createMutex(true));
  std::atomic<bool> served = false;
  Waiters waiter(1, [&] {
    const std::uint32_t result = waitForOne(mutex, kLong);
    served = true;
    EXPECT_TRUE(releaseMutex(mutex));
    return result;
  });
  int round = 0;
  while (!served && round < kRounds) {
    EXPECT_TRUE(releaseMutex(mutex));
    ASSERT_EQ(waitForOne(mutex, kLong), kWaitObject);
    sleepFor(5);  // long enough for the waiter to come, and to find the mutex taken
    ++round;
  }
  EXPECT_LT(round, kRounds);
  EXPECT_TRUE(releaseMutex(mutex));
  EXPECT_THAT(waiter.results(), Each(kWaitObject));
}

// The first waiter comes for the free mutex no sooner than it runs; if it has something else by then, the second must.
TEST(Mutex, AWaiterThatIsServedOtherwiseLeavesTheMutexToTheNext) {
  for (int i = 0; i < 5; ++i) {
    const Owned mutex(createMutex(true));
    const Owned event(createEvent(false, false));
    const std::array<Handle, 2> objects{event, mutex};
    Waiters waiters(2, [&] {
      const std::uint32_t result = waitForAny(2, objects.data(), kLong);
      if (result == kWaitObject + 1) {
        EXPECT_TRUE(releaseMutex(mutex));
      }
      return result;
    });
    EXPECT_TRUE(releaseMutex(mutex));
    setEvent(event);
    EXPECT_THAT(waiters.results(), Each(Lt(2U)));
  }
}

TEST(Mutex, TheEndOfItsOwnerIsReportedOnceToTheNext) {
  const Owned mutex(createMutex(false));
  Background([&] {
    EXPECT_EQ(waitForOne(mutex, 0), kWaitObject);
    EXPECT_EQ(waitForOne(mutex, 0), kWaitObject);
  }).join();
  EXPECT_EQ(waitForOne(mutex, 0), kWaitAbandoned);
  EXPECT_EQ(waitForOne(mutex, 0), kWaitObject);
  EXPECT_TRUE(releaseMutex(mutex));
  EXPECT_TRUE(releaseMutex(mutex));
  EXPECT_FALSE(releaseMutex(mutex));
  EXPECT_EQ(waitForOne(mutex, 0), kWaitObject);
  EXPECT_TRUE(releaseMutex(mutex));
}

TEST(Mutex, TheEndOfAForeignThreadIsReportedToo) {
  const Owned mutex(createMutex(false));
  std::thread([&] { EXPECT_EQ(waitForOne(mutex, 0), kWaitObject); }).join();
  EXPECT_EQ(waitForOne(mutex, kLong), kWaitAbandoned);
  EXPECT_TRUE(releaseMutex(mutex));
}

TEST(Mutex, TheEndOfItsOwnerReleasesWhoWaits) {
  const Owned mutex(createMutex(false));
  const Owned stay(createEvent(false, false));
  std::atomic<bool> owned = false;
  std::thread owner([&] {
    owned = waitForOne(mutex, 0) == kWaitObject;
    waitForOne(stay, kLong);
  });
  while (!owned) sleepFor(1);
  const Owned event(createEvent(false, false));
  const std::array<Handle, 2> objects{event, mutex};
  Waiters waiters(1, [&] {
    const std::uint32_t result = waitForAny(2, objects.data(), kLong);
    EXPECT_TRUE(releaseMutex(mutex));
    return result;
  });
  setEvent(stay);
  owner.join();
  EXPECT_THAT(waiters.results(), Each(kWaitAbandoned + 1));
}

TEST(Mutex, AThreadThatOwnsSeveralAbandonsThemAll) {
  const Owned first(createMutex(false));
  const Owned second(createMutex(false));
  const Owned third(createMutex(false));
  std::thread([&] {
    for (const Handle mutex : {Handle(first), Handle(second), Handle(third)}) waitForOne(mutex, 0);
    EXPECT_TRUE(releaseMutex(second));
  }).join();
  EXPECT_EQ(waitForOne(first, kLong), kWaitAbandoned);
  EXPECT_EQ(waitForOne(second, kLong), kWaitObject);
  EXPECT_EQ(waitForOne(third, kLong), kWaitAbandoned);
}

TEST(Mutex, AMutexClosedWhileOwnedLeavesNothingBehind) {
  const auto open = test::OpenHandles();
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(closeHandle(createMutex(true)));
  EXPECT_EQ(test::OpenHandles(), open);
}

TEST(Mutex, AWaitForATakenMutexTimesOut) {
  const Owned mutex(createMutex(true));
  EXPECT_EQ(triedElsewhere(mutex, kShort), kWaitTimeout);
  EXPECT_TRUE(releaseMutex(mutex));
  EXPECT_EQ(triedElsewhere(mutex), kWaitObject);
}

}  // namespace
}  // namespace kel::platform
