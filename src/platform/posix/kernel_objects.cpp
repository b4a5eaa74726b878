// The table of kernel objects; events and mutexes.
#include "platform/posix/kernel_objects.h"

#include <pthread.h>

#include <new>

#include "platform/posix/errors.h"

namespace kel::platform {
namespace posix {

// Plain statics without destructors: a thread may end, and signal its end, while the process is already being taken
// down.
constinit FutexLock gLock;

thread_local constinit Thread tThread;

namespace {

constexpr unsigned kSlotBits = 24;  // of a handle's value; the generation lies above
constexpr std::uint32_t kChunkSize = 256;
constexpr std::uint32_t kMostChunks = 4096;

constinit Object* gChunks[kMostChunks] GUARDED_BY(gLock) = {};
constinit std::uint32_t gSlots GUARDED_BY(gLock) = 0;  // used so far
constinit Object* gFirstFree GUARDED_BY(gLock) = nullptr;
constinit std::size_t gOpenHandles GUARDED_BY(gLock) = 0;

Object* newSlot() REQUIRES(gLock) {
  const std::uint32_t chunk = gSlots / kChunkSize;
  if (chunk == kMostChunks) {
    fail(kTooManyHandles);
    return nullptr;
  }
  if (!gChunks[chunk]) gChunks[chunk] = new (std::nothrow) Object[kChunkSize];
  if (!gChunks[chunk]) {
    fail(kOutOfMemory);
    return nullptr;
  }
  Object& object = gChunks[chunk][gSlots % kChunkSize];
  object.slot = gSlots++;
  return &object;
}

void unlinkOwned(Object& mutex) REQUIRES(gLock) {
  (mutex.previousOwned ? mutex.previousOwned->nextOwned : mutex.owner->firstOwned) = mutex.nextOwned;
  if (mutex.nextOwned) mutex.nextOwned->previousOwned = mutex.previousOwned;
}

// Ends the ownership of a mutex, whoever is next. It may be the last that kept the mutex.
void disown(Object& mutex, Operation& operation) REQUIRES(gLock) {
  unlinkOwned(mutex);
  mutex.owner = nullptr;
  mutex.entries = 0;
  signal(mutex, operation);
  drop(mutex);
}

}  // namespace

Object* newObject(Kind kind) {
  Object* const object = gFirstFree ? gFirstFree : newSlot();
  if (!object) return nullptr;
  if (object == gFirstFree) gFirstFree = object->nextFree;
  *object = Object{.generation = object->generation, .slot = object->slot, .references = 1, .kind = kind};
  ++gOpenHandles;
  return object;
}

Handle handleOf(const Object& object) {
  return reinterpret_cast<Handle>(object.generation << kSlotBits | (object.slot + 1));
}

Object* find(Handle handle) {
  const auto value = reinterpret_cast<std::uintptr_t>(handle);
  const auto slot = static_cast<std::uint32_t>(value & ((1U << kSlotBits) - 1)) - 1;  // null gives the largest number
  if (slot < gSlots) {
    Object& object = gChunks[slot / kChunkSize][slot % kChunkSize];
    if (object.generation == value >> kSlotBits) return &object;
  }
  fail(kInvalidHandle);
  return nullptr;
}

Object* find(Handle handle, Kind kind) {
  Object* const object = find(handle);
  if (!object || object->kind == kind) return object;
  fail(kInvalidHandle);
  return nullptr;
}

void drop(Object& object) {
  if (--object.references != 0) return;
  object.nextFree = gFirstFree;
  gFirstFree = &object;
}

bool close(Handle handle) {
  Object* const object = find(handle);
  if (!object) return false;
  ++object->generation;
  --gOpenHandles;
  drop(*object);
  return true;
}

std::uint32_t take(Object& object, Thread& thread) {
  if (object.kind != Kind::mutex) {
    object.signalled = object.manualReset;
    return kWaitObject;
  }
  if (object.entries++ != 0) return kWaitObject;
  object.signalled = false;
  object.owner = &thread;
  object.previousOwned = nullptr;
  object.nextOwned = thread.firstOwned;
  if (object.nextOwned) object.nextOwned->previousOwned = &object;
  thread.firstOwned = &object;
  ++object.references;
  const bool abandoned = object.abandoned;
  object.abandoned = false;
  return abandoned ? kWaitAbandoned : kWaitObject;
}

void enqueue(WaitLink& link) {
  Object& object = *link.object;
  link.previous = object.lastWaiting;
  link.next = nullptr;
  (link.previous ? link.previous->next : object.firstWaiting) = &link;
  object.lastWaiting = &link;
  ++object.references;
}

void dequeue(Waiter& waiter, Operation& operation) {
  for (WaitLink* link = waiter.links; link != waiter.links + waiter.count; ++link) {
    Object& object = *link->object;
    (link->previous ? link->previous->next : object.firstWaiting) = link->next;
    (link->next ? link->next->previous : object.lastWaiting) = link->previous;
    if (object.kind == Kind::mutex && object.signalled && object.firstWaiting) {
      operation.invite(*object.firstWaiting->waiter);
    }
    drop(object);
  }
}

void signal(Object& object, Operation& operation) {
  object.signalled = true;
  while (object.signalled && object.firstWaiting) {
    Waiter& waiter = *object.firstWaiting->waiter;
    if (object.kind == Kind::mutex && waiter.inVain < kMostInVain) {
      operation.invite(waiter);
      return;
    }
    waiter.result = take(object, waiter.thread) + static_cast<std::uint32_t>(object.firstWaiting - waiter.links);
    dequeue(waiter, operation);
    operation.wakeLater(waiter);
  }
}

void abandonMutexes(Thread& thread, Operation& operation) {
  while (thread.firstOwned) {
    thread.firstOwned->abandoned = true;
    disown(*thread.firstOwned, operation);
  }
}

namespace {

// A value of this key is a watched thread. It goes with the library, or with the process; what threads own then is
// theirs for good.
pthread_key_t gWatched;
bool gCanWatch = false;

void endWatched(void* value) {
  Thread& thread = *static_cast<Thread*>(value);
  thread.isWatched = false;
  Operation operation;
  abandonMutexes(thread, operation);
}

[[gnu::constructor(101)]] void makeKey() { gCanWatch = pthread_key_create(&gWatched, endWatched) == 0; }

[[gnu::destructor(101)]] void deleteKey() {
  if (gCanWatch) pthread_key_delete(gWatched);
}

}  // namespace

EndWatch::~EndWatch() {
  if (!mThread.isWatched || mThread.firstOwned) return;
  pthread_setspecific(gWatched, nullptr);
  mThread.isWatched = false;
}

bool EndWatch::begin() {
  if (mThread.isWatched) return true;
  // Any other failure is that of a key that went with the process, whose end nobody watches.
  if (pthread_setspecific(gWatched, &mThread) == ENOMEM) return fail(kOutOfMemory);
  return mThread.isWatched = true;
}

}  // namespace posix

using namespace posix;

Handle createEvent(bool manualReset, bool set) {
  const Operation operation;
  Object* const event = newObject(Kind::event);
  if (!event) return nullptr;
  event->manualReset = manualReset;
  event->signalled = set;
  return handleOf(*event);
}

bool setEvent(Handle event) {
  Operation operation;
  Object* const object = find(event, Kind::event);
  if (!object) return false;
  signal(*object, operation);
  return true;
}

bool resetEvent(Handle event) {
  const Operation operation;
  Object* const object = find(event, Kind::event);
  if (!object) return false;
  object->signalled = false;
  return true;
}

Handle createMutex(bool owned) {
  Thread& self = currentThread();
  EndWatch watch(self);
  const Operation operation;
  if (!gCanWatch) {
    fail(kOutOfMemory);
    return nullptr;
  }
  if (owned && !watch.begin()) return nullptr;
  Object* const mutex = newObject(Kind::mutex);
  if (!mutex) return nullptr;
  mutex->signalled = true;
  if (owned) take(*mutex, self);
  return handleOf(*mutex);
}

bool releaseMutex(Handle mutex) {
  Thread& self = currentThread();
  const EndWatch watch(self);
  Operation operation;
  Object* const object = find(mutex, Kind::mutex);
  if (!object) return false;
  if (object->owner != &self) return fail(kNotOwner);
  if (object->entries == 1) {
    disown(*object, operation);
  } else {
    --object->entries;
  }
  return true;
}

bool closeHandle(Handle handle) {
  const Operation operation;
  return close(handle);
}

std::size_t posix::openHandles() {
  const Operation operation;
  return gOpenHandles;
}

}  // namespace kel::platform
