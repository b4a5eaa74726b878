/* SPDX-License-Identifier: MIT */
// The number of a thread, for code that malloc() itself runs: the standard library's asks for memory on some systems.
#pragma once

#include <cstdint>

namespace kel::test {

/// That of the calling thread. Never 0.
std::uint64_t ThreadNumber();

}  // namespace kel::test
