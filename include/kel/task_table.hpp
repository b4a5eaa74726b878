// SPDX-License-Identifier: MIT
/**
 * @file
 * The task table by itself: which names there are, and which TUI each has. Asking it tells an unknown name from a task
 * that was refused, which the library's results do not, and what form a task's payload has.
 *
 *     const kel::TaskTable table = kel::TaskTable::inForce("");
 *     if (const auto tui = table.find("MY_ECHO")) std::cout << (kel::formOf(*tui) == kel::Form::val);
 *
 * A file is read just as the library reads it. Nothing of the library is called: a table may be read before a
 * connection is open, and without the library.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kel/detail/files.hpp"
#include "kel/detail/settings.hpp"
#include "kel/detail/table_row.hpp"
#include "kel/task.hpp"
#include "kel/tasks.hpp"

namespace kel {
inline namespace v1 {

/**
 * A task table. A value: it may be copied, and does not change when its file does. The functions that make one may
 * throw std::bad_alloc and nothing else, whatever a file holds.
 *
 * Threads: a table that nobody assigns to may be read by any number of them.
 */
class TaskTable {
 public:
  struct Row {
    std::string name;
    std::uint32_t tui = 0;
  };

  /** A table without rows. */
  TaskTable() = default;

  /** The table that is built into the library. Of a library of another version it may be another. */
  static TaskTable builtIn() {
    TaskTable table;
    for (const NamedTui& task : tasks::kBuiltInTable) table.add(task.name, task.tui);
    return table;
  }

  /** The table of a file. Nothing if the file cannot be opened, or cannot be read through. */
  static std::optional<TaskTable> read(const std::string& path) {
    std::ifstream file = detail::openToRead(path);
    return isUsable(file) ? readRows(file) : std::nullopt;
  }

  /**
   * The table that a connect with this path uses if it is made now, in this working directory. An empty path stands for
   * none: the table that Brel.ini names, else KEL_ALLTASKS.csv. Where the file cannot be opened it is the built-in
   * table, and where it cannot be read through, which fails the connect, one without rows.
   *
   * It cannot know where `BrelDllsPath` in the registry has the library look for Brel.ini in another folder. Then give
   * the path, here and in the connect.
   */
  static TaskTable inForce(const std::string& path) {
    std::ifstream file = detail::openToRead(path.empty() ? detail::tablePathOfSettings() : path);
    return isUsable(file) ? readRows(file).value_or(TaskTable()) : builtIn();
  }

  /**
   * The TUI of a name, which is compared exactly. Nothing for an unknown one. Allocates nothing. Where rows share a
   * name it is the last one's TUI.
   */
  std::optional<std::uint32_t> find(std::string_view name) const {
    const auto place = mPlaces.find(name);
    if (place == mPlaces.end()) return std::nullopt;
    return mRows[place->second].tui;
  }

  /** Each name once, in the table's order. */
  const std::vector<Row>& rows() const noexcept { return mRows; }
  /** How many names there are. */
  std::size_t size() const noexcept { return mRows.size(); }

 private:
  /** A file that is not open, or has no position, as a pipe, is none that a table is read from. */
  static bool isUsable(std::ifstream& file) { return file.tellg() != std::ifstream::pos_type(-1); }

  /** The rows up to the end of the table; nothing if there is not even a first line, or if one is no row. */
  static std::optional<TaskTable> readRows(std::ifstream& file) {
    detail::LineReader lines(file);
    if (!lines.next()) return std::nullopt;
    TaskTable table;
    do {
      const detail::TableRow row(lines.line());
      if (row.endsTable()) return table;
      if (!row.isWhole()) return std::nullopt;
      table.add(row.name(), row.tui());
    } while (lines.next());
    return table;
  }

  void add(std::string_view name, std::uint32_t tui) {
    const auto [place, isNew] = mPlaces.try_emplace(std::string(name), mRows.size());
    if (isNew) {
      mRows.push_back({place->first, tui});
    } else {
      mRows[place->second].tui = tui;
    }
  }

  std::vector<Row> mRows;
  std::map<std::string, std::size_t, std::less<>> mPlaces;  ///< of the names in mRows
};

}  // namespace v1
}  // namespace kel
