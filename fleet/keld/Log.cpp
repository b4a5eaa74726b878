// SPDX-License-Identifier: MIT
#include "keld/Log.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace kel::fleet {

namespace {

std::string& device() {
  static std::string name;
  return name;
}

std::string now() {
  const auto time = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[40];
  const std::size_t length = std::strftime(text, sizeof text, "%FT%T", &parts);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
  std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(milliseconds));
  return text;
}

}  // namespace

void setLogDevice(const std::string& name) { device() = name; }

void logLine(const char* level, const std::string& message, LogFields fields) {
  nlohmann::ordered_json line{{"time", now()}, {"level", level}, {"device", device()}, {"message", message}};
  for (const auto& [key, value] : fields) line[key] = value;
  const std::string text = line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace kel::fleet
