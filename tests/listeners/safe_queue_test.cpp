// SPDX-License-Identifier: MIT
// The queue between a receiving thread and a listener's.
#include "listeners/SafeQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <thread>
#include <vector>

#include "support/failing_heap.h"
#include "support/left_thread.h"

namespace kel::test {
namespace {

/// The outputs hold something, so that a test sees them set.
struct Extracted {
  explicit Extracted(SafeQueue& queue) : result(queue.extract(&buffer, &size)) {}

  std::uint8_t* buffer = reinterpret_cast<std::uint8_t*>(this);
  std::uint32_t size = 999;
  QueueResult result;
};

TEST(SafeQueue, GivesNothingWhenItIsEmpty) {
  SafeQueue queue;
  const Extracted extracted(queue);
  EXPECT_EQ(extracted.result, 7u);
  EXPECT_EQ(extracted.buffer, nullptr);
  EXPECT_EQ(extracted.size, 0u);
}

TEST(SafeQueue, GivesBuffersInTheOrderOfTheirInsertion) {
  SafeQueue queue;
  std::uint8_t data[3] = {};
  for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(queue.insert(&data[i], i + 10), 5u);
  for (std::uint32_t i = 0; i < 3; ++i) {
    const Extracted extracted(queue);
    EXPECT_EQ(extracted.result, 8u);
    EXPECT_EQ(extracted.buffer, &data[i]);
    EXPECT_EQ(extracted.size, i + 10);
  }
  EXPECT_EQ(Extracted(queue).result, 7u);
}

TEST(SafeQueue, TakesANullBufferLikeAnyOther) {
  SafeQueue queue;
  EXPECT_EQ(queue.insert(nullptr, 0), 5u);
  const Extracted extracted(queue);
  EXPECT_EQ(extracted.result, 8u);
  EXPECT_EQ(extracted.buffer, nullptr);
  EXPECT_EQ(extracted.size, 0u);
  EXPECT_EQ(Extracted(queue).result, 7u);
}

// It changes its store more than once on the way.
TEST(SafeQueue, KeepsTheOrderHoweverManyAreTakenInBetween) {
  SafeQueue queue;
  std::uint32_t inserted = 0, taken = 0;
  for (const std::uint32_t count : {1u, 3u, 4u, 5u, 2u, 40u, 100u, 1u, 6u, 4u}) {
    for (std::uint32_t i = 0; i < count; ++i) queue.insert(nullptr, inserted++);
    for (std::uint32_t i = 0; i < (count + 1) / 2; ++i) ASSERT_EQ(Extracted(queue).size, taken++);
  }
  while (taken < inserted) ASSERT_EQ(Extracted(queue).size, taken++);
  EXPECT_EQ(Extracted(queue).result, QUEUE_EMPTY);
}

TEST(SafeQueue, NeedsNoMemoryForAFewBuffersAtATime) {
  const FailingHeap heap(0);
  SafeQueue queue;
  for (std::uint32_t i = 0; i < 100; i += 2) {
    queue.insert(nullptr, i);
    queue.insert(nullptr, i + 1);
    EXPECT_EQ(Extracted(queue).size, i);
    EXPECT_EQ(Extracted(queue).size, i + 1);
  }
  EXPECT_FALSE(heap.failed());
}

TEST(SafeQueue, LeavesWhatNobodyTookAsKeptBlocksSay) {
  for (const bool released : {false, true}) {
    KeptBlocks keptBlocks;
    keptBlocks.setReleased(released);
    SafeQueue queue;
    std::vector<std::uint8_t*> blocks;
    for (int i = 0; i < 50; ++i) {
      blocks.push_back(static_cast<std::uint8_t*>(std::malloc(1)));
      queue.insert(blocks.back(), 1);
    }
    queue.leave(keptBlocks);
    EXPECT_EQ(Extracted(queue).result, QUEUE_EMPTY);
    for (std::uint8_t* block : blocks) {
      if (!released) std::free(block);
    }
  }
}

TEST(SafeQueue, HasNoLimit) {
  SafeQueue queue;
  constexpr std::uint32_t kMany = 100'000;
  for (std::uint32_t i = 0; i < kMany; ++i) ASSERT_EQ(queue.insert(nullptr, i), 5u);
  for (std::uint32_t i = 0; i < kMany; ++i) ASSERT_EQ(Extracted(queue).size, i);
}

TEST(SafeQueue, MayBeInitialisedAndShutDownRepeatedly) {
  SafeQueue queue;
  EXPECT_EQ(queue.init(), 1u);
  EXPECT_EQ(queue.insert(nullptr, 1), 5u);
  EXPECT_EQ(queue.init(), 1u);
  EXPECT_EQ(Extracted(queue).size, 1u);
  EXPECT_EQ(queue.shutdown(), 3u);
  EXPECT_EQ(queue.shutdown(), 3u);
}

TEST(SafeQueue, KeepsItsBuffersThroughAShutdown) {
  SafeQueue queue;
  std::uint8_t data = 0;
  queue.insert(&data, 1);
  queue.shutdown();
  queue.init();
  EXPECT_EQ(Extracted(queue).buffer, &data);
}

TEST(SafeQueue, PassesEachBufferOfManyThreadsOnceAndInTheirOrder) {
  SafeQueue queue;
  constexpr std::uint32_t kInserters = 3, kEach = 2000;
  std::vector<std::thread> threads;
  for (std::uint32_t inserter = 0; inserter < kInserters; ++inserter) {
    threads.emplace_back([&, inserter] {
      for (std::uint32_t i = 0; i < kEach; ++i) queue.insert(nullptr, inserter * kEach + i);
    });
  }
  std::vector<std::uint32_t> taken[2];
  std::atomic<std::uint32_t> count{0};
  for (auto& own : taken) {
    threads.emplace_back([&] {
      while (count < kInserters * kEach) {
        const Extracted extracted(queue);
        if (extracted.result != QUEUE_EXTRACT_OK) continue;
        own.push_back(extracted.size);
        ++count;
      }
    });
  }
  for (auto& thread : threads) thread.join();

  std::vector<bool> seen(kInserters * kEach);
  for (const auto& own : taken) {
    std::uint32_t next[kInserters] = {};
    for (const std::uint32_t number : own) {
      EXPECT_FALSE(seen[number]);
      seen[number] = true;
      EXPECT_GE(number % kEach + 1, next[number / kEach] + 1);
      next[number / kEach] = number % kEach + 1;
    }
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), true), kInserters * kEach);
}

// A pipe library that is not waited for may deliver while a listener stops and another starts.
TEST(SafeQueue, LosesAndDoublesNothingWhileItIsShutDownAndInitialisedAgain) {
  SafeQueue queue;
  constexpr std::uint32_t kInserters = 3, kEach = 5000;
  std::atomic<bool> done{false};
  std::thread owner([&] {
    while (!done) {
      queue.shutdown();
      queue.init();
    }
  });
  std::vector<std::thread> inserters;
  for (std::uint32_t inserter = 0; inserter < kInserters; ++inserter) {
    inserters.emplace_back([&, inserter] {
      for (std::uint32_t i = 0; i < kEach; ++i) queue.insert(nullptr, inserter * kEach + i);
    });
  }
  std::vector<std::uint32_t> taken;
  while (taken.size() < kInserters * kEach) {
    const Extracted extracted(queue);
    if (extracted.result == QUEUE_EXTRACT_OK) taken.push_back(extracted.size);
  }
  for (std::thread& inserter : inserters) inserter.join();
  done = true;
  owner.join();

  std::sort(taken.begin(), taken.end());
  for (std::uint32_t i = 0; i < taken.size(); ++i) ASSERT_EQ(taken[i], i);
  EXPECT_EQ(Extracted(queue).result, QUEUE_EMPTY);
}

// The queue and the thread that it holds up stay behind, for nothing can let the lock go.
TEST(SafeQueue, KeepsItsLockWhenItCannotGrow) {
  static SafeQueue& queue = *new SafeQueue;
  bool thrown = false;
  for (int i = 0; i < 1000 && !thrown; ++i) {
    const FailingHeap heap(0);
    try {
      queue.insert(nullptr, 0);
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
  }
  ASSERT_TRUE(thrown);

  static const platform::Handle begun = platform::createEvent(false, false);
  static const platform::Handle ended = platform::createEvent(false, false);
  LeaveToItself([] {
    platform::setEvent(begun);
    queue.insert(nullptr, 0);
    platform::setEvent(ended);
  });
  platform::waitForOne(begun, platform::kInfinite);
  EXPECT_EQ(platform::waitForOne(ended, 100), platform::kWaitTimeout);
  // The thread that has it goes through.
  EXPECT_EQ(Extracted(queue).result, 8u);
}

}  // namespace
}  // namespace kel::test
