// SPDX-License-Identifier: MIT
/**
 * @file
 * Devices by URI, wherever they are:
 *
 *     kel::Client device = kel::connect("nats://server1,server2/lab/bench7").value();
 *
 *  - "kel:" is the device of this host, over the library in this process.
 *  - "nats://HOST[:PORT][,HOST...]/SITE/DEVICE" is one that a keld offers on another host.
 *  - Any other word without a colon is a name, for which the file that KELHANDLER_FLEET names, or else
 *    ~/.config/kelhandler/fleet.json, has such a URI.
 *
 * What reaches other hosts is a library of its own (Debian package kelhandler-fleet; Linux only), which is loaded when
 * the first URI asks for it, and stays loaded. It has to be of the client layer's version that the program was compiled
 * with. A program that links KELHandler::fleet itself needs none of this header: see kel/fleet.hpp.
 */
#pragma once

#include <string>
#include <utility>

#include "kel/client.hpp"
#include "kel/detail/fleet_library.hpp"

namespace kel {
inline namespace v1 {

/**
 * As Client::connect(), which says what both do. `holder` is the id of a reservation of the device; empty for none.
 * Errors: besides those of Client::connect(), notConnected for what is no URI, and where devices of other hosts cannot
 * be reached at all, with the reason as the subject.
 */
inline Result<Client> connect(const std::string& uri, Options options = {}, const std::string& holder = {}) {
  Result<std::unique_ptr<detail::Road>> road = detail::roadTo(uri, holder);
  if (!road) return road.error();
  return Client::connect(std::move(options), std::move(*road));
}

/** As Client::begin(): begins to connect, and does not wait. Errors: as of connect(), for the URI. */
inline Result<Client> begin(const std::string& uri, Options options = {}, const std::string& holder = {}) {
  Result<std::unique_ptr<detail::Road>> road = detail::roadTo(uri, holder);
  if (!road) return road.error();
  return Client::begin(std::move(options), std::move(*road));
}

}  // namespace v1
}  // namespace kel
