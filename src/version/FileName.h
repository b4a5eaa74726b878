/* SPDX-License-Identifier: MIT */
// The name of a file, out of its path.
#pragma once

#include "platform/kept_blocks.h"

namespace kel {

/// What follows the path's last separator, in a block that is the caller's; a path without one is copied whole. Where
/// it has a forward slash anywhere, backslashes do not count. False, with null, for a null path and for one that ends
/// in its separator, which is then cut off in `path` itself, and a scratch copy becomes a kept block.
bool ExtractFileName(char* path, char** fileNameWithoutPath, const KeptBlocks& keptBlocks);

}  // namespace kel
