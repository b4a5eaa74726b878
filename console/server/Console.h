/* SPDX-License-Identifier: MIT */
// Everything that the console knows, for the requests that ask for it.
#pragma once

#include <string>

#include "Calls.h"
#include "Device.h"
#include "Journal.h"
#include "StandIn.h"

namespace kel::console {

struct Console {
  explicit Console(Device::Settings settings) : device(std::move(settings), journal, calls) {}

  /// All that a page has to know to begin with.
  Json snapshot() const;
  /// Whether the device is the stand-in of this process.
  bool hasStandIn() const;
  /// Versions and settings.
  Json about() const;

  Journal journal;
  Calls calls{journal};
  StandIn standIn;
  Device device;
};

}  // namespace kel::console
