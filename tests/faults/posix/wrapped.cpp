// SPDX-License-Identifier: MIT
// Linked into the library under test, which is otherwise the library itself: the linker sends its calls of a wrapped
// function to __wrap_, and calls of __real_ to the function.
#include <dlfcn.h>

#include "faults/posix/faults.h"
#include "platform/platform.h"

namespace kel::platform {

Handle RealCreateEvent(bool manualReset, bool set) asm("__real__ZN3kel8platform11createEventEbb");
Handle WrapCreateEvent(bool manualReset, bool set) asm("__wrap__ZN3kel8platform11createEventEbb");
Handle RealCreateMutex(bool owned) asm("__real__ZN3kel8platform11createMutexEb");
Handle WrapCreateMutex(bool owned) asm("__wrap__ZN3kel8platform11createMutexEb");

Handle WrapCreateEvent(bool manualReset, bool set) {
  return KelFaultsObjectFails() ? nullptr : RealCreateEvent(manualReset, set);
}

Handle WrapCreateMutex(bool owned) { return KelFaultsObjectFails() ? nullptr : RealCreateMutex(owned); }

}  // namespace kel::platform

extern "C" {

void* __real_dlopen(const char* name, int flags);
void* __wrap_dlopen(const char* name, int flags);
void* __real_dlsym(void* library, const char* name);
void* __wrap_dlsym(void* library, const char* name);

void* __wrap_dlopen(const char* name, int flags) { return KelFaultsLoadFails() ? nullptr : __real_dlopen(name, flags); }

void* __wrap_dlsym(void* library, const char* name) {
  return KelFaultsLoadFails() ? nullptr : __real_dlsym(library, name);
}

}  // extern "C"
