/* SPDX-License-Identifier: MIT */
// Events, mutexes and threads: the objects behind the handles, and how a thread waits for one.
//
// What an object is lies in one word, its state, and each operation on one object is one compare-and-swap of that word.
// That holds for an operation that changes nothing, too: so the operations on an object have one order, and whatever a
// thread did before its operation is seen by those whose operations on that object come later.
//
// An object lives in a slot of one table and never moves. Its handle is the slot's number with a generation above it.
// The state has the generation as well, which moves on when the handle is closed; so the compare-and-swap with a stale
// handle fails, whatever has become of the slot, and nothing ever reaches memory through it. An object is kept by its
// open handle, by those who wait for it, by the owner of a mutex, and by a thread that still runs. All of these are
// bits of the state: so whoever takes the last one away knows it, and nobody else does, and returns the slot.
//
// Those who sleep, and those who wake sleepers, hold gLock. It guards the queues, and the bit of the state that says
// that there is somebody in the queue: who signals an object and finds that bit takes the lock, and who does not has no
// one to wake. A waiting thread hangs a link into the queue of each object that it waits for, and sleeps on a word of
// its own. It sets the bit of one object after the other, each only while that object is not open to it. When it has
// set the last, none of them can be signalled but behind the lock; so a wait for several sees all of them at one
// moment. A wait of 0 that finds none of them open has only looked at one after the other, without the lock.
//
// Whoever signals an object hands it over to the first in the queue: under the lock it takes the object for the waiter,
// takes the waiter off all queues and fixes its result. Only behind the lock is the word set, which wakes the sleeper.
// Nothing that happens in between can change the outcome: neither a reset, nor a time-out, nor a close.
//
// A mutex is not handed over when it is released, but left free, and the first in its queue is invited to come for it.
// Until that thread runs, whoever passes by may take and release the mutex as often as he likes; were it handed over,
// everybody would stand behind a thread that is not even awake, and behind the next one after it. A waiter who came in
// vain keeps its place, and after kMostInVain times the next release does hand the mutex over to it.
//
// Who owns a mutex is not in its state, which only says that it is taken. The owner is asked for by one question alone,
// "is it I?", and that answer cannot change while a thread asks: only the thread itself becomes an owner or ceases to
// be one, or somebody makes it the owner while it sleeps. If it is yes, the mutex was this thread's from before it
// looked at the state, and is the object of the handle. Number of entries and the list of owned mutexes are the owner's
// too, so they need no lock. The owner is erased before the state says that the mutex is free, and entered behind.
#pragma once

#include "platform/platform.h"
#include "platform/posix/errors.h"
#include "platform/posix/futex.h"

namespace kel::platform::posix {

struct Thread;
struct Object;
struct Waiter;

/// A waiter's place in the queue of one object. First come, first served.
struct WaitLink {
  Object* object;
  Waiter* waiter;
  WaitLink* previous;
  WaitLink* next;
};

// What the word says that a waiter sleeps on.
inline constexpr std::uint32_t kAsleep = 0;
/// A mutex that it waits for was left free. Set under gLock.
inline constexpr std::uint32_t kInvited = 1;
/// Its result is fixed. Set without gLock, and the last that is done to a Waiter from outside.
inline constexpr std::uint32_t kReleased = 2;

/// How often a waiter may come for a mutex and find it taken again. Each time costs it no more than one hold of the
/// mutex and one turn of the processor, so that the shortest wait of the library, 5 seconds, is far away.
inline constexpr std::uint32_t kMostInVain = 2;

/// One wait, on the stack of the thread that waits.
struct Waiter {
  Thread& thread;
  WaitLink* links;
  std::uint32_t count;
  std::uint32_t result = kWaitTimeout;  ///< another one from the moment when an object is handed over
  std::uint32_t inVain = 0;             ///< times that it came for a mutex
  Waiter* nextToWake = nullptr;
  std::atomic<std::uint32_t> word = kAsleep;
};

/// What an object is and how it is. Above these bits lies the generation, in the same place as in a handle.
using State = std::uint64_t;
inline constexpr State kOpen = 1;         ///< its handle is open
inline constexpr State kSignalled = 2;    ///< an event is set, a mutex is free, a thread has ended
inline constexpr State kWaited = 4;       ///< somebody is in its queue; changed under gLock only
inline constexpr State kManualReset = 8;  ///< stays signalled when a wait takes it: a manual-reset event or a thread
inline constexpr State kAbandoned = 16;   ///< a mutex whose last owner ended without releasing it; nobody was told yet
inline constexpr State kEvent = 32;
inline constexpr State kMutex = 64;
inline constexpr State kThread = 128;
inline constexpr State kAnyKind = kEvent | kMutex | kThread;

inline constexpr unsigned kSlotBits = 24;  ///< of a handle's value; the generation lies above
inline constexpr State kOneGeneration = State{1} << kSlotBits;
inline constexpr State kSlotMask = kOneGeneration - 1;

/// Nobody keeps the object any more.
constexpr bool isDead(State state) { return (state & (kOpen | kWaited)) == 0 && (state & (kEvent | kSignalled)) != 0; }

/// What a wait makes of the state of an object: the mutex or the auto-reset event is taken if it is signalled.
constexpr State takenIfSignalled(State state) {
  return (state & (kSignalled | kManualReset)) == kSignalled ? state & ~(kSignalled | kAbandoned) : state;
}

/// What ends a wait for an object that was in this state: kWaitObject or kWaitAbandoned.
constexpr std::uint32_t resultOf(State state) { return (state & kAbandoned) != 0 ? kWaitAbandoned : kWaitObject; }

struct Object {
  std::atomic<State> state{kOneGeneration};
  std::uint32_t slot = 0;                   ///< constant
  std::atomic<std::uint32_t> nextFree = 0;  ///< slot of the next free object and 1; 0: none
  // The queue, guarded by gLock.
  WaitLink* firstWaiting = nullptr;
  WaitLink* lastWaiting = nullptr;

  // Of a mutex.
  std::atomic<Thread*> owner = nullptr;
  // The owner's.
  std::uint32_t entries = 0;
  Object* previousOwned = nullptr;
  Object* nextOwned = nullptr;

  // Of a thread.
  ThreadFunction function = nullptr;
  void* argument = nullptr;
  void* module = nullptr;  ///< keeps this code mapped while the thread runs
};

/// No result of a wait.
inline constexpr std::uint32_t kNotBegun = kWaitFailed - 1;

/// What is kept per thread, this library's own or not. It lies in the thread's own storage and has no code at its start
/// or end, so that to have it takes no memory.
struct Thread {
  Object* firstOwned = nullptr;
  std::uint64_t number = 0;  ///< that no other thread of the process ever has; 0 until it is needed. The thread's own
  std::uint32_t begunWait = kNotBegun;  ///< result of the wait that was begun on its behalf, until it asks for it
  std::uint32_t mutexScopes = 0;  ///< that it is in
  bool isWatched = false;  ///< its end will give up the mutexes that it then owns; the thread's own to read and write
  bool isOurs = false;     ///< runs a function of the library's, and behind that gives up its mutexes without a watch
};

extern thread_local constinit Thread tThread;

inline Thread& currentThread() { return tThread; }

/// Stands around each operation by which its thread may come to own a mutex, or to own none any more. While a thread
/// owns one its end is watched, and on to the end of the MutexScope that it is in, which lies in a call of this
/// library; but at no other time. So a thread that has used this library and lives on neither keeps it loaded, nor runs
/// into it when it has been unloaded. A thread of the library's own needs no watch.
class EndWatch {
 public:
  explicit EndWatch(Thread& thread) : mThread(thread) {}
  ~EndWatch() {
    if (mThread.isWatched && !mThread.firstOwned && mThread.mutexScopes == 0) end();
  }
  EndWatch(const EndWatch&) = delete;
  EndWatch& operator=(const EndWatch&) = delete;

  /// Before a mutex becomes the thread's. False, with the last error set, for want of memory.
  bool begin() { return mThread.isWatched || mThread.isOurs || start(); }

 private:
  bool start();
  void end();

  Thread& mThread;
};

/// For tests of what is left behind.
std::size_t openHandles();

extern constinit FutexLock gLock;

/// One operation: holds gLock, and behind it wakes those whom the operation released or invited.
class SCOPED_CAPABILITY Operation {
 public:
  Operation() ACQUIRE(gLock) { gLock.lock(); }
  ~Operation() RELEASE() {
    gLock.unlock();
    if (mInvited != nullptr) wakeOne(*mInvited);
    // A woken thread may leave the frame that its Waiter lies in, so what is next comes first.
    while (Waiter* const waiter = mFirst) {
      mFirst = waiter->nextToWake;
      waiter->word.store(kReleased, std::memory_order_release);
      wakeOne(waiter->word);
    }
  }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  void wakeLater(Waiter& waiter) {
    *mEnd = &waiter;
    mEnd = &waiter.nextToWake;
  }

  /// Has the waiter come for a mutex. Another operation may release it meanwhile, so that behind the lock nothing but
  /// the address of its word is used. It is rare that there are two of them; then the first is woken at once.
  void invite(Waiter& waiter) REQUIRES(gLock) {
    if (waiter.word.load(std::memory_order_relaxed) != kAsleep) return;
    waiter.word.store(kInvited, std::memory_order_release);
    if (mInvited != nullptr) wakeOne(*mInvited);
    mInvited = &waiter.word;
  }

 private:
  const std::atomic<std::uint32_t>* mInvited = nullptr;
  Waiter* mFirst = nullptr;
  Waiter** mEnd = &mFirst;
};

/// A new object in this state, whose handle is open. Null with the last error set.
Object* newObject(State state);
Handle handleOf(const Object& object);

inline constexpr std::uint32_t kChunkSize = 256;
inline constexpr std::uint32_t kMostChunks = 4096;

/// The table, which grows and never shrinks.
extern constinit std::atomic<Object*> gChunks[kMostChunks];

/// The slot of that number, or null.
inline Object* at(std::uint32_t slot) {
  if (slot >= kMostChunks * kChunkSize) return nullptr;
  Object* const chunk = gChunks[slot / kChunkSize].load(std::memory_order_acquire);
  return chunk != nullptr ? &chunk[slot % kChunkSize] : nullptr;
}

/// The slot that a handle names, or null.
inline Object* slotOf(Handle handle) {
  return at(static_cast<std::uint32_t>(reinterpret_cast<State>(handle) & kSlotMask) - 1);  // null: the largest number
}

/// Is that the state of what the handle names, and of such a kind?
inline bool names(Handle handle, State state, State kinds) {
  return (reinterpret_cast<State>(handle) ^ state) >> kSlotBits == 0 && (state & kOpen) != 0 && (state & kinds) != 0;
}

/// The object of an open handle, or null with the last error set. It may be closed at any moment.
inline Object* find(Handle handle, State kinds = kAnyKind) {
  Object* const object = slotOf(handle);
  if (object && names(handle, object->state.load(std::memory_order_acquire), kinds)) return object;
  fail(kInvalidHandle);
  return nullptr;
}

/// Gives an object that is dead back to those who make new ones.
void recycle(Object& object);

/// Makes of the state what `next` says. Gives the state before. The object is kept by something that is the caller's:
/// a place in its queue, or the ownership.
template <class Next>
State change(Object& object, Next next) {
  State before = object.state.load(std::memory_order_relaxed);
  State after;
  do {
    after = next(before);
  } while (!object.state.compare_exchange_weak(before, after, std::memory_order_acq_rel, std::memory_order_relaxed));
  if (isDead(after)) recycle(object);
  return before;
}

/// The same for what an open handle names. 0 if it names nothing of such a kind, and then the state is left alone.
template <class Next>
State change(Object* object, Handle handle, State kinds, Next next) {
  if (object == nullptr) return 0;
  State before = object->state.load(std::memory_order_relaxed);
  State after;
  do {
    if (!names(handle, before, kinds)) return 0;
    after = next(before);
  } while (!object->state.compare_exchange_weak(before, after, std::memory_order_acq_rel, std::memory_order_relaxed));
  if (isDead(after)) recycle(*object);
  return before;
}

/// Is this thread the owner?
inline bool isOwn(const Object& object, const Thread& thread) {
  return object.owner.load(std::memory_order_relaxed) == &thread;
}
/// Makes the thread the owner of a mutex, whose state says that it is taken.
void own(Object& mutex, Thread& thread);
/// Gives up all mutexes of a thread that ends.
void abandonMutexes(Thread& thread);

/// Takes a place in the queue of what the handle names, unless that is signalled; then takes that, if `takes`. Gives
/// the state before, 0 if the handle does not name anything of such a kind.
State enqueue(WaitLink& link, Handle handle, State kinds, bool takes) REQUIRES(gLock);
/// Sleeps until a waiter that is in its queues has its result, or the deadline passes (null: for good).
void sleepInQueues(Waiter& waiter, const timespec* deadline);
/// Takes a waiter off all its queues. A mutex that it was invited for is offered to the next one.
void dequeue(Waiter& waiter, Operation& operation) REQUIRES(gLock);
/// Signals an event or a thread, and hands it over to as many as it lets through. Something keeps the object that the
/// caller knows of.
void signal(Object& object, Operation& operation) REQUIRES(gLock);

}  // namespace kel::platform::posix
