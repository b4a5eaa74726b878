/* SPDX-License-Identifier: MIT */
// The library's interface version.
#pragma once

namespace kel::sim {

void ResetVersions();

}  // namespace kel::sim
