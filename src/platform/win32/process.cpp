// SPDX-License-Identifier: MIT
#include "platform/process.h"

#include "platform/win32/windows_api.h"

namespace kel::platform {

std::uint32_t processNumber() { return GetCurrentProcessId(); }

}  // namespace kel::platform
