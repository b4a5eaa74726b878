// SPDX-License-Identifier: MIT
#include "settings.h"

#include <fstream>
#include <string>

#include "engine/IniFileReader.h"
#include "logging/Registry.h"

namespace kelctl {

std::chrono::milliseconds waitLimit() {
  constexpr std::uint32_t kDefault = 10000;
  const std::string name = std::string(".") + kel::platform::kPathSeparator + "Brel.ini";
  if (!std::ifstream(name)) return std::chrono::milliseconds(kDefault);
  std::string folder;
  kel::ReadRegistryString(kel::platform::RegistryRoot::localMachine, "Software\\Brel", "BrelDllsPath", &folder);
  if (!folder.empty()) folder += kel::platform::kPathSeparator;
  kel::IniFileReader settings;
  settings.SetIniFileName((folder + name).c_str());
  return std::chrono::milliseconds(settings.ReadIntValue("Common", "RxWaitTimeout", kDefault));
}

}  // namespace kelctl
