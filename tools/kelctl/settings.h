/* SPDX-License-Identifier: MIT */
// What the library's settings say about waiting, read as the library reads them.
#pragma once

#include <chrono>

namespace kelctl {

/// RxWaitTimeout: how long the library waits for an answer.
std::chrono::milliseconds waitLimit();

}  // namespace kelctl
