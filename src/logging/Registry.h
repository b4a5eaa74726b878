/* SPDX-License-Identifier: MIT */
// Readers of the registry values that switch the library's logging and name its folders.
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

namespace kel {

/// True, and the number in `*out`, if the value was read; otherwise `*out` is untouched. Null texts read nothing.
bool ReadRegistryDword(platform::RegistryRoot rootKey, const char* subKey, const char* valueName, std::uint32_t* out);

/// The same for several numbers of a key, from one look at it. Returns how many were read.
std::uint32_t ReadRegistryDwords(platform::RegistryRoot rootKey, const char* subKey, std::uint32_t count,
                                 const char* const* valueNames, std::uint32_t* out);

/// As the first one, for a text.
bool ReadRegistryString(platform::RegistryRoot rootKey, const char* subKey, const char* valueName, std::string* out);

}  // namespace kel
