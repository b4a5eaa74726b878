/* SPDX-License-Identifier: MIT */
// A working directory that holds nothing but what a test puts there.
#pragma once

#include <filesystem>
#include <string>

namespace kel::test {

/// The whole of a file, with line ends as "\n"; empty if there is no such file.
std::string ReadText(const std::filesystem::path& file);

/// Makes a fresh folder the process's working directory, and removes it at the end of its life. Settings, logs and task
/// tables are looked for there, so a test has one before it makes anything of the library.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::filesystem::path& path() const { return mPath; }

  /// Writes a file of the folder, byte for byte.
  void write(const std::string& name, const std::string& content) const;
  /// Writes a Brel.ini with these lines in its section, as in "LogToConsole=1\nRxWaitTimeout=20\n".
  void writeSettings(const std::string& lines) const { write("Brel.ini", "[Common]\n" + lines); }
  bool has(const std::string& name) const { return std::filesystem::exists(mPath / name); }

 private:
  std::filesystem::path mFormer;
  std::filesystem::path mPath;
};

}  // namespace kel::test
