// SPDX-License-Identifier: MIT
#include "platform/posix/kernel_objects.h"
#include "support/process_resources.h"

namespace kel::test {

std::optional<std::size_t> OpenHandles() { return platform::posix::openHandles(); }

}  // namespace kel::test
