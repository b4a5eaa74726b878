/* SPDX-License-Identifier: MIT */
// The traces that were kept.
#pragma once

namespace kel::sim {

/// Forgets the traces and keeps none from now on.
void ResetTraces();

}  // namespace kel::sim
