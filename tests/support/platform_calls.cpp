#include "support/platform_calls.h"

#include <optional>
#include <utility>

#include "platform/platform.h"

namespace {

using kel::platform::Handle;
using kel::platform::ThreadFunction;
using kel::test::PlatformCall;

thread_local constinit std::optional<PlatformCall> tFailing;
thread_local constinit const std::function<void()>* tAfterSetEvent = nullptr;
thread_local constinit const std::function<void()>* tAfterReleaseMutex = nullptr;

}  // namespace

// The linker sends calls of a wrapped function to __wrap_, and calls of __real_ to the function itself. Behind that
// stands the name that the compiler gives to kel::platform::createThread() and the others.
extern "C" {

Handle __real__ZN3kel8platform12createThreadEPFjPvES1_Pj(ThreadFunction function, void* argument, std::uint32_t* id);
bool __real__ZN3kel8platform17setThreadPriorityEPvi(Handle thread, int priority);
bool __real__ZN3kel8platform11closeHandleEPv(Handle handle);
bool __real__ZN3kel8platform8setEventEPv(Handle event);
bool __real__ZN3kel8platform12releaseMutexEPv(Handle mutex);

Handle __wrap__ZN3kel8platform12createThreadEPFjPvES1_Pj(ThreadFunction function, void* argument, std::uint32_t* id);
bool __wrap__ZN3kel8platform17setThreadPriorityEPvi(Handle thread, int priority);
bool __wrap__ZN3kel8platform11closeHandleEPv(Handle handle);
bool __wrap__ZN3kel8platform8setEventEPv(Handle event);
bool __wrap__ZN3kel8platform12releaseMutexEPv(Handle mutex);

Handle __wrap__ZN3kel8platform12createThreadEPFjPvES1_Pj(ThreadFunction function, void* argument, std::uint32_t* id) {
  if (tFailing == PlatformCall::kCreateThread) return nullptr;
  return __real__ZN3kel8platform12createThreadEPFjPvES1_Pj(function, argument, id);
}

bool __wrap__ZN3kel8platform17setThreadPriorityEPvi(Handle thread, int priority) {
  return tFailing != PlatformCall::kSetThreadPriority &&
         __real__ZN3kel8platform17setThreadPriorityEPvi(thread, priority);
}

bool __wrap__ZN3kel8platform11closeHandleEPv(Handle handle) {
  return tFailing != PlatformCall::kCloseHandle && __real__ZN3kel8platform11closeHandleEPv(handle);
}

bool __wrap__ZN3kel8platform8setEventEPv(Handle event) {
  const bool set = __real__ZN3kel8platform8setEventEPv(event);
  if (tAfterSetEvent != nullptr) (*tAfterSetEvent)();
  return set;
}

bool __wrap__ZN3kel8platform12releaseMutexEPv(Handle mutex) {
  const bool released = __real__ZN3kel8platform12releaseMutexEPv(mutex);
  if (const auto* const action = std::exchange(tAfterReleaseMutex, nullptr)) (*action)();
  return released;
}

}  // extern "C"

namespace kel::test {

FailingCall::FailingCall(PlatformCall call) { tFailing = call; }
FailingCall::~FailingCall() { tFailing.reset(); }

AfterSetEvent::AfterSetEvent(std::function<void()> action) : mAction(std::move(action)) { tAfterSetEvent = &mAction; }
AfterSetEvent::~AfterSetEvent() { tAfterSetEvent = nullptr; }

AfterReleaseMutex::AfterReleaseMutex(std::function<void()> action) : mAction(std::move(action)) {
  tAfterReleaseMutex = &mAction;
}
AfterReleaseMutex::~AfterReleaseMutex() { tAfterReleaseMutex = nullptr; }

}  // namespace kel::test
