/* SPDX-License-Identifier: MIT */
// A terminal as one screen whose keys are read as they are pressed.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

namespace kelctl {

/// Columns and rows of the terminal behind standard output.
struct TerminalSize {
  std::size_t columns;
  std::size_t rows;
};
TerminalSize terminalSize();

/// While it lives, keys that are pressed are not shown, and can be read one by one. Ctrl-C stays what it is.
class SingleKeys {
 public:
  SingleKeys();
  ~SingleKeys();
  SingleKeys(const SingleKeys&) = delete;
  SingleKeys& operator=(const SingleKeys&) = delete;

  /// The next byte that a key gives; none if there is none within the time, or standard input is no terminal.
  std::optional<char> next(std::chrono::milliseconds time);

 private:
  struct Before;
  Before* mBefore = nullptr;  ///< null if standard input is no terminal
};

}  // namespace kelctl
