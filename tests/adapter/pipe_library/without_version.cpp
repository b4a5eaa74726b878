// SPDX-License-Identifier: MIT
// The dispatcher function of a pipe library, with a table that does nothing.
#include "adapter/SluiceHub.h"

extern "C" kel::tL5DispatcherFunctions* SLUICE_HUB_GetServiceDispatcherFunctions() {
  static kel::tL5DispatcherFunctions functions = {};
  return &functions;
}
