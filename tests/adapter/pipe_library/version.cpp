// SPDX-License-Identifier: MIT
// The version function of a pipe library.
#include "adapter/SluiceHub.h"

extern "C" VersionArray SLUICE_HUB_GetVersion() { return {{9, 8, 7, 6, 5}}; }
