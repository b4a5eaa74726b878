// SPDX-License-Identifier: MIT
#include "support/thread_number.h"

#include <unistd.h>

namespace kel::test {

std::uint64_t ThreadNumber() { return static_cast<std::uint64_t>(gettid()); }

}  // namespace kel::test
