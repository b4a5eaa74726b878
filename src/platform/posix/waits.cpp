// Waits, on objects and on the clock.
#include <sched.h>
#include <unistd.h>

#include <utility>

#include "platform/posix/errors.h"
#include "platform/posix/kernel_objects.h"

namespace kel::platform {

using namespace posix;

namespace {

/// False if the deadline passed first.
bool sleepUntilCalled(const Waiter& waiter, const timespec* deadline) {
  while (waiter.word.load(std::memory_order_acquire) == kAsleep) {
    if (!sleepWhile(waiter.word, kAsleep, deadline)) return false;
  }
  return true;
}

// Whoever fixed the result has yet to touch the waiter's frame.
void awaitRelease(const Waiter& waiter) {
  std::uint32_t word;
  while ((word = waiter.word.load(std::memory_order_acquire)) != kReleased) sleepWhile(waiter.word, word, nullptr);
}

/// Takes the first object that is open to the waiter. False if none is.
bool takeFirstOpen(Waiter& waiter) REQUIRES(gLock) {
  for (std::uint32_t i = 0; i < waiter.count; ++i) {
    Object& object = *waiter.links[i].object;
    if (!isOpenTo(object, waiter.thread)) continue;
    waiter.result = take(object, waiter.thread) + i;
    return true;
  }
  return false;
}

}  // namespace

void posix::sleepInQueues(Waiter& waiter, const timespec* deadline) {
  for (;;) {
    const bool inTime = sleepUntilCalled(waiter, deadline);
    {
      Operation operation;
      if (waiter.result == kWaitTimeout) {
        waiter.word.store(kAsleep, std::memory_order_relaxed);
        // Also behind the deadline: an invitation that came before is not lost.
        if (takeFirstOpen(waiter) || !inTime) return dequeue(waiter, operation);
        ++waiter.inVain;
        continue;
      }
    }
    return awaitRelease(waiter);
  }
}

std::uint32_t waitForAny(std::uint32_t count, const Handle* objects, std::uint32_t milliseconds) {
  if (count == 0 || count > kMostWaited) {
    setLastError(kInvalidParameter);
    return kWaitFailed;
  }
  Thread& self = currentThread();
  if (self.begunWait != kNotBegun) return std::exchange(self.begunWait, kNotBegun);
  WaitLink links[kMostWaited];  // left as it is: a wait pays only for the links that it uses
  Waiter waiter{.thread = self, .links = links, .count = count};
  EndWatch watch(self);
  {
    const Operation operation;
    for (std::uint32_t i = 0; i < count; ++i) {
      links[i].object = find(objects[i]);
      links[i].waiter = &waiter;
      if (!links[i].object) return kWaitFailed;
      if (links[i].object->kind == Kind::mutex && !watch.begin()) return kWaitFailed;
    }
    if (takeFirstOpen(waiter) || milliseconds == 0) return waiter.result;
    for (std::uint32_t i = 0; i < count; ++i) enqueue(links[i]);
  }
  timespec deadline;
  if (milliseconds != kInfinite) deadline = after(milliseconds);
  sleepInQueues(waiter, milliseconds == kInfinite ? nullptr : &deadline);
  return waiter.result;
}

std::uint32_t waitForOne(Handle object, std::uint32_t milliseconds) { return waitForAny(1, &object, milliseconds); }

void sleepFor(std::uint32_t milliseconds) {
  while (milliseconds == kInfinite) pause();
  if (milliseconds == 0) {
    sched_yield();
    return;
  }
  const timespec deadline = after(milliseconds);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
  }
}

}  // namespace kel::platform
