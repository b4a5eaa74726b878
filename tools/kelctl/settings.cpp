// SPDX-License-Identifier: MIT
#include "settings.h"

#include <cstdlib>
#include <fstream>
#include <memory>

#include "engine/IniFileReader.h"
#include "logging/Registry.h"

namespace kelctl {
namespace {

const std::string kIniName = std::string(".") + kel::platform::kPathSeparator + "Brel.ini";

/// The folder that the registry names for Brel.ini, with its separator; empty for none.
std::string registryFolder() {
  std::string folder;
  kel::ReadRegistryString(kel::platform::RegistryRoot::localMachine, "Software\\Brel", "BrelDllsPath", &folder);
  if (!folder.empty()) folder += kel::platform::kPathSeparator;
  return folder;
}

}  // namespace

std::chrono::milliseconds waitLimit() {
  constexpr std::uint32_t kDefault = 10000;
  if (!std::ifstream(kIniName)) return std::chrono::milliseconds(kDefault);
  kel::IniFileReader settings;
  settings.SetIniFileName((registryFolder() + kIniName).c_str());
  return std::chrono::milliseconds(settings.ReadIntValue("Common", "RxWaitTimeout", kDefault));
}

std::string tableOf(const std::string& table) {
  const std::string folder = registryFolder();
  if (!table.empty() || folder.empty() || !std::ifstream(kIniName)) return table;
  kel::IniFileReader settings;
  settings.SetIniFileName((folder + kIniName).c_str());
  const std::unique_ptr<char, decltype(&std::free)> path(
      settings.ReadStringValue("Common", "TUIsFilePath", "KEL_ALLTASKS.csv"), &std::free);
  return path.get();
}

}  // namespace kelctl
