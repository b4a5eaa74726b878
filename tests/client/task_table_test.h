/* SPDX-License-Identifier: MIT */
// What the tests of the task table share: the library's own reader to compare with.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "kel/task_table.hpp"
#include "support/scratch_directory.h"

namespace kel::test {

using NamesAndTuis = std::map<std::string, std::uint32_t>;

/// The names that the library has after it read the table of that path; nothing if it refuses it.
std::optional<NamesAndTuis> LibrarysRead(const std::string& path);

inline NamesAndTuis NamesAndTuisOf(const TaskTable& table) {
  NamesAndTuis rows;
  for (const TaskTable::Row& row : table.rows()) {
    rows[row.name] = row.tui;
    if (table.find(row.name) != row.tui) rows["find() differs from rows() for " + row.name] = 0;
  }
  if (rows.size() != table.size()) rows["a name is there twice"] = 0;
  return rows;
}

inline std::optional<NamesAndTuis> NamesAndTuisOf(const std::optional<TaskTable>& table) {
  if (!table) return std::nullopt;
  return NamesAndTuisOf(*table);
}

}  // namespace kel::test
