// SPDX-License-Identifier: MIT
// The registry is the file Brel.registry of the working directory.
#include "support/registry_settings.h"

#include <filesystem>
#include <fstream>

namespace kel::test {
namespace {

void WriteRegistry(const std::map<std::string, std::map<std::string, std::string>>& sections) {
  std::ofstream file("Brel.registry", std::ios::trunc);
  for (const auto& [key, values] : sections) {
    file << '[' << key << "]\n";
    for (const auto& [name, value] : values) file << name << '=' << value << '\n';
  }
}

}  // namespace

// An empty file hides the machine's.
RegistrySettings::RegistrySettings() { WriteRegistry(mSections); }

RegistrySettings::~RegistrySettings() {
  std::error_code ignored;
  std::filesystem::remove("Brel.registry", ignored);
}

void RegistrySettings::set(const std::string& key, const std::string& valueName, std::uint32_t number) {
  set(key, valueName, std::to_string(number));
}

void RegistrySettings::set(const std::string& key, const std::string& valueName, const std::string& text) {
  mSections[key][valueName] = text;
  WriteRegistry(mSections);
}

}  // namespace kel::test
