/* SPDX-License-Identifier: MIT */
// Keeps workers running: one process for each device, under one small parent.
#pragma once

#include <string>
#include <vector>

namespace kel::fleet {

/// Runs each command in a process of its own until SIGTERM or SIGINT, and one that ends by itself again: at once the
/// first time, then after pauses that grow to ten seconds. A worker that says by its status that it is of no use to try
/// again (wrong arguments, a name that is taken) is not. Then stops them all, and returns the exit status.
int superviseWorkers(const std::vector<std::vector<std::string>>& commands);

}  // namespace kel::fleet
