// SPDX-License-Identifier: MIT
// What happens to an object in the same moment in which a wait for it ends in vain.
//
// The test holds the lock of those who sleep and those who wake. So the waiter, whose time is over, and who releases or
// sets the object meet before that lock, and go on in the order in which they came.
#include <atomic>
#include <functional>
#include <latch>
#include <thread>

#include "platform/background.h"
#include "platform/posix/kernel_objects.h"

namespace kel::platform {
namespace {

constexpr std::uint32_t kWait = 20;

class WaitRace : public testing::TestWithParam<bool> {
 protected:
  /// Gives the result of a wait for the object, which ends while `act` is at work on a thread of its own. `meanwhile`
  /// comes when both have found that they need the lock.
  std::uint32_t meet(Handle object, const std::function<void()>& act, const std::function<void()>& meanwhile) {
    const bool actIsFirst = GetParam();
    std::latch mayAct(1);
    std::atomic<std::uint32_t> result = kWaitFailed;
    std::thread actor([&] {
      mayAct.wait();
      act();
    });
    std::thread waiter([&] { result = waitForOne(object, kWait); });
    while ((posix::slotOf(object)->state & posix::kWaited) == 0 && result == kWaitFailed) std::this_thread::yield();
    posix::gLock.lock();
    if (actIsFirst) mayAct.count_down();
    sleepFor(2 * kWait);  // the waiter's time is over
    if (!actIsFirst) mayAct.count_down();
    sleepFor(kWait);
    meanwhile();
    posix::gLock.unlock();
    actor.join();
    waiter.join();
    return result;
  }
};

TEST_P(WaitRace, AReleaseLeavesTheMutexToWhoWaitsOrFree) {
  const Owned mutex(createMutex(false));
  std::latch owned(1);
  std::latch mayRelease(1);
  std::thread owner([&] {
    waitForOne(mutex, 0);
    owned.count_down();
    mayRelease.wait();
    releaseMutex(mutex);
  });
  owned.wait();
  const std::uint32_t result = meet(
      mutex,
      [&] {
        mayRelease.count_down();
        owner.join();
      },
      [] {});
  // A waiter that came to own it has ended by now.
  EXPECT_EQ(waitForOne(mutex, 0), result == kWaitTimeout ? kWaitObject : kWaitAbandoned);
}

TEST_P(WaitRace, ASetLetsTheWaiterThroughOrTheNext) {
  const Owned event(createEvent(false, false));
  const std::uint32_t result = meet(
      event, [&] { setEvent(event); }, [] {});
  EXPECT_EQ(waitForOne(event, 0), result == kWaitTimeout ? kWaitObject : kWaitTimeout);
}

TEST_P(WaitRace, AnEventThatIsClosedMeanwhileIsGivenUpOnce) {
  const Handle event = createEvent(false, false);
  meet(
      event, [&] { setEvent(event); }, [&] { closeHandle(event); });
  const Owned one(createEvent(false, false));
  const Owned other(createEvent(false, false));
  EXPECT_TRUE(setEvent(one));
  EXPECT_EQ(waitForOne(other, 0), kWaitTimeout);
}

INSTANTIATE_TEST_SUITE_P(Order, WaitRace, testing::Values(true, false),
                         [](const auto& order) { return order.param ? "TheActFirst" : "TheEndOfTheWaitFirst"; });

}  // namespace
}  // namespace kel::platform
