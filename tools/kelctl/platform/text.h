/* SPDX-License-Identifier: MIT */
// Text as the system has it: UTF-8 on the one, UTF-16 or its code page on the other.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kelctl {

/// The words behind the program's name, in UTF-8.
std::vector<std::string> arguments(int argc, char** argv);

/// Has the terminal take UTF-8, for the life of the object.
class TextOutput {
 public:
  TextOutput();
  ~TextOutput();
  TextOutput(const TextOutput&) = delete;
  TextOutput& operator=(const TextOutput&) = delete;

 private:
  const unsigned mFormer;
};

/// A file by its name in UTF-8.
std::filesystem::path pathOf(const std::string& name);

/// A file's name as the library takes it, which knows the system's code page alone.
std::string libraryName(const std::string& name);

}  // namespace kelctl
