/* SPDX-License-Identifier: MIT */
// The pipe library that this process has loaded.
#pragma once

#include <string>

namespace kelctl {

/// The file that it was loaded from; empty if it is not loaded.
std::string pipeLibraryFile();

/// Whether it is the stand-in, which has controls beside the calls of a pipe library.
bool isStandIn();

}  // namespace kelctl
