/* SPDX-License-Identifier: MIT */
// Task tables as kelctl shows them, read with the library's own reader.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "output.h"

namespace kelctl {

struct Task {
  std::string name;
  std::uint32_t tui = 0;
};

/// A table's text as it stands in its file. Throws std::runtime_error, also for a file that is too large for a table.
std::string readTableFile(const std::string& name);

/// The rows of a table that the library can read through, in its order; the built-in table if `fileName` is empty.
/// Throws std::runtime_error.
std::vector<Task> readTable(const std::string& fileName);

/// The name of a task by its TUI, whatever its sequence byte; empty if the table has none. Of two rows with one TUI it
/// is the last, as in the library.
std::string nameOf(const std::vector<Task>& table, std::uint32_t tui);

/// "upper DSPs", or the number of a target without a name.
std::string targetWord(std::uint32_t tui);
/// "VAL", "REF", or the number of a type without a name.
std::string typeWord(std::uint32_t tui);
/// "0x38240"
std::string tuiText(std::uint32_t tui);

std::uint32_t zoneOf(std::uint32_t tui);
std::uint32_t priorityOf(std::uint32_t tui);

/// All fields of a TUI; `name` may be empty.
Json tuiJson(const std::string& name, std::uint32_t tui);
/// The same as lines of name and value.
std::string tuiText(const std::string& name, std::uint32_t tui);

}  // namespace kelctl
