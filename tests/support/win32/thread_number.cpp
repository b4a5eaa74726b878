// SPDX-License-Identifier: MIT
#include "support/thread_number.h"

#include <windows.h>

namespace kel::test {

std::uint64_t ThreadNumber() { return GetCurrentThreadId(); }

}  // namespace kel::test
