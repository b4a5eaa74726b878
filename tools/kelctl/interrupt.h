/* SPDX-License-Identifier: MIT */
// Ctrl-C as an orderly end: a verb that waits gives its connection back.
#pragma once

#include <chrono>

namespace kelctl {

/// From here on Ctrl-C is only noted. A second one ends the program at once. A pipe whose reader has gone ends nothing
/// by itself either: writing to it fails.
void catchInterrupt();

/// Has it noted anew.
void forgetInterrupt();

/// Whether it was pressed. A signal handler can do no more than note it, so whoever waits looks here from time to time.
bool interrupted();
inline constexpr std::chrono::milliseconds kLook{100};

}  // namespace kelctl
