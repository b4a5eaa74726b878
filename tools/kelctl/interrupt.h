// Ctrl-C as an orderly end: a verb that runs until then gives its connection back.
#pragma once

#include <chrono>

namespace kelctl {

/// From here on Ctrl-C ends nothing by itself.
void catchInterrupt();

/// Whether it was pressed. A signal handler can do no more than note it, so whoever waits looks here from time to time.
bool interrupted();
inline constexpr std::chrono::milliseconds kLook{100};

}  // namespace kelctl
