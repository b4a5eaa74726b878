/* SPDX-License-Identifier: MIT */
// Texts between kelctl, where they are UTF-8, and the system.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kelctl {

/// The words behind the program's name.
std::vector<std::string> arguments(int argc, char** argv);

/// Has the terminal take UTF-8, for the life of the object.
class TerminalText {
 public:
  TerminalText();
  ~TerminalText();
  TerminalText(const TerminalText&) = delete;
  TerminalText& operator=(const TerminalText&) = delete;

 private:
  [[maybe_unused]] const unsigned mFormer;  // where the system has such a setting
};

/// A file, to be opened here.
std::filesystem::path pathOf(const std::string& name);

/// A file's name for the library, which knows the system's code page alone; none if that has not all of its letters.
std::optional<std::string> libraryName(const std::string& name);

}  // namespace kelctl
