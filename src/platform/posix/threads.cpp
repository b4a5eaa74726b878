// SPDX-License-Identifier: MIT
// Threads of the library's own.
#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <sys/prctl.h>

#include <csignal>

#include "platform/posix/kernel_objects.h"

namespace kel::platform {

using namespace posix;

namespace {

// ---- The module that this code lies in ----

// A thread holds it, so that a client may unload the library while a thread that nobody waits for is still on its way
// out. The thread itself cannot let it go, for it would return into what is no longer mapped: it leaves it as the value
// of a key, and the C library lets it go behind the last of this code.
pthread_key_t gHeldModule;
bool gCanHold = false;
const char* gModuleName = "";  // of the program itself, which needs no holding

[[gnu::constructor(101)]] void findModule() {
  Dl_info ignored;
  void* map = nullptr;
  if (dladdr1(reinterpret_cast<void*>(&findModule), &ignored, &map, RTLD_DL_LINKMAP) != 0) {
    gModuleName = static_cast<const link_map*>(map)->l_name;
  }
  const auto letGo = reinterpret_cast<void (*)(void*)>(reinterpret_cast<void (*)()>(&dlclose));
  gCanHold = pthread_key_create(&gHeldModule, letGo) == 0;
}

[[gnu::destructor(101)]] void forgetModule() {
  if (gCanHold) pthread_key_delete(gHeldModule);
}

bool holdModule(void** module) {
  if (*gModuleName == '\0') return true;
  if (gCanHold) *module = dlopen(gModuleName, RTLD_NOW | RTLD_NOLOAD);
  return *module != nullptr;
}

// ---- Where they wait for the next one ----
//
// To start a thread of the system's takes longer than most threads of the library live. So one that has come to the end
// of its function serves the next function that is started, as another thread: it has a number of its own, owns
// nothing, and has its signals and its name put back. One that is ended by pthread_exit() is gone.

/// As many as 15 connections use that have 16 tasks under way each. More would lie idle as a rule.
constexpr std::uint32_t kMostParked = 256;

/// After so many milliseconds without work a thread ends. It also keeps the library mapped; so this is how long a
/// client that unloads the library with a connection open still has it.
constexpr std::uint32_t kIdleTime = 1000;

/// How many objects a wait may name that is begun for a parked thread.
constexpr std::uint32_t kMostBegun = 4;

/// A thread of the system's that waits for work, on its own stack. If that work begins with a wait, the thread sleeps
/// on in the queues of what it waits for, and is woken once, by the end of the wait.
struct Parked {
  Object* work = nullptr;  ///< null: end
  Parked* next = nullptr;
  WaitLink links[kMostBegun];
  Waiter waiter{.thread = currentThread(), .links = links, .count = 0};
  timespec deadline = {};  ///< of the wait, if it has one
  bool hasDeadline = false;
};

constinit Parked* gParked GUARDED_BY(gLock) = nullptr;  // the one that came last first: its memory is still at hand
constinit std::uint32_t gParkedCount GUARDED_BY(gLock) = 0;
constinit bool gKeepsThreads GUARDED_BY(gLock) = false;

bool park(Parked& place) REQUIRES(gLock) {
  if (!gKeepsThreads || gParkedCount == kMostParked) return false;
  place.next = gParked;
  place.waiter.count = 0;
  place.waiter.result = kWaitTimeout;
  place.waiter.inVain = 0;
  place.waiter.nextToWake = nullptr;
  place.waiter.word.store(kAsleep, std::memory_order_relaxed);
  gParked = &place;
  ++gParkedCount;
  return true;
}

Parked* takeParked() REQUIRES(gLock) {
  Parked* const place = gParked;
  if (place == nullptr) return nullptr;
  gParked = place->next;
  --gParkedCount;
  return place;
}

/// False if it was taken already.
bool leave(const Parked& place) REQUIRES(gLock) {
  for (Parked** link = &gParked; *link != nullptr; link = &(*link)->next) {
    if (*link != &place) continue;
    *link = place.next;
    --gParkedCount;
    return true;
  }
  return false;
}

/// Has a thread that was taken wake and begin with its work.
void call(Parked& place, Operation& operation) REQUIRES(gLock) {
  place.waiter.result = kNotBegun;
  operation.wakeLater(place.waiter);
}

/// Begins a wait for a thread that was taken. False if the thread must do so itself: the wait ends at once, or before
/// the thread would look, or is for what is no event.
bool beginWait(Parked& place, std::uint32_t count, const Handle* objects, std::uint32_t milliseconds,
               Operation& operation) REQUIRES(gLock) {
  if (count == 0 || count > kMostBegun || milliseconds < kIdleTime) return false;
  for (std::uint32_t& i = place.waiter.count; i < count; ++i) {
    place.links[i].waiter = &place.waiter;
    const State before = enqueue(place.links[i], objects[i], kEvent, false);
    if (before != 0 && (before & kSignalled) == 0) continue;
    dequeue(place.waiter, operation);
    i = 0;
    return false;
  }
  place.hasDeadline = milliseconds != kInfinite;
  if (place.hasDeadline) place.deadline = after(milliseconds);
  return true;
}

/// False if the thread is to end.
bool awaitWork(Parked& place) {
  const timespec idleUntil = after(kIdleTime);
  while (place.waiter.word.load(std::memory_order_acquire) == kAsleep) {
    if (sleepWhile(place.waiter.word, kAsleep, &idleUntil)) continue;
    const Operation operation;
    if (leave(place)) return false;
    break;
  }
  // It has work by now, and either has been called, or is about to be, or waits.
  sleepInQueues(place.waiter, place.hasDeadline ? &place.deadline : nullptr);
  place.waiter.thread.begunWait = place.waiter.result;
  return place.work != nullptr;
}

// In a copy of the process there is but the thread that made it. The lock may be another's for ever there, and nobody
// else runs yet.
void forgetParked() NO_THREAD_SAFETY_ANALYSIS {
  gParked = nullptr;
  gParkedCount = 0;
}

[[gnu::constructor(101)]] void watchForks() { pthread_atfork(nullptr, nullptr, forgetParked); }

// ---- Their life ----

/// All signals except those that report a fault of the thread itself.
sigset_t signalsOfOthers() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) sigdelset(&signals, fault);
  return signals;
}

/// What a callback may change of its thread, and the next one shall not find changed.
class Appearance {
 public:
  Appearance() { prctl(PR_GET_NAME, mName); }
  void putBack() const {
    pthread_sigmask(SIG_SETMASK, &mSignals, nullptr);
    prctl(PR_SET_NAME, mName);
  }

 private:
  const sigset_t mSignals = signalsOfOthers();
  char mName[16] = {};  // as long as the system has them
};

/// A thread from here to its end, also if its function ends it by pthread_exit().
class Life {
 public:
  Life(Object& object, Parked& place) : mObject(object), mPlace(place) { currentThread().isOurs = true; }
  ~Life() {
    Thread& self = currentThread();
    self.isOurs = false;
    abandonMutexes(self);
    Operation operation;
    signal(mObject, operation);
    self.begunWait = kNotBegun;
    mPlace.work = nullptr;
    if (mCameToItsEnd && park(mPlace)) {
      self.number = 0;
    } else {  // called already, and for nothing
      mPlace.waiter.result = kNotBegun;
      mPlace.waiter.word.store(kReleased, std::memory_order_relaxed);
    }
  }
  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;

  void run(const Appearance& appearance) {
    mObject.function(mObject.argument);
    appearance.putBack();
    mCameToItsEnd = true;
  }

 private:
  Object& mObject;
  Parked& mPlace;
  bool mCameToItsEnd = false;
};

void* run(void* argument) {
  const Appearance appearance;
  Parked place;
  place.work = static_cast<Object*>(argument);
  // If this fails for want of memory the library stays loaded, and that is all.
  if (place.work->module) pthread_setspecific(gHeldModule, place.work->module);
  do {
    Life(*place.work, place).run(appearance);
  } while (awaitWork(place));
  return nullptr;
}

// Signals are blocked here, for the new thread to inherit: one that is sent to the process then runs its handler on a
// thread of the client's, which knows about it.
bool startDetached(Object& object) {
  const sigset_t blocked = signalsOfOthers();
  sigset_t before;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  pthread_t thread;
  const bool started = pthread_create(&thread, &attributes, run, &object) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return started;
}

bool startHoldingModule(Object& object) {
  if (!holdModule(&object.module)) return false;
  if (startDetached(object)) return true;
  if (object.module) dlclose(object.module);
  return false;
}

}  // namespace

Handle createThread(ThreadFunction function, void* argument, std::uint32_t* threadId) {
  return createWaitingThread(function, argument, threadId, 0, nullptr, 0);
}

Handle createWaitingThread(ThreadFunction function, void* argument, std::uint32_t* threadId, std::uint32_t count,
                           const Handle* objects, std::uint32_t milliseconds) {
  static constinit std::atomic<std::uint32_t> lastId = 0;

  Object* const thread = newObject(kThread | kManualReset);
  if (!thread) return nullptr;
  const Handle handle = handleOf(*thread);
  thread->function = function;
  thread->argument = argument;
  *threadId = lastId.fetch_add(1, std::memory_order_relaxed) + 1;
  Parked* parked = nullptr;
  {
    Operation operation;
    gKeepsThreads = true;
    parked = takeParked();
    if (parked) {
      parked->work = thread;
      if (!beginWait(*parked, count, objects, milliseconds, operation)) call(*parked, operation);
    }
  }
  if (parked || startHoldingModule(*thread)) return handle;
  change(*thread, [](State state) { return state | kSignalled; });  // it is not running
  closeHandle(handle);
  fail(kOutOfMemory);
  return nullptr;
}

void releaseThreads() {
  Operation operation;
  gKeepsThreads = false;
  while (Parked* const place = takeParked()) call(*place, operation);
}

// There is nothing to raise: an ordinary user may not, and for a user who may, each signal would have the woken thread
// take the processor from the one that signals.
bool setThreadPriority(Handle thread, int /*priority*/) { return find(thread, kThread) != nullptr; }

}  // namespace kel::platform
