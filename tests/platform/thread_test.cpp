// SPDX-License-Identifier: MIT
// Threads and their handles.
#include <array>
#include <chrono>
#include <utility>
#include <vector>

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

/// A thread that begins with a wait for these, tells the result, and then looks once more.
class WaitingThread {
 public:
  WaitingThread(std::vector<Handle> objects, std::uint32_t milliseconds)
      : mObjects(std::move(objects)),
        mMilliseconds(milliseconds),
        mThread(createWaitingThread(run, this, &mId, count(), mObjects.data(), mMilliseconds)) {}

  Handle handle() const { return mThread; }
  std::uint32_t result() {
    EXPECT_EQ(waitForOne(mThread, kLong), kWaitObject);
    return mResult;
  }
  /// Once it has told the result.
  std::uint32_t secondResult() const { return mSecondResult; }

 private:
  static std::uint32_t run(void* argument) {
    auto& self = *static_cast<WaitingThread*>(argument);
    self.mResult = waitForAny(self.count(), self.mObjects.data(), self.mMilliseconds);
    self.mSecondResult = waitForAny(self.count(), self.mObjects.data(), 0);
    return 0;
  }
  std::uint32_t count() const { return static_cast<std::uint32_t>(mObjects.size()); }

  const std::vector<Handle> mObjects;
  const std::uint32_t mMilliseconds;
  std::uint32_t mResult = kWaitFailed;
  std::uint32_t mSecondResult = kWaitFailed;
  std::uint32_t mId = 0;
  const Owned mThread;
};

class ThreadThatBeginsWithAWait : public testing::Test {
 protected:
  // Of these two threads one may serve those of the test, where a system keeps them.
  ThreadThatBeginsWithAWait() {
    const Background first([] {});
    const Background second([] {});
  }

  const Owned mFirst{createEvent(false, false)};
  const Owned mSecond{createEvent(false, false)};
};

TEST_F(ThreadThatBeginsWithAWait, HasTheResultOfTheEventThatEndedIt) {
  WaitingThread thread({mFirst, mSecond}, kLong);
  EXPECT_EQ(waitForOne(thread.handle(), kShort), kWaitTimeout);
  setEvent(mSecond);
  EXPECT_EQ(thread.result(), kWaitObject + 1);
  EXPECT_EQ(thread.secondResult(), kWaitTimeout);
}

TEST_F(ThreadThatBeginsWithAWait, WaitsForEverIfItIsToldSo) {
  WaitingThread thread({mFirst}, kInfinite);
  EXPECT_EQ(waitForOne(thread.handle(), 1200), kWaitTimeout);
  setEvent(mFirst);
  EXPECT_EQ(thread.result(), kWaitObject);
}

TEST_F(ThreadThatBeginsWithAWait, FindsWhatIsSetAlready) {
  setEvent(mSecond);
  EXPECT_EQ(WaitingThread({mFirst, mSecond}, kLong).result(), kWaitObject + 1);
}

TEST_F(ThreadThatBeginsWithAWait, IsToldOfItsTimeOutInTime) {
  const auto begin = std::chrono::steady_clock::now();
  WaitingThread shorter({mFirst}, kShort);
  WaitingThread longer({mFirst}, 1500);
  const Background later([] { sleepFor(5 * kShort); });
  const std::array<Handle, 3> threads{longer.handle(), later.handle(), shorter.handle()};
  EXPECT_EQ(waitForAny(3, threads.data(), kLong), kWaitObject + 2);
  EXPECT_EQ(shorter.result(), kWaitTimeout);
  EXPECT_EQ(longer.result(), kWaitTimeout);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500));
}

// A null handle is none on every system; the value of a closed one may be the thread's own.
TEST_F(ThreadThatBeginsWithAWait, IsToldOfANullHandle) {
  EXPECT_EQ(WaitingThread({mFirst, nullptr}, kLong).result(), kWaitFailed);
}

TEST_F(ThreadThatBeginsWithAWait, OwnsTheMutexThatItWaitedFor) {
  const Owned mutex(createMutex(false));
  EXPECT_EQ(WaitingThread({mFirst, mutex}, kLong).result(), kWaitObject + 1);
  EXPECT_EQ(waitForOne(mutex, 0), kWaitAbandoned);
  EXPECT_TRUE(releaseMutex(mutex));
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
