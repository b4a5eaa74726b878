/* SPDX-License-Identifier: MIT */
// Keeps workers running: one process for each device, under one small parent.
#pragma once

#include <string>
#include <vector>

namespace kel::fleet {

/// Runs each command in a process of its own until SIGTERM or SIGINT, and one that ends by itself again: at once the
/// first time, then after pauses that grow to ten seconds: a name that is taken may be that of a worker that has just
/// died. One that says by its status that its arguments are wrong is not. Then stops them all, and returns the exit
/// status.
int superviseWorkers(const std::vector<std::vector<std::string>>& commands);

}  // namespace kel::fleet
