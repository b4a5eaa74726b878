/* SPDX-License-Identifier: MIT */
// What is wrong with a task table, by line: what the library's reader makes of it, where it is silent, and where the
// columns that it does not look at say something else than the number that it keeps.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelctl {

struct TableFault {
  std::size_t line = 0;
  std::string text;
};

struct TableFindings {
  std::size_t rows = 0;  ///< that the library reads
  std::vector<TableFault> faults;
};

/// `text` is the file's, as it stands.
TableFindings checkTable(const std::string& text);

}  // namespace kelctl
