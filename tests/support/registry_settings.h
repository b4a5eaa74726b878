/* SPDX-License-Identifier: MIT */
// The registry as the library finds it in a test.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace kel::test {

/// A registry of this process's own, in place of the machine's and empty at first.
///
/// Where the registry is a file, that is the one in the working directory: a test makes its ScratchDirectory first.
class RegistrySettings {
 public:
  RegistrySettings();
  ~RegistrySettings();
  RegistrySettings(const RegistrySettings&) = delete;
  RegistrySettings& operator=(const RegistrySettings&) = delete;

  /// `key` as in "Software\\Brel\\ALogger".
  void set(const std::string& key, const std::string& valueName, std::uint32_t number);
  void set(const std::string& key, const std::string& valueName, const std::string& text);

  /// Switches all levels of the logs on, for the loggers that are made from now on.
  void switchLogsOn() {
    for (const char* level : {"Info", "Warn", "Err"}) set("Software\\Brel\\ALogger", level, 1);
  }

 private:
  // What each platform keeps.
  std::map<std::string, std::map<std::string, std::string>> mSections;
  void* mKey = nullptr;
  std::string mKeyName;
};

}  // namespace kel::test
