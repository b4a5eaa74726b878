// Threads and their handles.
#include "platform/background.h"
#include "support/process_resources.h"

namespace kel::platform {
namespace {

TEST(Thread, ItRunsItsFunctionWithItsArgument) {
  int argument = 0;
  std::uint32_t id = 0;
  const ThreadFunction function = [](void* number) -> std::uint32_t {
    *static_cast<int*>(number) = 7;
    return 3;
  };
  const Owned thread(createThread(function, &argument, &id));
  EXPECT_EQ(waitForOne(thread, kLong), kWaitObject);
  EXPECT_EQ(argument, 7);
  EXPECT_NE(id, 0U);
}

TEST(Thread, ItsHandleIsSignalledFromItsEndOn) {
  const Owned stay(createEvent(false, false));
  Background thread([&] { waitForOne(stay, kLong); });
  EXPECT_EQ(waitForOne(thread.handle(), 0), kWaitTimeout);
  setEvent(stay);
  EXPECT_EQ(waitForOne(thread.handle(), kLong), kWaitObject);
  EXPECT_EQ(waitForOne(thread.handle(), 0), kWaitObject);
}

TEST(Thread, RunningThreadsHaveNumbersOfTheirOwn) {
  const Owned stay(createEvent(true, false));
  const Background first([&] { waitForOne(stay, kLong); });
  const Background second([&] { waitForOne(stay, kLong); });
  EXPECT_NE(first.id(), second.id());
  setEvent(stay);
}

TEST(Thread, WhatItOwnedIsFreeWhenItsHandleIsSignalled) {
  const Owned mutex(createMutex(false));
  for (int i = 0; i < 100; ++i) {
    Background thread([&] { waitForOne(mutex, 0); });
    thread.join();
    ASSERT_EQ(waitForOne(mutex, 0), kWaitAbandoned);
    ASSERT_TRUE(releaseMutex(mutex));
  }
}

TEST(Thread, ItsPriorityMayBeRaisedByAnyUser) {
  const Owned stay(createEvent(false, false));
  const Background thread([&] { waitForOne(stay, kLong); });
  EXPECT_TRUE(setThreadPriority(thread.handle(), kPriorityHighest));
  setEvent(stay);
}

TEST(Thread, ItRunsOnWhenItsHandleIsClosed) {
  const Owned stay(createEvent(false, false));
  const Owned done(createEvent(false, false));
  struct Events {
    Handle stay;
    Handle done;
  } events{stay, done};
  std::uint32_t id = 0;
  const ThreadFunction function = [](void* argument) -> std::uint32_t {
    const auto& [stay_, done_] = *static_cast<Events*>(argument);
    waitForOne(stay_, kLong);
    setEvent(done_);
    return 0;
  };
  const Handle thread = createThread(function, &events, &id);
  EXPECT_TRUE(closeHandle(thread));
  EXPECT_EQ(waitForOne(thread, 0), kWaitFailed);
  setEvent(stay);
  EXPECT_EQ(waitForOne(done, kLong), kWaitObject);
}

TEST(Thread, HundredsOfThreadsLeaveNothingBehind) {
  // Once before counting: a first thread may make a system open things of its own.
  {
    const Background warmUp([] {});
  }
  const auto open = test::OpenHandles();
  for (int i = 0; i < 300; ++i) {
    const Background thread([] {});
  }
  EXPECT_EQ(test::OpenHandles(), open);
}

}  // namespace
}  // namespace kel::platform
