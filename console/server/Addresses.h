/* SPDX-License-Identifier: MIT */
// The one place where a device is opened by its URI.
#pragma once

#include <string>

#include "kel/client.hpp"

namespace kel::console {

/// "kel:" is the device of this host, reached by the library in this process.
inline constexpr char kThisHost[] = "kel:";

/// Whether a URI names a device that can be opened. Else says why not.
Result<void> checkAddress(const std::string& uri);

/// Begins to connect to a device. `uri` was checked.
Client open(const std::string& uri, Options options);

}  // namespace kel::console
