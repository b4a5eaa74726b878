#include "logging/Registry.h"

namespace kel {

bool ReadRegistryDword(platform::RegistryRoot rootKey, const char* subKey, const char* valueName, std::uint32_t* out) {
  return subKey != nullptr && valueName != nullptr && platform::registryNumber(rootKey, subKey, valueName, out);
}

bool ReadRegistryString(platform::RegistryRoot rootKey, const char* subKey, const char* valueName, std::string* out) {
  return subKey != nullptr && valueName != nullptr && platform::registryText(rootKey, subKey, valueName, out);
}

}  // namespace kel
