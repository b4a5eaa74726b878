// Threads of the library's own.
#include <pthread.h>
#include <sys/resource.h>

#include <memory>

#include "platform/posix/errors.h"
#include "platform/posix/kernel_objects.h"

namespace kel::platform {

using namespace posix;

namespace {

struct Start {
  ThreadFunction function;
  void* argument;
  Object* object;
};

void applyPriority(const Object& thread) REQUIRES(gLock) {
  constexpr int kNicePerStep = -5;
  setpriority(PRIO_PROCESS, static_cast<id_t>(thread.systemId), thread.priority * kNicePerStep);
}

// The handle is signalled by the end of currentThread(), which is made here first and so ends last: behind it nothing
// of this library runs on the thread any more. The C library keeps a shared object mapped while such an end is pending
// in it, so a client may wait for the thread and unload the library at once.
void* run(void* argument) {
  const Start start = *static_cast<Start*>(argument);
  delete static_cast<Start*>(argument);
  Thread& self = currentThread();
  {
    const Operation operation;
    self.ownObject = start.object;
    start.object->systemId = gettid();
    if (start.object->priority != 0) applyPriority(*start.object);
  }
  start.function(start.argument);
  return nullptr;
}

bool startDetached(Start* start) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const bool started = pthread_create(&thread, &attributes, run, start) == 0;
  pthread_attr_destroy(&attributes);
  return started;
}

}  // namespace

Handle createThread(ThreadFunction function, void* argument, std::uint32_t* threadId) {
  static constinit std::atomic<std::uint32_t> lastId = 0;

  auto start = std::unique_ptr<Start>(new Start{function, argument, nullptr});
  Handle handle;
  {
    const Operation operation;
    Object* const thread = newObject(Kind::thread);
    if (!thread) return nullptr;
    thread->manualReset = true;
    ++thread->references;  // the running thread's
    start->object = thread;
    handle = handleOf(*thread);
  }
  *threadId = lastId.fetch_add(1, std::memory_order_relaxed) + 1;
  if (startDetached(start.get())) {
    start.release();  // run() has it
    return handle;
  }
  const Operation operation;
  drop(*start->object);
  close(handle);
  fail(kOutOfMemory);
  return nullptr;
}

bool setThreadPriority(Handle thread, int priority) {
  const Operation operation;
  Object* const object = find(thread, Kind::thread);
  if (!object) return false;
  object->priority = priority;
  // A thread that does not run yet asks for itself; the number of one that has ended may be another's by now.
  if (object->systemId != 0 && !object->signalled) applyPriority(*object);
  return true;
}

}  // namespace kel::platform
