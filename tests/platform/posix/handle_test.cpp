// SPDX-License-Identifier: MIT
// Handles as slot and generation: a value is never given out twice.
#include <array>
#include <atomic>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "platform/background.h"
#include "platform/posix/kernel_objects.h"

namespace kel::platform {
namespace {

TEST(Handle, AClosedOneStaysStaleWhenItsSlotIsUsedAgain) {
  std::set<Handle> seen;
  for (int i = 0; i < 1000; ++i) {
    const Handle event = createEvent(true, true);
    EXPECT_TRUE(seen.insert(event).second);
    EXPECT_TRUE(closeHandle(event));
  }
  const Owned event(createEvent(true, true));
  for (const Handle stale : seen) EXPECT_EQ(waitForOne(stale, 0), kWaitFailed);
}

TEST(Handle, ThousandsMayBeOpenAtOnce) {
  const std::size_t open = posix::openHandles();
  std::vector<Handle> events;
  for (int i = 0; i < 5000; ++i) events.push_back(createEvent(false, true));
  EXPECT_EQ(posix::openHandles(), open + events.size());
  for (const Handle event : events) EXPECT_EQ(waitForOne(event, 0), kWaitObject);
  for (const Handle event : events) EXPECT_TRUE(closeHandle(event));
  EXPECT_EQ(posix::openHandles(), open);
}

TEST(Handle, WhatWasNeverAHandleIsRefused) {
  const Owned event(createEvent(false, false));
  for (const std::uintptr_t value : {std::uintptr_t{1}, std::uintptr_t{0xFFFFFF}, ~std::uintptr_t{0}}) {
    EXPECT_FALSE(setEvent(reinterpret_cast<Handle>(value)));
    EXPECT_EQ(waitForOne(reinterpret_cast<Handle>(value), 0), kWaitFailed);
  }
}

TEST(Handle, IsOneThreadsAloneWhileSeveralOpenAndClose) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 200'000; ++round) {
        const Handle first = createEvent(false, false);
        const Handle second = createEvent(false, false);
        ASSERT_TRUE(closeHandle(first));
        const Handle third = createEvent(false, false);
        ASSERT_TRUE(closeHandle(second));
        ASSERT_TRUE(closeHandle(third));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// Threads share a few places for handles and use what they find there, which another may have closed at any moment.
TEST(Handle, StaleOnesAreHarmlessUnderRandomUse) {
  const unsigned seed = std::random_device()();
  std::printf("seed %u\n", seed);
  const std::size_t open = posix::openHandles();
  std::array<std::atomic<Handle>, 8> places{};
  const auto use = [&](unsigned number) {
    std::mt19937 random(seed + number);
    for (int i = 0; i < 20'000; ++i) {
      std::atomic<Handle>& place = places[random() % places.size()];
      switch (random() % 8) {
        case 0:
          closeHandle(place.exchange(createEvent(random() % 2 != 0, false)));
          break;
        case 1:
          closeHandle(place.exchange(createMutex(random() % 2 != 0)));
          break;
        case 2:
          closeHandle(place);
          break;
        case 3:
          setEvent(place);
          break;
        case 4:
          resetEvent(place);
          break;
        case 5:
          releaseMutex(place);
          break;
        case 6:
          waitForOne(place, 0);
          break;
        default: {
          const std::array<Handle, 2> objects{place, places[random() % places.size()]};
          waitForAny(2, objects.data(), random() % 16 == 0 ? 1 : 0);
        }
      }
    }
  };
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < 4; ++i) threads.emplace_back(use, i);
  for (std::thread& thread : threads) thread.join();
  for (std::atomic<Handle>& place : places) closeHandle(place);
  EXPECT_EQ(posix::openHandles(), open);
}

}  // namespace
}  // namespace kel::platform
