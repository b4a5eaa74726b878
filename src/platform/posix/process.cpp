// SPDX-License-Identifier: MIT
#include "platform/process.h"

#include <unistd.h>

namespace kel::platform {

std::uint32_t processNumber() { return static_cast<std::uint32_t>(getpid()); }

}  // namespace kel::platform
