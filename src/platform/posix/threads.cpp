// Threads of the library's own.
#include <dlfcn.h>
#include <link.h>
#include <pthread.h>

#include <csignal>

#include "platform/posix/errors.h"
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

// ---- Their life ----

/// A thread from here to its end, also if its function ends it by pthread_exit().
class Life {
 public:
  explicit Life(Object& object) : mObject(object) {}
  ~Life() {
    // If this fails for want of memory the library stays loaded, and that is all.
    if (mObject.module) pthread_setspecific(gHeldModule, mObject.module);
    Operation operation;
    abandonMutexes(currentThread(), operation);
    signal(mObject, operation);
    drop(mObject);
  }
  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;

 private:
  Object& mObject;
};

void* run(void* argument) {
  Object& object = *static_cast<Object*>(argument);
  const Life life(object);
  object.function(object.argument);
  return nullptr;
}

/// All signals except those that report a fault of the thread itself.
sigset_t signalsOfOthers() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) sigdelset(&signals, fault);
  return signals;
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

/// A thread's object, with a reference for the handle and one for the running thread.
Object* newThread(ThreadFunction function, void* argument) {
  const Operation operation;
  Object* const thread = newObject(Kind::thread);
  if (!thread) return nullptr;
  thread->manualReset = true;
  thread->function = function;
  thread->argument = argument;
  ++thread->references;
  return thread;
}

}  // namespace

Handle createThread(ThreadFunction function, void* argument, std::uint32_t* threadId) {
  static constinit std::atomic<std::uint32_t> lastId = 0;

  Object* const thread = newThread(function, argument);
  if (!thread) return nullptr;
  const Handle handle = handleOf(*thread);
  void* module = nullptr;
  if (holdModule(&module)) {
    thread->module = module;
    *threadId = lastId.fetch_add(1, std::memory_order_relaxed) + 1;
    if (startDetached(*thread)) return handle;
    if (module) dlclose(module);
  }
  const Operation operation;
  drop(*thread);
  close(handle);
  fail(kOutOfMemory);
  return nullptr;
}

// There is nothing to raise: an ordinary user may not, and for a user who may, each signal would have the woken thread
// take the processor from the one that signals.
bool setThreadPriority(Handle thread, int /*priority*/) {
  const Operation operation;
  return find(thread, Kind::thread) != nullptr;
}

}  // namespace kel::platform
