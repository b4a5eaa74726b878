/* SPDX-License-Identifier: MIT */
// Start, end, control status and connection parameters.
#pragma once

namespace kel::sim {

void ResetControlStatus();

}  // namespace kel::sim
