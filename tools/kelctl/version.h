/* SPDX-License-Identifier: MIT */
#pragma once

#include <string>

namespace kelctl {

/// The library's version as "4.1.0.21".
std::string libraryVersion();

}  // namespace kelctl
