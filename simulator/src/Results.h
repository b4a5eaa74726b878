/* SPDX-License-Identifier: MIT */
// Forced results and call counts of the library's functions. Without a lock, as traces and tasks pass here all the
// time.
#pragma once

#include <cstdint>
#include <optional>

#include "SluiceHubSim.h"

namespace kel::sim {

/// Counts a call. The result that the function is to return at once, if one was forced.
std::optional<std::uint32_t> EnterFunction(SluiceHubSimFunction function);

void ResetResults();

}  // namespace kel::sim
