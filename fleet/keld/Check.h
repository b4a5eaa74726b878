/* SPDX-License-Identifier: MIT */
// `keld check`: tells what would keep a worker from its work, before it is started.
#pragma once

#include <iosfwd>

#include "keld/WorkerOptions.h"

namespace kel::fleet {

/// Writes one line for each thing that was looked at. Returns whether all of it is in order.
bool check(const WorkerOptions& options, std::ostream& out);

/// What is wrong with a worker's own options, which is seen without asking anybody. Empty: nothing.
std::string mistakeIn(const WorkerOptions& options);

}  // namespace kel::fleet
