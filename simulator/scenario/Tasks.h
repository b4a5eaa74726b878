/* SPDX-License-Identifier: MIT */
// The built-in task table, as far as scenarios name its tasks.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kel::sim {

/// The TUI of a task by its name, which is compared exactly.
std::optional<std::uint32_t> FindTask(std::string_view name);

}  // namespace kel::sim
