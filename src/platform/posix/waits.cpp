// Waits, on objects and on the clock.
#include <sched.h>
#include <unistd.h>

#include "platform/posix/errors.h"
#include "platform/posix/kernel_objects.h"

namespace kel::platform {

using namespace posix;

namespace {

timespec after(std::uint32_t milliseconds) {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  time.tv_sec += milliseconds / 1000;
  time.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
  if (time.tv_nsec >= 1'000'000'000) {
    ++time.tv_sec;
    time.tv_nsec -= 1'000'000'000;
  }
  return time;
}

/// False if the deadline passed first.
bool sleepUntilWoken(const Waiter& waiter, const timespec* deadline) {
  while (waiter.woken.load(std::memory_order_acquire) == 0) {
    if (!sleepWhile(waiter.woken, 0, deadline)) return false;
  }
  return true;
}

}  // namespace

std::uint32_t waitForAny(std::uint32_t count, const Handle* objects, std::uint32_t milliseconds) {
  if (count == 0 || count > kMostWaited) {
    setLastError(kInvalidParameter);
    return kWaitFailed;
  }
  WaitLink links[kMostWaited];  // left as it is: a wait pays only for the links that it uses
  Waiter waiter{.thread = currentThread(), .links = links, .count = count};
  EndWatch watch(waiter.thread);
  {
    const Operation operation;
    for (std::uint32_t i = 0; i < count; ++i) {
      links[i].object = find(objects[i]);
      links[i].waiter = &waiter;
      if (!links[i].object) return kWaitFailed;
      if (links[i].object->kind == Kind::mutex && !watch.begin()) return kWaitFailed;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
      if (isOpenTo(*links[i].object, waiter.thread)) return take(*links[i].object, waiter.thread) + i;
    }
    if (milliseconds == 0) return kWaitTimeout;
    for (std::uint32_t i = 0; i < count; ++i) enqueue(links[i]);
  }

  timespec deadline;
  if (milliseconds != kInfinite) deadline = after(milliseconds);
  if (!sleepUntilWoken(waiter, milliseconds == kInfinite ? nullptr : &deadline)) {
    {
      const Operation operation;
      if (waiter.result == kWaitTimeout) {
        dequeue(waiter);
        return kWaitTimeout;
      }
    }
    // A signal came in before the time-out was acted on. It counts, and its sender has yet to touch this frame.
    sleepUntilWoken(waiter, nullptr);
  }
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
