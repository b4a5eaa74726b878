// SPDX-License-Identifier: MIT
#include "Console.h"

#include <array>
#include <fstream>
#include <iterator>

#include "kel/library.hpp"
#include "kel/version.hpp"

namespace kel::console {
namespace {

std::string dotted(const std::array<std::uint32_t, 5>& numbers) {
  std::string text;
  for (std::size_t i = 0; i < 4; ++i) text += (i == 0 ? "" : ".") + std::to_string(numbers[i]);
  return text;
}

Json settingsFile() {
  std::ifstream file("Brel.ini", std::ios::binary);
  if (!file) return nullptr;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

Json Console::snapshot() const {
  Json json = device.json();
  json["tasks"] = device.tasks();
  json["calls"] = calls.json();
  json["isStandIn"] = hasStandIn();
  return json;
}

bool Console::hasStandIn() const { return device.isOfThisHost() && standIn.isHere(); }

Json Console::about() const {
  const std::string layer = std::to_string(KEL_CLIENT_VERSION_MAJOR) + '.' + std::to_string(KEL_CLIENT_VERSION_MINOR) +
                            '.' + std::to_string(KEL_CLIENT_VERSION_PATCH);
  return {{"console", KELCONSOLE_VERSION},
          {"library", dotted(Library::version())},
          {"clientLayer", layer},
          {"uri", device.settings().uri},
          {"table", device.settings().table},
          {"heartbeat", device.settings().heartbeat},
          {"timeout", device.settings().timeout.count()},
          {"settings", settingsFile()},
          {"statistics", device.statistics()}};
}

}  // namespace kel::console
