/* SPDX-License-Identifier: MIT */
// The library's own module.
#pragma once

#include <atomic>

#include "platform/platform.h"

namespace kel {

/// Kept by the library's entry point, for those who read built-in resources. Null means the program itself, which is
/// where a program that links the static library has them.
inline std::atomic<platform::Module> gHandlerModule{nullptr};

}  // namespace kel
