// SPDX-License-Identifier: MIT
// All operations on handles by many threads at random, each result compared with that of a simple model.
//
// The objects lie in groups. A thread takes a group, does one operation on it and does the same to the model, so that
// each result is known; operations on different groups run at the same time, and so do the threads that help out. What
// a thread owns it keeps from one step to the next. A closed handle stays in its place until the place is used again.
// The seed is printed, and KEL_TEST_SEED repeats the choices, though not their order in time.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <latch>
#include <mutex>
#include <random>
#include <thread>
#include <utility>

#include "platform/background.h"
#include "platform/posix/kernel_objects.h"
#include "support/heap_of_sanitizer.h"

namespace kel::platform {
namespace {

constexpr int kNobody = -1;

struct Modelled {
  Handle handle = nullptr;
  bool open = false;
  bool isMutex = false;
  // Of an event.
  bool manualReset = false;
  bool set = false;
  // Of a mutex.
  int owner = kNobody;
  int entries = 0;
  bool abandoned = false;

  bool isOpenTo(int thread) const { return isMutex ? owner == kNobody || owner == thread : set; }

  std::uint32_t take(int thread) {
    if (!isMutex) {
      set = manualReset;
      return kWaitObject;
    }
    owner = thread;
    ++entries;
    return std::exchange(abandoned, false) ? kWaitAbandoned : kWaitObject;
  }

  void abandon() {
    owner = kNobody;
    entries = 0;
    abandoned = true;
  }
};

struct Group {
  std::mutex lock;
  std::array<Modelled, 6> places;
};

class Worker {
 public:
  Worker(int number, unsigned seed, std::array<Group, 8>& groups) : mNumber(number), mRandom(seed), mGroups(groups) {}

  void step() {
    Group& group = mGroups[below(static_cast<unsigned>(mGroups.size()))];
    const std::lock_guard alone(group.lock);
    Modelled& place = group.places[below(static_cast<unsigned>(group.places.size()))];
    switch (below(64)) {
      case 0:
        return abandon(group);
      case 1:
        return handOver(place);
      case 2:
        return closeUnderWaiter();
      case 3:
        return waitAny(group, below(16) == 0 ? 1 : 0);
      default:
        break;
    }
    switch (below(8)) {
      case 0:
        return make(place);
      case 1:
        return close(place);
      case 2:
        return set(place);
      case 3:
        return reset(place);
      case 4:
        return waitAny(group, 0);
      case 5:
        return wait(place);
      default:
        return release(place);
    }
  }

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(mRandom() % limit); }

  void make(Modelled& place) {
    close(place);
    place = {.open = true, .isMutex = below(2) == 0, .manualReset = below(2) == 0};
    const bool state = below(2) == 0;
    if (place.isMutex) {
      place.handle = createMutex(state);
      if (state) place.take(mNumber);
    } else {
      place.handle = createEvent(place.manualReset, state);
      place.set = state;
    }
    ASSERT_NE(place.handle, nullptr);
  }

  void close(Modelled& place) {
    ASSERT_EQ(closeHandle(place.handle), place.open);
    place.open = false;
  }

  void set(Modelled& place) {
    ASSERT_EQ(setEvent(place.handle), place.open && !place.isMutex);
    place.set = true;
  }

  void reset(Modelled& place) {
    ASSERT_EQ(resetEvent(place.handle), place.open && !place.isMutex);
    place.set = false;
  }

  void release(Modelled& place) {
    const bool owned = place.open && place.isMutex && place.owner == mNumber;
    ASSERT_EQ(releaseMutex(place.handle), owned);
    if (owned && --place.entries == 0) place.owner = kNobody;
  }

  void wait(Modelled& place) {
    const std::uint32_t result = waitForOne(place.handle, 0);
    if (!place.open) {
      ASSERT_EQ(result, kWaitFailed);
    } else if (!place.isOpenTo(mNumber)) {
      ASSERT_EQ(result, kWaitTimeout);
    } else {
      ASSERT_EQ(result, place.take(mNumber));
    }
  }

  void waitAny(Group& group, std::uint32_t milliseconds) {
    std::array<Handle, 3> handles;
    std::array<Modelled*, 3> places;
    for (std::size_t i = 0; i < places.size(); ++i) {
      places[i] = &group.places[(below(2) + 2 * i)];
      handles[i] = places[i]->handle;
    }
    const std::uint32_t result = waitForAny(3, handles.data(), milliseconds);
    std::uint32_t expected = kWaitTimeout;
    if (!std::ranges::all_of(places, &Modelled::open)) {
      expected = kWaitFailed;
    } else {
      const auto first = std::ranges::find_if(places, [&](Modelled* place) { return place->isOpenTo(mNumber); });
      if (first != places.end()) {
        expected = (*first)->take(mNumber) + static_cast<std::uint32_t>(first - places.begin());
      }
    }
    ASSERT_EQ(result, expected);
  }

  /// A thread takes every mutex that it can get, and ends.
  void abandon(Group& group) {
    Background([&] {
      for (Modelled& place : group.places) {
        if (!place.open || !place.isMutex) continue;
        const bool free = place.isOpenTo(kNobody);
        EXPECT_EQ(waitForOne(place.handle, 0), free ? place.take(kNobody) : kWaitTimeout);
        if (free) place.abandon();
      }
    }).join();
  }

  /// A thread waits for an object while it is signalled: one that another thread waits for, or comes to wait for.
  void handOver(Modelled& place) {
    const Owned event(createEvent(true, false));
    if (!place.open || (place.isMutex && place.owner != mNumber)) return;
    const std::array<Handle, 2> objects{event, place.handle};
    std::uint32_t result = kWaitFailed;
    if (!place.isMutex) reset(place);
    {
      const Background waiter([&] { result = waitForAny(2, objects.data(), kLong); });
      if (below(2) == 0) std::this_thread::yield();
      if (!place.isMutex) {
        set(place);
        place.take(kNobody);
      } else {
        while (place.owner == mNumber) release(place);
        place.abandon();
      }
    }
    ASSERT_EQ(result, kWaitObject + 1);
  }

  /// Who waits for an object whose handle is closed goes on waiting; who comes later is refused.
  void closeUnderWaiter() {
    const Handle closed = createEvent(false, false);
    const Owned event(createEvent(true, false));
    const std::array<Handle, 2> objects{closed, event};
    std::uint32_t result = kWaitTimeout;
    {
      const Background waiter([&] { result = waitForAny(2, objects.data(), kLong); });
      if (below(2) == 0) std::this_thread::yield();
      ASSERT_TRUE(closeHandle(closed));
      ASSERT_FALSE(setEvent(closed));
      setEvent(event);
    }
    ASSERT_TRUE(result == kWaitObject + 1 || result == kWaitFailed);
  }

  const int mNumber;
  std::mt19937 mRandom;
  std::array<Group, 8>& mGroups;
};

unsigned chosenSeed() {
  const char* const given = std::getenv("KEL_TEST_SEED");
  return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
}

constexpr int kSteps = test::kHeapOfSanitizer ? 100'000 : 1'000'000;

TEST(Model, ForeseesEachResult) {
  constexpr int kThreads = 5;
  const unsigned seed = chosenSeed();
  std::printf("KEL_TEST_SEED=%u\n", seed);
  const std::size_t open = posix::openHandles();
  std::array<Group, 8> groups;
  std::latch done(kThreads);
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&, number] {
      Worker worker(number, seed + static_cast<unsigned>(number), groups);
      for (int i = 0; i < kSteps / kThreads && !testing::Test::HasFatalFailure(); ++i) worker.step();
      done.arrive_and_wait();  // the end of a thread is an operation as well
    });
  }
  for (std::thread& thread : threads) thread.join();

  // What they still owned is abandoned by their end.
  for (Group& group : groups) {
    for (Modelled& place : group.places) {
      if (!place.open) continue;
      if (place.isMutex) {
        const bool abandoned = place.abandoned || place.owner != kNobody;
        EXPECT_EQ(waitForOne(place.handle, 0), abandoned ? kWaitAbandoned : kWaitObject);
        EXPECT_TRUE(releaseMutex(place.handle));
      }
      EXPECT_TRUE(closeHandle(place.handle));
    }
  }
  EXPECT_EQ(posix::openHandles(), open);
}

}  // namespace
}  // namespace kel::platform
