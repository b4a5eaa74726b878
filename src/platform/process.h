/* SPDX-License-Identifier: MIT */
// This process. Apart from platform.h, for those who need nothing else of it.
#pragma once

#include <cstdint>

namespace kel::platform {

/// Number of this process. Where a system can copy a process by fork(), the copy has another number. Code that kept the
/// number can tell by it that it runs in a copy: there the thread that made the copy is the only one, and a lock or a
/// condition that another thread was using is of no use any more.
std::uint32_t processNumber();

}  // namespace kel::platform
