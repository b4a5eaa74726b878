/* SPDX-License-Identifier: MIT */
// The library's dated log files, as a test reads them.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <string>

namespace kel::test {

/// The file in `folder` that is a date and "-" ahead of `name`; empty if there is none.
std::filesystem::path LogPath(const std::string& name, const std::filesystem::path& folder = ".");

/// All of that file, with line ends as "\n"; empty if there is none.
std::string LogText(const std::string& name, const std::filesystem::path& folder = ".");

/// One entry as it stands in a file, its leading line break and its head included.
///
///     LogEntry("info", "BrelEngine", "init", "Start \n") is "\n[0 - 0] info - BrelEngine - init - Start \n"
std::string LogEntry(const std::string& level, const std::string& module, const std::string& function,
                     const std::string& text);

/// A dated log file of the working directory that is read piece by piece.
class LogFile {
 public:
  explicit LogFile(std::string name) : mName(std::move(name)) {}

  /// What was written since the last call.
  std::string fresh();

 private:
  const std::string mName;
  std::size_t mRead = 0;
};

}  // namespace kel::test
