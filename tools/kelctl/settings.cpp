// SPDX-License-Identifier: MIT
#include "settings.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>

#include "engine/IniFileReader.h"
#include "logging/ALogger.h"
#include "logging/Registry.h"
#include "payload.h"
#include "suggestion.h"

namespace kelctl {
namespace {

constexpr char kSection[] = "Common";
constexpr char kReleaseBlocks[] = "KELHANDLER_RELEASE_BLOCKS";
constexpr std::uint32_t kWaitLimit = 10000;
constexpr char kTable[] = "KEL_ALLTASKS.csv";
const std::string kIniName = std::string(".") + kel::platform::kPathSeparator + "Brel.ini";

struct Key {
  const char* name;
  const char* defaultText;
  bool isNumber;
};

constexpr std::array kKeys{Key{"LogToConsole", "0", true},
                           Key{"RxWaitTimeout", "10000", true},
                           Key{"TUIsFilePath", kTable, false},
                           Key{"UpperDriverIpAddress", "127.0.0.1", false},
                           Key{"UpperDriverPortNumber", "1234", true},
                           Key{"RequestStructDumpFilename", "", false},
                           Key{"RequestStructPayloadDumpFilename", "", false},
                           Key{"ResponseStructDumpFilename", "", false},
                           Key{"ResponseStructPayloadDumpFilename", "", false},
                           Key{"ReleaseBlocks", "0", true}};

/// The file that the settings come from: in the folder that the registry names, or here; empty if there is none here.
std::string settingsFile() {
  if (!std::ifstream(kIniName)) return {};
  std::string folder;
  kel::ReadRegistryString(kel::platform::RegistryRoot::localMachine, "Software\\Brel", "BrelDllsPath", &folder);
  return folder.empty() ? kIniName : folder + kel::platform::kPathSeparator + kIniName;
}

/// A key's text; what stands in the file, or else the default.
std::string textOf(const std::string& file, const char* key, const char* defaultText) {
  kel::IniFileReader settings;
  settings.SetIniFileName(file.c_str());
  const std::unique_ptr<char, decltype(&std::free)> text(settings.ReadStringValue(kSection, key, defaultText),
                                                         &std::free);
  return text.get();
}

/// Whether the library reads the whole of the text as the number that it says.
bool isNumber(const std::string& text) { return text.rfind("0X", 0) != 0 && toNumber(text).has_value(); }

Setting settingOf(const std::string& file, const Key& key) {
  // No value is a line break, so that this tells a key that is missing.
  const std::string text = file.empty() ? "\n" : textOf(file, key.name, "\n");
  const bool isSet = text != "\n" && !text.empty();
  Setting setting{key.name, isSet ? text : key.defaultText, isSet ? "Brel.ini" : "default", ""};
  if (key.isNumber && isSet && !isNumber(text)) {
    setting.fault =
        std::string(key.name) + " wants a number, decimal or with 0x; \"" + text + "\" counts as another one.";
  }
  const char* const environment = std::getenv(kReleaseBlocks);
  if (setting.name == "ReleaseBlocks" && environment != nullptr && isNumber(environment)) {
    setting.value = environment;
    setting.source = "environment; kelctl sets 1 where nobody has";
  }
  return setting;
}

std::string trimmed(const std::string& text) {
  constexpr char kBlanks[] = " \t\r";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace

std::chrono::milliseconds waitLimit() {
  const std::string file = settingsFile();
  if (file.empty()) return std::chrono::milliseconds(kWaitLimit);
  kel::IniFileReader settings;
  settings.SetIniFileName(file.c_str());
  return std::chrono::milliseconds(settings.ReadIntValue(kSection, "RxWaitTimeout", kWaitLimit));
}

std::string tableOf(const std::string& table) {
  const std::string file = settingsFile();
  return table.empty() && !file.empty() && file != kIniName ? tableOfSettings() : table;
}

std::string tableOfSettings() {
  const std::string file = settingsFile();
  return file.empty() ? kTable : textOf(file, "TUIsFilePath", kTable);
}

Settings readSettings() {
  Settings settings;
  settings.file = settingsFile();
  std::transform(kKeys.begin(), kKeys.end(), std::back_inserter(settings.values),
                 [&](const Key& key) { return settingOf(settings.file, key); });
  if (settings.file.empty()) return settings;
  std::ifstream file(settings.file, std::ios::binary);
  settings.faults = checkIni({std::istreambuf_iterator<char>(file), {}});
  return settings;
}

LogSettings readLogSettings() {
  constexpr auto kRoot = kel::platform::RegistryRoot::localMachine;
  LogSettings logs;
  for (const char* level : {"Info", "Warn", "Err"}) {
    std::uint32_t number = 0;
    const bool isSet = kel::ReadRegistryDword(kRoot, kel::kLoggerRegistryKey, level, &number);
    logs.values.push_back({level, std::to_string(number), isSet ? "registry" : "default", ""});
    logs.isOn = logs.isOn || number != 0;
  }
  std::string folder;
  const bool isSet = kel::ReadRegistryString(kRoot, kel::kLoggerRegistryKey, "LogPath", &folder);
  logs.values.push_back({"LogPath", folder, isSet ? "registry" : "default", ""});
  logs.folder = folder.empty() ? "." : folder;
  return logs;
}

std::vector<IniFault> checkIni(const std::string& text) {
  std::vector<std::string> names;
  std::transform(kKeys.begin(), kKeys.end(), std::back_inserter(names), [](const Key& key) { return key.name; });
  std::vector<IniFault> faults;
  std::set<std::string> seen;
  std::string section;
  bool isRead = false, wasRead = false;
  std::istringstream lines(text);
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    line = trimmed(line);
    if (line.empty() || line.front() == ';') continue;
    if (line.front() == '[' && line.find(']') != std::string::npos) {
      section = trimmed(line.substr(1, line.rfind(']') - 1));
      const bool isCommon = lower(section) == lower(kSection);
      isRead = isCommon && !wasRead;
      wasRead = wasRead || isCommon;
      if (isCommon && !isRead) faults.push_back({number, "the first section [Common] counts, and not this one"});
      if (!isCommon) {
        faults.push_back(
            {number, "nobody reads a section [" + section + ']' + suggestion(nearest(section, {kSection}))});
      }
      continue;
    }
    if (section.empty()) faults.push_back({number, "this stands ahead of [Common], where nobody reads it"});
    if (!isRead) continue;
    const std::string key = trimmed(line.substr(0, line.find('=')));
    const bool isKnown =
        std::any_of(names.begin(), names.end(), [&](const auto& one) { return lower(one) == lower(key); });
    if (!isKnown) {
      faults.push_back({number, "nobody reads a key " + key + suggestion(nearest(key, names))});
    } else if (line.find('=') == std::string::npos) {
      faults.push_back({number, key + " has no value"});
    } else if (!seen.insert(lower(key)).second) {
      faults.push_back({number, "the first " + key + " counts, and not this one"});
    }
  }
  return faults;
}

}  // namespace kelctl
