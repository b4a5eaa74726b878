// SPDX-License-Identifier: MIT
// Waits: order, time-outs, and handles that are not what they should be.
#include <gmock/gmock.h>

#include <array>
#include <chrono>

#include "platform/background.h"

namespace kel::platform {
namespace {

using testing::Each;

constexpr std::uint32_t kInvalidHandle = 6;

template <typename Call>
std::chrono::milliseconds timeOf(Call call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

class WaitForAny : public testing::Test {
 protected:
  const Owned mFirst{createEvent(false, false)};
  const Owned mSecond{createEvent(false, false)};
  const Owned mThird{createEvent(false, false)};
  const std::array<Handle, 3> mAll{mFirst, mSecond, mThird};
};

TEST_F(WaitForAny, TheLowestSignalledIndexWinsAndIsTheOnlyOneTaken) {
  setEvent(mThird);
  setEvent(mSecond);
  EXPECT_EQ(waitForAny(3, mAll.data(), 0), kWaitObject + 1);
  EXPECT_EQ(waitForAny(3, mAll.data(), 0), kWaitObject + 2);
  EXPECT_EQ(waitForAny(3, mAll.data(), 0), kWaitTimeout);
}

TEST_F(WaitForAny, ItReportsWhichObjectEndedIt) {
  Waiters waiters(1, [&] { return waitForAny(3, mAll.data(), kLong); });
  setEvent(mThird);
  EXPECT_THAT(waiters.results(), Each(kWaitObject + 2));
}

TEST_F(WaitForAny, AReleasedWaiterWaitsForNoneOfItsObjectsAnyMore) {
  Waiters waiters(1, [&] { return waitForAny(3, mAll.data(), kLong); });
  setEvent(mSecond);
  setEvent(mFirst);
  EXPECT_THAT(waiters.results(), Each(kWaitObject + 1));
  EXPECT_EQ(waitForOne(mFirst, 0), kWaitObject);
}

TEST_F(WaitForAny, ATimedOutWaiterWaitsForNoneOfItsObjectsAnyMore) {
  EXPECT_EQ(waitForAny(3, mAll.data(), 1), kWaitTimeout);
  setEvent(mFirst);
  EXPECT_EQ(waitForOne(mFirst, 0), kWaitObject);
}

TEST_F(WaitForAny, AnObjectMayBeNamedTwice) {
  const std::array<Handle, 2> twice{mFirst, mFirst};
  Waiters waiters(1, [&] { return waitForAny(2, twice.data(), kLong); });
  setEvent(mFirst);
  EXPECT_THAT(waiters.results(), Each(kWaitObject));
  EXPECT_EQ(waitForOne(mFirst, 0), kWaitTimeout);
}

TEST_F(WaitForAny, ItTakesSixtyFourObjectsAndNoMore) {
  std::array<Handle, kMostWaited + 1> many;
  many.fill(mFirst);
  many[kMostWaited - 1] = mSecond;
  setEvent(mSecond);
  EXPECT_EQ(waitForAny(kMostWaited, many.data(), 0), kWaitObject + kMostWaited - 1);
  setEvent(mSecond);
  EXPECT_EQ(waitForAny(kMostWaited + 1, many.data(), 0), kWaitFailed);
  EXPECT_EQ(waitForAny(0, many.data(), 0), kWaitFailed);
}

TEST_F(WaitForAny, OneStaleHandleFailsTheWholeWaitAndNothingIsTaken) {
  const Handle stale = createEvent(false, true);
  closeHandle(stale);
  const std::array<Handle, 2> objects{mFirst, stale};
  setEvent(mFirst);
  EXPECT_EQ(waitForAny(2, objects.data(), 0), kWaitFailed);
  EXPECT_EQ(lastError(), kInvalidHandle);
  EXPECT_EQ(waitForOne(mFirst, 0), kWaitObject);
}

// The wait holds on to the object, so the close does not disturb it; the object alone can no longer be set.
TEST_F(WaitForAny, ClosingAHandleDoesNotEndTheWaitForIt) {
  const Handle closed = createEvent(false, false);
  const std::array<Handle, 2> objects{closed, mFirst};
  Waiters waiters(1, [&] { return waitForAny(2, objects.data(), kLong); });
  EXPECT_TRUE(closeHandle(closed));
  EXPECT_FALSE(setEvent(closed));
  setEvent(mFirst);
  EXPECT_THAT(waiters.results(), Each(kWaitObject + 1));
}

TEST(Wait, ATimeOutComesNoEarlierThanAsked) {
  const Owned event(createEvent(false, false));
  constexpr std::chrono::milliseconds kTick{16};  // of the coarsest clock that a system waits by
  EXPECT_GE(timeOf([&] { EXPECT_EQ(waitForOne(event, 100), kWaitTimeout); }), std::chrono::milliseconds(100) - kTick);
  EXPECT_GE(timeOf([] { sleepFor(100); }), std::chrono::milliseconds(100) - kTick);
}

TEST(Wait, AWaitWithoutALimitEndsWithTheSignal) {
  const Owned event(createEvent(false, false));
  Waiters waiters(1, [&] { return waitForOne(event, kInfinite); });
  setEvent(event);
  EXPECT_THAT(waiters.results(), Each(kWaitObject));
}

// The setter aims at the moment of the time-out, and goes on only when its signal has arrived: a lost one stops it.
TEST(Wait, ASignalThatRacesATimeOutIsNeverLost) {
  using Clock = std::chrono::steady_clock;
  constexpr int kTimes = 2000;
  const Owned event(createEvent(false, false));
  const Owned answer(createEvent(false, false));
  Background waiter([&] {
    for (int i = 0; i < kTimes; ++i) {
      if (waitForOne(event, 1) == kWaitTimeout) {
        ASSERT_EQ(waitForOne(event, kLong), kWaitObject);
      }
      setEvent(answer);
    }
  });
  for (int i = 0; i < kTimes; ++i) {
    const Clock::time_point aim = Clock::now() + std::chrono::microseconds(950 + i % 200);
    while (Clock::now() < aim) sleepFor(0);
    setEvent(event);
    ASSERT_EQ(waitForOne(answer, kLong), kWaitObject);
  }
}

// Stale here means closed a moment ago with nothing opened since: systems may give the same value out again.
class NoHandle : public testing::TestWithParam<bool> {
 protected:
  NoHandle() {
    if (!GetParam()) return;
    mHandle = createEvent(true, true);
    closeHandle(mHandle);
  }
  Handle mHandle = nullptr;
};

TEST_P(NoHandle, EveryOperationFailsCleanly) {
  EXPECT_FALSE(setEvent(mHandle));
  EXPECT_EQ(lastError(), kInvalidHandle);
  EXPECT_FALSE(resetEvent(mHandle));
  EXPECT_EQ(lastError(), kInvalidHandle);
  EXPECT_FALSE(releaseMutex(mHandle));
  EXPECT_EQ(lastError(), kInvalidHandle);
  EXPECT_FALSE(setThreadPriority(mHandle, kPriorityHighest));
  EXPECT_EQ(lastError(), kInvalidHandle);
  EXPECT_EQ(waitForOne(mHandle, kInfinite), kWaitFailed);
  EXPECT_EQ(lastError(), kInvalidHandle);
  EXPECT_EQ(waitForAny(1, &mHandle, 0), kWaitFailed);
  EXPECT_EQ(lastError(), kInvalidHandle);
  EXPECT_FALSE(closeHandle(mHandle));
  EXPECT_EQ(lastError(), kInvalidHandle);
}

INSTANTIATE_TEST_SUITE_P(Handles, NoHandle, testing::Bool(),
                         [](const auto& test) { return test.param ? "Stale" : "Null"; });

TEST(Wait, AnObjectOfAnotherKindIsRefused) {
  const Owned event(createEvent(false, false));
  const Owned mutex(createMutex(false));
  EXPECT_FALSE(setEvent(mutex));
  EXPECT_FALSE(resetEvent(mutex));
  EXPECT_FALSE(releaseMutex(event));
  EXPECT_FALSE(setThreadPriority(event, kPriorityHighest));
  EXPECT_EQ(lastError(), kInvalidHandle);
}

}  // namespace
}  // namespace kel::platform
