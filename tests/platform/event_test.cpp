// SPDX-License-Identifier: MIT
// Events: who gets through, and when.
#include <gmock/gmock.h>

#include <atomic>

#include "platform/background.h"
#include "support/process_resources.h"

namespace kel::platform {
namespace {

using testing::Each;

constexpr bool kAuto = false;
constexpr bool kManual = true;

TEST(Event, AnAutoResetEventLetsOneWaitThrough) {
  const Owned event(createEvent(kAuto, false));
  EXPECT_TRUE(setEvent(event));
  EXPECT_EQ(waitForOne(event, 0), kWaitObject);
  EXPECT_EQ(waitForOne(event, 0), kWaitTimeout);
}

TEST(Event, SettingASetEventChangesNothing) {
  const Owned event(createEvent(kAuto, false));
  EXPECT_TRUE(setEvent(event));
  EXPECT_TRUE(setEvent(event));
  EXPECT_EQ(waitForOne(event, 0), kWaitObject);
  EXPECT_EQ(waitForOne(event, 0), kWaitTimeout);
}

TEST(Event, AManualResetEventStaysSetUntilItIsReset) {
  const Owned event(createEvent(kManual, false));
  EXPECT_TRUE(setEvent(event));
  EXPECT_EQ(waitForOne(event, 0), kWaitObject);
  EXPECT_EQ(waitForOne(event, 0), kWaitObject);
  EXPECT_TRUE(resetEvent(event));
  EXPECT_EQ(waitForOne(event, 0), kWaitTimeout);
}

TEST(Event, AResetTakesBackWhatNobodyTook) {
  const Owned event(createEvent(kAuto, true));
  EXPECT_TRUE(resetEvent(event));
  EXPECT_EQ(waitForOne(event, 0), kWaitTimeout);
}

TEST(Event, AnEventMayBeCreatedSet) {
  EXPECT_EQ(waitForOne(Owned(createEvent(kAuto, true)), 0), kWaitObject);
  EXPECT_EQ(waitForOne(Owned(createEvent(kManual, true)), 0), kWaitObject);
}

TEST(Event, TwoSetsReleaseTwoWaiters) {
  const Owned event(createEvent(kAuto, false));
  Waiters waiters(2, [&] { return waitForOne(event, kLong); });
  setEvent(event);
  setEvent(event);
  EXPECT_THAT(waiters.results(), Each(kWaitObject));
  EXPECT_EQ(waitForOne(event, 0), kWaitTimeout);
}

TEST(Event, OneSetReleasesOneOfTwoWaiters) {
  const Owned event(createEvent(kAuto, false));
  const Owned done(createEvent(kAuto, false));
  Waiters waiters(2, [&] {
    const std::uint32_t result = waitForOne(event, kLong);
    setEvent(done);
    return result;
  });
  setEvent(event);
  EXPECT_EQ(waitForOne(done, kLong), kWaitObject);
  EXPECT_EQ(waitForOne(done, kShort), kWaitTimeout);
  setEvent(event);
  EXPECT_THAT(waiters.results(), Each(kWaitObject));
}

TEST(Event, AManualSetFollowedByAResetReleasesEverybodyWhoWaited) {
  const Owned event(createEvent(kManual, false));
  Waiters waiters(8, [&] { return waitForOne(event, kLong); });
  setEvent(event);
  resetEvent(event);
  EXPECT_THAT(waiters.results(), Each(kWaitObject));
}

TEST(Event, AnAutoSetFollowedByAResetReleasesTheOneWhoWaited) {
  const Owned event(createEvent(kAuto, false));
  Waiters waiters(1, [&] { return waitForOne(event, kLong); });
  setEvent(event);
  resetEvent(event);
  EXPECT_THAT(waiters.results(), Each(kWaitObject));
}

TEST(Event, WaitersAreServedInTheOrderOfTheirComing) {
  const Owned event(createEvent(kAuto, false));
  const Owned served(createEvent(kAuto, false));
  std::atomic<int> last = 0;
  std::vector<std::unique_ptr<Waiters>> queue;
  for (int place = 1; place <= 4; ++place) {
    queue.push_back(std::make_unique<Waiters>(1, [&, place] {
      const std::uint32_t result = waitForOne(event, kLong);
      last = place;
      setEvent(served);
      return result;
    }));
  }
  for (int place = 1; place <= 4; ++place) {
    setEvent(event);
    ASSERT_EQ(waitForOne(served, kLong), kWaitObject);
    EXPECT_EQ(last, place);
  }
}

// The waiter is free to close the event while its setter is still inside setEvent().
TEST(Event, TheWokenThreadMayCloseTheEventAtOnce) {
  constexpr int kTimes = 5000;
  const auto open = test::OpenHandles();
  {
    const Owned offered(createEvent(kAuto, false));
    std::atomic<Handle> event = nullptr;
    Background waiter([&] {
      for (int i = 0; i < kTimes; ++i) {
        const Handle mine = createEvent(i % 2 != 0, false);
        event = mine;
        setEvent(offered);
        ASSERT_EQ(waitForOne(mine, kLong), kWaitObject);
        ASSERT_TRUE(closeHandle(mine));
      }
    });
    for (int i = 0; i < kTimes; ++i) {
      ASSERT_EQ(waitForOne(offered, kLong), kWaitObject);
      ASSERT_TRUE(setEvent(event));
    }
  }
  EXPECT_EQ(test::OpenHandles(), open);
}

TEST(Event, ThousandsOfEventsLeaveNothingBehind) {
  const auto open = test::OpenHandles();
  for (int i = 0; i < 5000; ++i) {
    const Handle event = createEvent(kAuto, false);
    ASSERT_NE(event, nullptr);
    ASSERT_TRUE(closeHandle(event));
  }
  EXPECT_EQ(test::OpenHandles(), open);
}

}  // namespace
}  // namespace kel::platform
