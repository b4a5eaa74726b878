// SPDX-License-Identifier: MIT
// Waits, on objects and on the clock.
#include <sched.h>
#include <unistd.h>

#include <utility>

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

/// Takes the first object that is open to a waiter in its queues. False if none is.
bool takeFirstOpen(Waiter& waiter) REQUIRES(gLock) {
  for (std::uint32_t i = 0; i < waiter.count; ++i) {
    Object& object = *waiter.links[i].object;
    const State before = change(object, takenIfSignalled);
    if ((before & kSignalled) == 0) continue;
    if ((before & kMutex) != 0) own(object, waiter.thread);
    waiter.result = resultOf(before) + i;
    return true;
  }
  return false;
}

/// Looks a handle up for a wait. If it is that of a mutex the thread's end is watched. Null with the last error set.
Object* findToWait(Handle handle, EndWatch& watch) {
  Object* const object = find(handle);
  if (!object) return nullptr;
  const bool isMutex = (object->state.load(std::memory_order_relaxed) & kMutex) != 0;
  return isMutex && !watch.begin() ? nullptr : object;
}

/// Enters an object once more that is this thread's own already. False if it is not.
bool enterAgain(Object& object, const Thread& self) {
  if (!isOwn(object, self)) return false;
  ++object.entries;
  return true;
}

/// Looks at an object once. That is an operation of its own, which changes nothing.
bool isOpenTo(const Thread& self, Object& object, Handle handle) {
  return isOwn(object, self) ||
         (change(&object, handle, kAnyKind, [](State state) { return state; }) & kSignalled) != 0;
}

/// The result of a wait that found an object in this state and took it, or found its handle stale.
std::uint32_t endAtOnce(State before, Object& object, Thread& self) {
  if (before == 0) {
    setLastError(kInvalidHandle);
    return kWaitFailed;
  }
  if ((before & kMutex) != 0) own(object, self);
  return resultOf(before);
}

/// A wait behind the first look at the handles, which are valid or were so then.
std::uint32_t waitInQueues(Thread& self, std::uint32_t count, const Handle* handles, std::uint32_t milliseconds) {
  WaitLink links[kMostWaited];  // left as it is: a wait pays only for the links that it uses
  Waiter waiter{.thread = self, .links = links, .count = 0};
  {
    Operation operation;
    for (std::uint32_t& i = waiter.count; i < count; ++i) {
      links[i].waiter = &waiter;
      Object& object = *slotOf(handles[i]);
      const bool again = enterAgain(object, self);
      const State before = again ? kSignalled : enqueue(links[i], handles[i], kAnyKind, true);
      if (before != 0 && (before & kSignalled) == 0) continue;
      const std::uint32_t result = endAtOnce(before, object, self);
      dequeue(waiter, operation);
      return result == kWaitFailed ? result : result + i;
    }
    if (milliseconds == 0) {
      dequeue(waiter, operation);
      return kWaitTimeout;
    }
  }
  timespec deadline;
  if (milliseconds != kInfinite) deadline = after(milliseconds);
  sleepInQueues(waiter, milliseconds == kInfinite ? nullptr : &deadline);
  return waiter.result;
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
  if (count == 1) return waitForOne(*objects, milliseconds);
  EndWatch watch(self);
  bool isOpen = false;
  for (std::uint32_t i = 0; i < count; ++i) {
    Object* const object = findToWait(objects[i], watch);
    if (!object) return kWaitFailed;
    if (milliseconds == 0 && !isOpen) isOpen = isOpenTo(self, *object, objects[i]);
  }
  if (milliseconds == 0 && !isOpen) return kWaitTimeout;
  return waitInQueues(self, count, objects, milliseconds);
}

std::uint32_t waitForOne(Handle handle, std::uint32_t milliseconds) {
  Thread& self = currentThread();
  EndWatch watch(self);
  Object* const object = findToWait(handle, watch);
  if (!object) return kWaitFailed;
  if (enterAgain(*object, self)) return kWaitObject;
  const State before = change(object, handle, kAnyKind, takenIfSignalled);
  if (before == 0 || (before & kSignalled) != 0) return endAtOnce(before, *object, self);
  return milliseconds != 0 ? waitInQueues(self, 1, &handle, milliseconds) : kWaitTimeout;
}

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
