// SPDX-License-Identifier: MIT
// What programs load this library for that are not linked with it; see kel/uri.hpp.
#include "kel/detail/fleet_library.hpp"
#include "kel/fleet.hpp"
#include "road/NatsRoad.h"

extern "C" [[gnu::visibility("default")]] kel::detail::OpenFleetRoad KELHandler_fleet_openRoad;

extern "C" kel::detail::Road* KELHandler_fleet_openRoad(int layerVersion, const std::string& uri,
                                                        const std::string& holder, std::string& reason) {
  if (layerVersion != kel::detail::kLayerVersion) {
    reason = "the package kelhandler-fleet and the program are of different versions";
    return nullptr;
  }
  const kel::Result<kel::fleet::Address> address = kel::fleet::addressOf(uri);
  const kel::Result<kel::fleet::Access> access = kel::fleet::configuredAccess();
  if (!address || !access) {
    reason = (address ? access.error() : address.error()).subject;
    return nullptr;
  }
  // The device of this host is the program's own to reach.
  return address->servers.empty() ? nullptr : kel::fleet::roadTo(*address, {*access, holder}).release();
}
