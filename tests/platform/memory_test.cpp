// SPDX-License-Identifier: MIT
// What becomes of the operations on handles when there is no memory left.
#include <vector>

#include "platform/background.h"
#include "support/failing_heap.h"

namespace kel::platform {
namespace {

constexpr std::uint32_t kOutOfMemory = 8;

/// Makes handles of one kind until there is no memory for one more, and uses one of them then.
template <typename Make>
void useThemUntilMemoryEnds(Make make) {
  constexpr std::size_t kEnough = 2000;
  std::vector<Handle> handles;
  handles.reserve(kEnough);
  std::uint32_t error = kOutOfMemory;  // some systems have no memory of the program's in their objects
  {
    const test::FailingHeap heap;
    while (handles.size() < kEnough) {
      const Handle handle = make();
      if (!handle) {
        error = lastError();
        break;
      }
      handles.push_back(handle);
    }
  }
  EXPECT_EQ(error, kOutOfMemory);
  for (const Handle handle : handles) EXPECT_TRUE(closeHandle(handle));
  const Owned another(make());
}

TEST(Memory, AnEventThatCannotBeMadeIsNull) {
  useThemUntilMemoryEnds([] { return createEvent(false, false); });
}

TEST(Memory, AMutexThatCannotBeMadeIsNull) {
  useThemUntilMemoryEnds([] { return createMutex(true); });
}

TEST(Memory, AThreadThatCannotBeMadeIsNullAndItsFunctionIsNotCalled) {
  std::atomic<int> calls = 0;
  const ThreadFunction function = [](void* argument) -> std::uint32_t {
    ++*static_cast<std::atomic<int>*>(argument);
    return 0;
  };
  std::uint32_t id = 0;
  Handle thread = nullptr;
  int started = 0;
  {
    const test::FailingHeap heap;
    // Where threads take room among the handles, there is some left at first.
    for (; started < 2000 && (thread = createThread(function, &calls, &id)); ++started) {
      EXPECT_EQ(waitForOne(thread, kLong), kWaitObject);
      // Kept open: a closed handle would make room.
    }
  }
  EXPECT_EQ(thread, nullptr);
  EXPECT_EQ(calls, started);
  thread = createThread(function, &calls, &id);
  EXPECT_EQ(waitForOne(thread, kLong), kWaitObject);
  EXPECT_EQ(calls, started + 1);
}

}  // namespace
}  // namespace kel::platform
