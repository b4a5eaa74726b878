// SPDX-License-Identifier: MIT
// Waits, on objects and on the clock.
#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace kel::platform {

static_assert(kInfinite == INFINITE && kMostWaited == MAXIMUM_WAIT_OBJECTS);
static_assert(kWaitAbandoned == WAIT_ABANDONED && kWaitTimeout == WAIT_TIMEOUT && kWaitFailed == WAIT_FAILED);

std::uint32_t waitForOne(Handle object, std::uint32_t milliseconds) {
  return WaitForSingleObject(object, milliseconds);
}

std::uint32_t waitForAny(std::uint32_t count, const Handle* objects, std::uint32_t milliseconds) {
  return WaitForMultipleObjects(count, objects, FALSE, milliseconds);
}

void sleepFor(std::uint32_t milliseconds) { Sleep(milliseconds); }

}  // namespace kel::platform
