// SPDX-License-Identifier: MIT
#include "logging/Registry.h"

namespace kel {

bool ReadRegistryDword(platform::RegistryRoot rootKey, const char* subKey, const char* valueName, std::uint32_t* out) {
  return subKey != nullptr && valueName != nullptr && platform::registryNumber(rootKey, subKey, valueName, out);
}

std::uint32_t ReadRegistryDwords(platform::RegistryRoot rootKey, const char* subKey, std::uint32_t count,
                                 const char* const* valueNames, std::uint32_t* out) {
  return subKey != nullptr ? platform::registryNumbers(rootKey, subKey, count, valueNames, out) : 0;
}

bool ReadRegistryString(platform::RegistryRoot rootKey, const char* subKey, const char* valueName, std::string* out) {
  return subKey != nullptr && valueName != nullptr && platform::registryText(rootKey, subKey, valueName, out);
}

}  // namespace kel
