// Events, mutexes and threads: the objects behind the handles, and how a thread waits for one.
//
// All of it lies under one lock, gLock, which each operation holds once and briefly. What has no lock of its own below
// is guarded by it.
//
// An object lives in a slot of one table and never moves. Its handle is the slot's number with a generation above it,
// and closing the handle moves the generation on; so a stale handle is seen to be one, and nothing ever reaches memory
// through it. The slot is used again when the last reference to the object is dropped. References are held by the open
// handle, by each wait for the object, by the owner of a mutex, and by a thread that still runs.
//
// A waiting thread hangs a link into the queue of each object that it waits for, and sleeps on a word of its own.
// Whoever signals an object hands it over to the first in the queue: under the lock it takes the object for the waiter,
// takes the waiter off all queues and fixes its result. Only behind the lock is the word set, which wakes the sleeper.
// Nothing that happens in between can change the outcome: neither a reset, nor a time-out, nor a close.
//
// A mutex is not handed over when it is released, but left free, and the first in its queue is invited to come for it.
// Until that thread runs, whoever passes by may take and release the mutex as often as he likes; were it handed over,
// everybody would stand behind a thread that is not even awake, and behind the next one after it. A waiter who came in
// vain keeps its place, and after kMostInVain times the next release does hand the mutex over to it.
#pragma once

#include "platform/platform.h"
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

enum class Kind : std::uint8_t { event, mutex, thread };

struct Object {
  std::uint64_t generation = 1;
  std::uint32_t slot = 0;  ///< constant
  std::uint32_t references = 0;
  Object* nextFree = nullptr;
  WaitLink* firstWaiting = nullptr;
  WaitLink* lastWaiting = nullptr;
  Kind kind = Kind::event;
  bool manualReset = false;  ///< stays signalled when a wait takes it: a manual-reset event or a thread
  bool signalled = false;    ///< an event is set, a mutex is free, a thread has ended

  // Of a mutex.
  bool abandoned = false;  ///< its last owner ended without releasing it, and nobody was told yet
  std::uint32_t entries = 0;
  Thread* owner = nullptr;
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
  bool isWatched = false;  ///< its end will give up the mutexes that it then owns; the thread's own to read and write
};

extern thread_local constinit Thread tThread;

inline Thread& currentThread() { return tThread; }

/// Stands around each operation by which its thread may come to own a mutex, or to own none any more. While a thread
/// owns one its end is watched, and at no other time: so a thread that has used this library and lives on neither keeps
/// it loaded, nor runs into it when it has been unloaded.
class EndWatch {
 public:
  explicit EndWatch(Thread& thread) : mThread(thread) {}
  ~EndWatch();
  EndWatch(const EndWatch&) = delete;
  EndWatch& operator=(const EndWatch&) = delete;

  /// Before a mutex becomes the thread's. False, with the last error set, for want of memory.
  bool begin();

 private:
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

/// A new object with one reference, or null with the last error set.
Object* newObject(Kind kind) REQUIRES(gLock);
Handle handleOf(const Object& object);
/// The object of an open handle, or null with the last error set.
Object* find(Handle handle) REQUIRES(gLock);
Object* find(Handle handle, Kind kind) REQUIRES(gLock);
void drop(Object& object) REQUIRES(gLock);
bool close(Handle handle) REQUIRES(gLock);

/// Would a wait by this thread end at once?
inline bool isOpenTo(const Object& object, const Thread& thread) REQUIRES(gLock) {
  return object.signalled || (object.kind == Kind::mutex && object.owner == &thread);
}
/// Does to an object what a wait does that it ends. Gives kWaitObject or kWaitAbandoned.
std::uint32_t take(Object& object, Thread& thread) REQUIRES(gLock);

void enqueue(WaitLink& link) REQUIRES(gLock);
/// Sleeps until a waiter that is in its queues has its result, or the deadline passes (null: for good).
void sleepInQueues(Waiter& waiter, const timespec* deadline);
/// Takes a waiter off all its queues. A mutex that it was invited for is offered to the next one.
void dequeue(Waiter& waiter, Operation& operation) REQUIRES(gLock);
/// Signals an object and hands it over to as many as it lets through, or has the first one come for a mutex. The caller
/// holds a reference.
void signal(Object& object, Operation& operation) REQUIRES(gLock);
/// Gives up all mutexes of a thread that ends.
void abandonMutexes(Thread& thread, Operation& operation) REQUIRES(gLock);

}  // namespace kel::platform::posix
