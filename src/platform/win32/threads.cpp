// SPDX-License-Identifier: MIT
// Threads of the library's own.
#include <memory>
#include <new>

#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace kel::platform {
namespace {

struct Start {
  ThreadFunction function;
  void* argument;
  HMODULE module;
};

// The thread holds the module that its code lies in, and gives it back as the last thing that it does. So a client may
// unload the library while a thread that nobody waits for is still on its way out.
DWORD WINAPI run(void* argument) {
  const Start start = *static_cast<Start*>(argument);
  delete static_cast<Start*>(argument);
  FreeLibraryAndExitThread(start.module, start.function(start.argument));
}

}  // namespace

Handle createThread(ThreadFunction function, void* argument, std::uint32_t* threadId) {
  auto start = std::unique_ptr<Start>(new (std::nothrow) Start{function, argument, nullptr});
  if (!start) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<const char*>(run), &start->module)) {
    return nullptr;
  }
  DWORD id = 0;
  const HANDLE thread = CreateThread(nullptr, 0, run, start.get(), 0, &id);
  if (!thread) {
    FreeLibrary(start->module);
    return nullptr;
  }
  start.release();  // run() has it
  *threadId = id;
  return thread;
}

Handle createWaitingThread(ThreadFunction function, void* argument, std::uint32_t* threadId, std::uint32_t /*count*/,
                           const Handle* /*objects*/, std::uint32_t /*milliseconds*/) {
  return createThread(function, argument, threadId);
}

void releaseThreads() {}

// Raising a priority needs no privilege here, so a refusal is the fault of the handle.
bool setThreadPriority(Handle thread, int priority) { return SetThreadPriority(thread, priority) != 0; }

}  // namespace kel::platform
