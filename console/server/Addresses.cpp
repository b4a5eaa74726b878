// SPDX-License-Identifier: MIT
#include "Addresses.h"

#include <utility>

namespace kel::console {

Result<void> checkAddress(const std::string& uri) {
  if (uri == kThisHost) return {};
  return Error{Cause::notConnected, 0, "no device can be reached by \"" + uri + "\"; \"kel:\" is this host's own"};
}

Client open(const std::string& /*uri*/, Options options) { return Client::begin(std::move(options)); }

}  // namespace kel::console
