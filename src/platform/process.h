// This process. Apart from platform.h, for those who need nothing else of it.
#pragma once

#include <cstdint>

namespace kel::platform {

/// Number of this process. A copy of it, where a system makes copies by fork(), has another. What was kept before tells
/// the copy so that it is one: of the threads that it knows of there is only the one that made it, and a lock or a
/// condition that others had in use is of no use any more.
std::uint32_t processNumber();

}  // namespace kel::platform
