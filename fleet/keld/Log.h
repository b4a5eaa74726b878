/* SPDX-License-Identifier: MIT */
// Structured logs: one JSON object a line, on standard error, where systemd's journal takes them.
#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

namespace kel::fleet {

using LogFields = std::initializer_list<std::pair<const char*, nlohmann::json>>;

/// Whose lines these are; set once, before other threads log.
void setLogDevice(const std::string& device);
/// `level` is "info", "warning" or "error". Any thread.
void logLine(const char* level, const std::string& message, LogFields fields = {});

}  // namespace kel::fleet
