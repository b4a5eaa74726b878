// SPDX-License-Identifier: MIT
#include "support/platform_calls.h"

#include <atomic>
#include <optional>
#include <utility>

#include "platform/platform.h"

namespace {

using kel::platform::Handle;
using kel::platform::Module;
using kel::platform::ThreadFunction;
using kel::test::NotedTimes;
using kel::test::PlatformCall;

thread_local constinit std::optional<PlatformCall> tFailing;
thread_local constinit std::uint32_t tLetThrough = 0;
thread_local constinit const std::function<void()>* tAfterSetEvent = nullptr;
thread_local constinit const std::function<void()>* tAfterReleaseMutex = nullptr;
thread_local constinit NotedTimes* tNotedTimes = nullptr;
std::atomic<std::uint32_t> gLoads{0};
std::atomic<std::uint32_t> gFrees{0};

bool Fails(PlatformCall call) {
  if (tFailing != call) return false;
  if (tLetThrough == 0) return true;
  --tLetThrough;
  return false;
}

}  // namespace

// The linker sends calls of a wrapped function to __wrap_, and calls of __real_ to the function itself. Behind that
// stands the name that the compiler gives to kel::platform::createThread() and the others.
extern "C" {

Handle __real__ZN3kel8platform12createThreadEPFjPvES1_Pj(ThreadFunction function, void* argument, std::uint32_t* id);
Handle __real__ZN3kel8platform19createWaitingThreadEPFjPvES1_PjjPKS1_j(ThreadFunction function, void* argument,
                                                                       std::uint32_t* id, std::uint32_t count,
                                                                       const Handle* objects,
                                                                       std::uint32_t milliseconds);
bool __real__ZN3kel8platform17setThreadPriorityEPvi(Handle thread, int priority);
bool __real__ZN3kel8platform11closeHandleEPv(Handle handle);
bool __real__ZN3kel8platform8setEventEPv(Handle event);
bool __real__ZN3kel8platform12releaseMutexEPv(Handle mutex);
std::uint32_t __real__ZN3kel8platform10waitForOneEPvj(Handle object, std::uint32_t milliseconds);
std::uint32_t __real__ZN3kel8platform10waitForAnyEjPKPvj(std::uint32_t count, const Handle* objects,
                                                         std::uint32_t milliseconds);
void __real__ZN3kel8platform8sleepForEj(std::uint32_t milliseconds);
Module __real__ZN3kel8platform11loadLibraryEPKc(const char* name);
bool __real__ZN3kel8platform11freeLibraryEPv(Module library);

Handle __wrap__ZN3kel8platform12createThreadEPFjPvES1_Pj(ThreadFunction function, void* argument, std::uint32_t* id);
Handle __wrap__ZN3kel8platform19createWaitingThreadEPFjPvES1_PjjPKS1_j(ThreadFunction function, void* argument,
                                                                       std::uint32_t* id, std::uint32_t count,
                                                                       const Handle* objects,
                                                                       std::uint32_t milliseconds);
bool __wrap__ZN3kel8platform17setThreadPriorityEPvi(Handle thread, int priority);
bool __wrap__ZN3kel8platform11closeHandleEPv(Handle handle);
bool __wrap__ZN3kel8platform8setEventEPv(Handle event);
bool __wrap__ZN3kel8platform12releaseMutexEPv(Handle mutex);
std::uint32_t __wrap__ZN3kel8platform10waitForOneEPvj(Handle object, std::uint32_t milliseconds);
std::uint32_t __wrap__ZN3kel8platform10waitForAnyEjPKPvj(std::uint32_t count, const Handle* objects,
                                                         std::uint32_t milliseconds);
void __wrap__ZN3kel8platform8sleepForEj(std::uint32_t milliseconds);
Module __wrap__ZN3kel8platform11loadLibraryEPKc(const char* name);
bool __wrap__ZN3kel8platform11freeLibraryEPv(Module library);

Handle __wrap__ZN3kel8platform12createThreadEPFjPvES1_Pj(ThreadFunction function, void* argument, std::uint32_t* id) {
  if (Fails(PlatformCall::kCreateThread)) return nullptr;
  return __real__ZN3kel8platform12createThreadEPFjPvES1_Pj(function, argument, id);
}

Handle __wrap__ZN3kel8platform19createWaitingThreadEPFjPvES1_PjjPKS1_j(ThreadFunction function, void* argument,
                                                                       std::uint32_t* id, std::uint32_t count,
                                                                       const Handle* objects,
                                                                       std::uint32_t milliseconds) {
  if (Fails(PlatformCall::kCreateThread)) return nullptr;
  return __real__ZN3kel8platform19createWaitingThreadEPFjPvES1_PjjPKS1_j(function, argument, id, count, objects,
                                                                         milliseconds);
}

bool __wrap__ZN3kel8platform17setThreadPriorityEPvi(Handle thread, int priority) {
  return !Fails(PlatformCall::kSetThreadPriority) && __real__ZN3kel8platform17setThreadPriorityEPvi(thread, priority);
}

bool __wrap__ZN3kel8platform11closeHandleEPv(Handle handle) {
  return !Fails(PlatformCall::kCloseHandle) && __real__ZN3kel8platform11closeHandleEPv(handle);
}

bool __wrap__ZN3kel8platform8setEventEPv(Handle event) {
  if (Fails(PlatformCall::kSetEvent)) return false;
  const bool set = __real__ZN3kel8platform8setEventEPv(event);
  if (const auto* const action = std::exchange(tAfterSetEvent, nullptr)) {
    (*action)();
    tAfterSetEvent = action;
  }
  return set;
}

bool __wrap__ZN3kel8platform12releaseMutexEPv(Handle mutex) {
  if (Fails(PlatformCall::kReleaseMutex)) return false;
  const bool released = __real__ZN3kel8platform12releaseMutexEPv(mutex);
  if (const auto* const action = std::exchange(tAfterReleaseMutex, nullptr)) (*action)();
  return released;
}

std::uint32_t __wrap__ZN3kel8platform10waitForOneEPvj(Handle object, std::uint32_t milliseconds) {
  if (tNotedTimes != nullptr) tNotedTimes->waits.push_back(milliseconds);
  if (Fails(PlatformCall::kWaitForOne)) return kel::platform::kWaitFailed;
  if (Fails(PlatformCall::kWaitForOneInTime)) return kel::platform::kWaitTimeout;
  return __real__ZN3kel8platform10waitForOneEPvj(object, milliseconds);
}

std::uint32_t __wrap__ZN3kel8platform10waitForAnyEjPKPvj(std::uint32_t count, const Handle* objects,
                                                         std::uint32_t milliseconds) {
  if (tNotedTimes != nullptr) tNotedTimes->waitsForAny.push_back(milliseconds);
  return __real__ZN3kel8platform10waitForAnyEjPKPvj(count, objects, milliseconds);
}

void __wrap__ZN3kel8platform8sleepForEj(std::uint32_t milliseconds) {
  if (tNotedTimes != nullptr) tNotedTimes->sleeps.push_back(milliseconds);
  __real__ZN3kel8platform8sleepForEj(milliseconds);
}

Module __wrap__ZN3kel8platform11loadLibraryEPKc(const char* name) {
  ++gLoads;
  return __real__ZN3kel8platform11loadLibraryEPKc(name);
}

bool __wrap__ZN3kel8platform11freeLibraryEPv(Module library) {
  ++gFrees;
  return __real__ZN3kel8platform11freeLibraryEPv(library);
}

}  // extern "C"

namespace kel::test {

FailingCall::FailingCall(PlatformCall call, std::uint32_t after) {
  tFailing = call;
  tLetThrough = after;
}
FailingCall::~FailingCall() { tFailing.reset(); }

AfterSetEvent::AfterSetEvent(std::function<void()> action) : mAction(std::move(action)) { tAfterSetEvent = &mAction; }
AfterSetEvent::~AfterSetEvent() { tAfterSetEvent = nullptr; }

AfterReleaseMutex::AfterReleaseMutex(std::function<void()> action) : mAction(std::move(action)) {
  tAfterReleaseMutex = &mAction;
}
AfterReleaseMutex::~AfterReleaseMutex() { tAfterReleaseMutex = nullptr; }

NotedTimes::NotedTimes() { tNotedTimes = this; }
NotedTimes::~NotedTimes() { tNotedTimes = nullptr; }

LibraryCalls CountedLibraryCalls() { return {gLoads, gFrees}; }

}  // namespace kel::test
