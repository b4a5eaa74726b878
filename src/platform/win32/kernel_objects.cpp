// SPDX-License-Identifier: MIT
// Handles; events and mutexes.
#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace kel::platform {

Handle createEvent(bool manualReset, bool set) { return CreateEventA(nullptr, manualReset, set, nullptr); }

bool setEvent(Handle event) { return SetEvent(event) != 0; }

bool resetEvent(Handle event) { return ResetEvent(event) != 0; }

Handle createMutex(bool owned) { return CreateMutexA(nullptr, owned, nullptr); }

bool releaseMutex(Handle mutex) { return ReleaseMutex(mutex) != 0; }

// The system itself looks after the mutexes of a thread that ends.
MutexScope::MutexScope() = default;
MutexScope::~MutexScope() = default;

bool closeHandle(Handle handle) { return CloseHandle(handle) != 0; }

}  // namespace kel::platform
