// Readers of the registry values that switch the library's logging and name its folders.
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

namespace kel {

/// True, and the number in `*out`, if the value was read; otherwise `*out` is untouched. Null texts read nothing.
bool ReadRegistryDword(platform::RegistryRoot rootKey, const char* subKey, const char* valueName, std::uint32_t* out);

/// The same for a text.
bool ReadRegistryString(platform::RegistryRoot rootKey, const char* subKey, const char* valueName, std::string* out);

}  // namespace kel
