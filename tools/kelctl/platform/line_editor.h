/* SPDX-License-Identifier: MIT */
// Lines that a person types at a terminal.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelctl {

/// On Linux with editing, history and completion; on Windows as the console gives them.
class LineEditor {
 public:
  /// What the last word of a line's beginning may become.
  using Complete = std::function<std::vector<std::string>(const std::string& beginning)>;

  /// `historyFile` keeps the lines from one run to the next; empty for none.
  LineEditor(const std::string& prompt, const std::string& historyFile, Complete complete);
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  /// The next line without its line feed; none at the end of the input.
  std::optional<std::string> next();

 private:
  struct Inside;
  Inside* const mInside;
};

/// Where the shell's history is kept; empty if the person has no home.
std::string historyFile();

}  // namespace kelctl
