// SPDX-License-Identifier: MIT
// The table of kernel objects; events and mutexes.
#include "platform/posix/kernel_objects.h"

#include <pthread.h>

#include <new>

namespace kel::platform {
namespace posix {

// Plain statics without destructors: a thread may end, and signal its end, while the process is already being taken
// down.
constinit FutexLock gLock;
constinit std::atomic<Object*> gChunks[kMostChunks] = {};

thread_local constinit Thread tThread;

namespace {

constinit std::uint32_t gSlots GUARDED_BY(gLock) = 0;  // used so far

// The free slots, a stack: the number of the first and 1, and above it how many have been taken from here. The count
// keeps whoever has read a slot's next one from making that the first, if the slot has been away meanwhile.
constinit std::atomic<std::uint64_t> gFree = 0;

Object* takeFree() {
  std::uint64_t first = gFree.load(std::memory_order_acquire);
  while ((first & kSlotMask) != 0) {
    Object* const object = at(static_cast<std::uint32_t>(first & kSlotMask) - 1);
    const std::uint32_t next = object->nextFree.load(std::memory_order_relaxed);
    if (gFree.compare_exchange_weak(first, ((first & ~kSlotMask) + kSlotMask + 1) | next, std::memory_order_acq_rel,
                                    std::memory_order_acquire)) {
      return object;
    }
  }
  return nullptr;
}

Object* newSlot() {
  const Operation operation;
  const std::uint32_t number = gSlots / kChunkSize;
  if (number == kMostChunks) {
    fail(kTooManyHandles);
    return nullptr;
  }
  if (gSlots % kChunkSize == 0) {
    auto* const chunk = new (std::nothrow) Object[kChunkSize];
    if (!chunk) {
      fail(kOutOfMemory);
      return nullptr;
    }
    gChunks[number].store(chunk, std::memory_order_release);
  }
  Object* const object = at(gSlots);
  object->slot = gSlots++;
  return object;
}

void unlinkOwned(Object& mutex, Thread& thread) {
  (mutex.previousOwned ? mutex.previousOwned->nextOwned : thread.firstOwned) = mutex.nextOwned;
  if (mutex.nextOwned) mutex.nextOwned->previousOwned = mutex.previousOwned;
}

// Fixes the result of the first in an object's queue.
void handOver(Object& object, std::uint32_t result, Operation& operation) REQUIRES(gLock) {
  WaitLink& first = *object.firstWaiting;
  Waiter& waiter = *first.waiter;
  waiter.result = result + static_cast<std::uint32_t>(&first - waiter.links);
  dequeue(waiter, operation);
  operation.wakeLater(waiter);
}

// Ends the ownership of this thread. `free` is what the state has more of when the mutex is free: kSignalled, and
// kAbandoned where its owner ends.
void disown(Object& mutex, Thread& thread, State free) {
  const auto unlessWaited = [=](State state) { return (state & kWaited) != 0 ? state : state | free; };
  unlinkOwned(mutex, thread);
  mutex.owner.store(nullptr, std::memory_order_relaxed);
  if ((change(mutex, unlessWaited) & kWaited) == 0) return;
  Operation operation;
  if ((change(mutex, unlessWaited) & kWaited) == 0) return;
  Waiter& first = *mutex.firstWaiting->waiter;
  if (first.inVain < kMostInVain) {
    change(mutex, [=](State state) { return state | free; });
    operation.invite(first);
  } else {
    own(mutex, first.thread);
    handOver(mutex, resultOf(free), operation);
  }
}

}  // namespace

Object* newObject(State state) {
  Object* object = takeFree();
  if (!object) object = newSlot();
  if (!object) return nullptr;
  const State generation = object->state.load(std::memory_order_relaxed) & ~kSlotMask;
  object->state.store(generation | kOpen | state, std::memory_order_release);
  return object;
}

Handle handleOf(const Object& object) {
  const State generation = object.state.load(std::memory_order_relaxed) & ~kSlotMask;
  return reinterpret_cast<Handle>(generation | (object.slot + 1));
}

void recycle(Object& object) {
  std::uint64_t first = gFree.load(std::memory_order_relaxed);
  do {
    object.nextFree.store(static_cast<std::uint32_t>(first & kSlotMask), std::memory_order_relaxed);
  } while (!gFree.compare_exchange_weak(first, (first & ~kSlotMask) | (object.slot + 1), std::memory_order_release,
                                        std::memory_order_relaxed));
}

void own(Object& mutex, Thread& thread) {
  mutex.owner.store(&thread, std::memory_order_relaxed);
  mutex.entries = 1;
  mutex.previousOwned = nullptr;
  mutex.nextOwned = thread.firstOwned;
  if (mutex.nextOwned) mutex.nextOwned->previousOwned = &mutex;
  thread.firstOwned = &mutex;
}

State enqueue(WaitLink& link, Handle handle, State kinds, bool takes) {
  Object* const object = slotOf(handle);
  const State before = change(object, handle, kinds, [=](State state) {
    if ((state & kSignalled) == 0) return state | kWaited;
    return takes ? takenIfSignalled(state) : state;
  });
  if (before == 0 || (before & kSignalled) != 0) return before;
  link.object = object;
  link.previous = object->lastWaiting;
  link.next = nullptr;
  (link.previous ? link.previous->next : object->firstWaiting) = &link;
  object->lastWaiting = &link;
  return before;
}

void dequeue(Waiter& waiter, Operation& operation) {
  for (WaitLink* link = waiter.links; link != waiter.links + waiter.count; ++link) {
    Object& object = *link->object;
    (link->previous ? link->previous->next : object.firstWaiting) = link->next;
    (link->next ? link->next->previous : object.lastWaiting) = link->previous;
    if (!object.firstWaiting) {
      change(object, [](State state) { return state & ~kWaited; });
    } else if ((object.state.load(std::memory_order_relaxed) & (kMutex | kSignalled)) == (kMutex | kSignalled)) {
      operation.invite(*object.firstWaiting->waiter);
    }
  }
}

void signal(Object& object, Operation& operation) {
  if (object.firstWaiting && (object.state.load(std::memory_order_relaxed) & kManualReset) == 0) {
    return handOver(object, kWaitObject, operation);
  }
  change(object, [](State state) { return state | kSignalled; });
  while (object.firstWaiting) handOver(object, kWaitObject, operation);
}

void abandonMutexes(Thread& thread) {
  while (thread.firstOwned) disown(*thread.firstOwned, thread, kSignalled | kAbandoned);
}

namespace {

// A value of this key is a watched thread. It goes with the library, or with the process; what threads own then is
// theirs for good.
pthread_key_t gWatched;
bool gCanWatch = false;

void endWatched(void* value) {
  Thread& thread = *static_cast<Thread*>(value);
  thread.isWatched = false;
  abandonMutexes(thread);
}

[[gnu::constructor(101)]] void makeKey() { gCanWatch = pthread_key_create(&gWatched, endWatched) == 0; }

[[gnu::destructor(101)]] void deleteKey() {
  if (gCanWatch) pthread_key_delete(gWatched);
}

}  // namespace

void EndWatch::end() {
  pthread_setspecific(gWatched, nullptr);
  mThread.isWatched = false;
}

bool EndWatch::start() {
  // Any other failure is that of a key that went with the process, whose end nobody watches.
  if (pthread_setspecific(gWatched, &mThread) == ENOMEM) return fail(kOutOfMemory);
  return mThread.isWatched = true;
}

}  // namespace posix

using namespace posix;

Handle createEvent(bool manualReset, bool set) {
  Object* const event = newObject(kEvent | (manualReset ? kManualReset : 0) | (set ? kSignalled : 0));
  return event ? handleOf(*event) : nullptr;
}

bool setEvent(Handle event) {
  const auto unlessWaited = [](State state) { return (state & kWaited) != 0 ? state : state | kSignalled; };
  Object* const object = slotOf(event);
  State before = change(object, event, kEvent, unlessWaited);
  if ((before & kWaited) != 0) {
    Operation operation;
    before = change(object, event, kEvent, unlessWaited);
    if ((before & kWaited) != 0) signal(*object, operation);
  }
  return before != 0 || fail(kInvalidHandle);
}

bool resetEvent(Handle event) {
  return change(slotOf(event), event, kEvent, [](State state) { return state & ~kSignalled; }) != 0 ||
         fail(kInvalidHandle);
}

Handle createMutex(bool owned) {
  Thread& self = currentThread();
  EndWatch watch(self);
  if (!gCanWatch) {
    fail(kOutOfMemory);
    return nullptr;
  }
  if (owned && !watch.begin()) return nullptr;
  Object* const mutex = newObject(kMutex | (owned ? 0 : kSignalled));
  if (!mutex) return nullptr;
  if (owned) own(*mutex, self);
  return handleOf(*mutex);
}

bool releaseMutex(Handle mutex) {
  Thread& self = currentThread();
  Object* const object = find(mutex, kMutex);
  if (!object) return false;
  if (!isOwn(*object, self)) return fail(kNotOwner);
  if (--object->entries != 0) return true;
  const EndWatch watch(self);
  disown(*object, self, kSignalled);
  return true;
}

MutexScope::MutexScope() { ++currentThread().mutexScopes; }

MutexScope::~MutexScope() {
  Thread& self = currentThread();
  --self.mutexScopes;
  const EndWatch endsHere(self);
}

bool closeHandle(Handle handle) {
  return change(slotOf(handle), handle, kAnyKind, [](State state) { return (state & ~kOpen) + kOneGeneration; }) != 0 ||
         fail(kInvalidHandle);
}

std::size_t posix::openHandles() {
  std::size_t count = 0;
  Object* object;
  for (std::uint32_t slot = 0; (object = at(slot)) != nullptr; ++slot) {
    if ((object->state.load(std::memory_order_relaxed) & kOpen) != 0) ++count;
  }
  return count;
}

}  // namespace kel::platform
