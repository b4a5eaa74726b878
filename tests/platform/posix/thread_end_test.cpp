// SPDX-License-Identifier: MIT
// A thread's first use of the library, and its end.
#include <pthread.h>
#include <sys/resource.h>

#include <cstdlib>
#include <thread>

#include "platform/background.h"
#include "platform/posix/kernel_objects.h"
#include "support/heap_of_sanitizer.h"

namespace kel::platform {
namespace {

TEST(ThreadEnd, AThreadThatLeavesByTheSystemsOwnCallIsSignalledAsWell) {
  const Owned mutex(createMutex(false));
  Background thread([&] {
    waitForOne(mutex, 0);
    pthread_exit(nullptr);
  });
  thread.join();
  EXPECT_EQ(waitForOne(mutex, 0), kWaitAbandoned);
}

TEST(ThreadEnd, AMutexThatIsTakenInAScopeIsGivenUpAsWell) {
  const Owned mutex(createMutex(false));
  std::thread([&] {
    const MutexScope outer;
    const MutexScope inner;
    waitForOne(mutex, 0);
    releaseMutex(mutex);
    waitForOne(mutex, 0);
  }).join();
  EXPECT_EQ(waitForOne(mutex, 0), kWaitAbandoned);
}

TEST(ThreadEnd, IsWatchedToTheEndOfAScopeAndNoLonger) {
  const Owned mutex(createMutex(false));
  {
    const MutexScope scope;
    EXPECT_FALSE(posix::currentThread().isWatched);
    waitForOne(mutex, 0);
    releaseMutex(mutex);
    EXPECT_TRUE(posix::currentThread().isWatched);
  }
  EXPECT_FALSE(posix::currentThread().isWatched);
}

TEST(ThreadEnd, AMutexThatIsTakenBehindAScopeIsGivenUpAsWell) {
  const Owned mutex(createMutex(false));
  std::thread([&] {
    {
      const MutexScope scope;
      waitForOne(mutex, 0);
      releaseMutex(mutex);
    }
    waitForOne(mutex, 0);
  }).join();
  EXPECT_EQ(waitForOne(mutex, 0), kWaitAbandoned);
}

/// All memory that this thread can still have, block by block, the smallest last.
class AllMemory {
 public:
  AllMemory() {
    getrlimit(RLIMIT_AS, &mBefore);
    const rlimit none{.rlim_cur = 1, .rlim_max = mBefore.rlim_max};
    setrlimit(RLIMIT_AS, &none);
    for (std::size_t size = std::size_t{1} << 20; size >= sizeof(Block); size /= 2) {
      while (void* const block = std::malloc(size)) mBlocks = new (block) Block{mBlocks};
    }
  }
  ~AllMemory() {
    setrlimit(RLIMIT_AS, &mBefore);
    while (Block* const block = mBlocks) {
      mBlocks = block->next;
      std::free(block);
    }
  }
  AllMemory(const AllMemory&) = delete;
  AllMemory& operator=(const AllMemory&) = delete;

 private:
  struct Block {
    Block* next;
  };

  rlimit mBefore;
  Block* mBlocks = nullptr;
};

TEST(ThreadEnd, AFirstUseTakesNoMemory) {
  if (test::kHeapOfSanitizer) GTEST_SKIP() << "the sanitizer's heap has no end";
  const Owned mutex(createMutex(false));
  std::uint32_t result = kWaitFailed;
  std::thread([&] {
    const AllMemory memory;
    result = waitForOne(mutex, 0);
  }).join();
  EXPECT_EQ(result, kWaitObject);
  EXPECT_EQ(waitForOne(mutex, kLong), kWaitAbandoned);
}

}  // namespace
}  // namespace kel::platform
