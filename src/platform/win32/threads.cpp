// Threads of the library's own.
#include <memory>

#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace kel::platform {
namespace {

struct Start {
  ThreadFunction function;
  void* argument;
};

DWORD WINAPI run(void* argument) {
  const Start start = *static_cast<Start*>(argument);
  delete static_cast<Start*>(argument);
  return start.function(start.argument);
}

}  // namespace

Handle createThread(ThreadFunction function, void* argument, std::uint32_t* threadId) {
  auto start = std::unique_ptr<Start>(new Start{function, argument});
  DWORD id = 0;
  const HANDLE thread = CreateThread(nullptr, 0, run, start.get(), 0, &id);
  if (!thread) return nullptr;
  start.release();  // run() has it
  *threadId = id;
  return thread;
}

// Raising a priority needs no privilege here, so a refusal is the fault of the handle.
bool setThreadPriority(Handle thread, int priority) { return SetThreadPriority(thread, priority) != 0; }

}  // namespace kel::platform
