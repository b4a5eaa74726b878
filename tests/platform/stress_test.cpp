// SPDX-License-Identifier: MIT
// Random use of all kinds of objects by many threads at once. What is tested are the promises that hold in any order;
// the seed is printed, and KEL_TEST_SEED repeats it.
#include <array>
#include <cstdlib>
#include <random>
#include <thread>

#include "platform/background.h"
#include "support/process_resources.h"

namespace kel::platform {
namespace {

class Stress : public testing::Test {
 protected:
  static constexpr unsigned kThreads = 6;
  static constexpr int kSteps = 1500;
  using Random = std::mt19937;

  Stress() { std::printf("KEL_TEST_SEED=%u\n", mSeed); }

  template <typename Step>
  void onAllThreads(Step step) const {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i) {
      threads.emplace_back([=, this] {
        Random random(mSeed + i);
        for (int n = 0; n < kSteps; ++n) step(random);
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

  static std::uint32_t below(std::uint32_t limit, Random& random) {
    return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random);
  }

 private:
  static unsigned chosenSeed() {
    const char* const given = std::getenv("KEL_TEST_SEED");
    return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
  }

  const unsigned mSeed = chosenSeed();
};

TEST_F(Stress, AMutexHasOneOwnerWhateverHappensToTheOthers) {
  const Owned mutex(createMutex(false));
  int inside = 0;  // guarded by the mutex alone
  std::atomic<int> abandonments = 0;
  std::atomic<int> reports = 0;
  const auto enter = [&](std::uint32_t milliseconds) {
    const std::uint32_t result = waitForOne(mutex, milliseconds);
    if (result == kWaitTimeout) return false;
    if (result == kWaitAbandoned) ++reports;
    EXPECT_EQ(inside++, 0);
    return true;
  };
  onAllThreads([&](Random& random) {
    if (below(100, random) == 0) {
      std::thread([&] {
        if (!enter(kLong)) return;
        ++abandonments;
        --inside;
      }).join();
    } else if (enter(below(2, random))) {
      const std::uint32_t again = below(3, random);
      for (std::uint32_t i = 0; i < again; ++i) EXPECT_EQ(waitForOne(mutex, 0), kWaitObject);
      --inside;
      for (std::uint32_t i = 0; i < again + 1; ++i) EXPECT_TRUE(releaseMutex(mutex));
    }
  });
  if (waitForOne(mutex, kLong) == kWaitAbandoned) ++reports;
  EXPECT_EQ(reports, abandonments);
}

// A thread sets an event only while it holds the event's one token, and gets a token only by a wait.
TEST_F(Stress, EachSetOfAnAutoResetEventIsTakenByExactlyOneWait) {
  constexpr std::size_t kEvents = 4;
  std::array<Handle, kEvents> events;
  std::array<std::atomic<int>, kEvents> holders{};
  for (Handle& event : events) event = createEvent(false, true);
  onAllThreads([&](Random& random) {
    const std::uint32_t first = below(kEvents, random);
    const std::uint32_t count = 1 + below(static_cast<std::uint32_t>(kEvents) - first, random);
    const std::uint32_t result = waitForAny(count, &events[first], below(3, random));
    if (result == kWaitTimeout) return;
    ASSERT_LT(result, count);
    const std::uint32_t taken = first + result;
    EXPECT_EQ(holders[taken]++, 0);
    if (below(4, random) == 0) std::this_thread::yield();
    --holders[taken];
    EXPECT_TRUE(setEvent(events[taken]));
  });
  for (const Handle event : events) {
    EXPECT_EQ(waitForOne(event, 0), kWaitObject);
    EXPECT_EQ(waitForOne(event, 0), kWaitTimeout);
    closeHandle(event);
  }
}

TEST_F(Stress, ObjectsThatComeAndGoLeaveNothingBehind) {
  {
    const Background warmUp([] {});
  }
  const auto open = test::OpenHandles();
  onAllThreads([](Random& random) {
    const Owned event(createEvent(below(2, random) == 0, below(2, random) == 0));
    const Owned mutex(createMutex(below(2, random) == 0));
    const std::array<Handle, 2> objects{event, mutex};
    if (below(20, random) == 0) {
      const Background setter([&] { EXPECT_TRUE(setEvent(event)); });
      EXPECT_LT(waitForAny(2, objects.data(), kLong), 2U);
    } else {
      EXPECT_LT(waitForAny(2, objects.data(), 0), 2U);
    }
  });
  EXPECT_EQ(test::OpenHandles(), open);
}

}  // namespace
}  // namespace kel::platform
