/* SPDX-License-Identifier: MIT */
// Start, end, control status and connection parameters.
#pragma once

namespace kel::sim {

void ResetControlStatus();
/// At the end of the process, or of this library, nobody is told any more.
void HaltControlStatus();

}  // namespace kel::sim
