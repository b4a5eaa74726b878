/* SPDX-License-Identifier: MIT */
// Files that go to the device or come from it. What goes wrong is a Fault, kWrongUsage, that names the file; a file
// that is too large is another std::exception.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

#include "options.h"
#include "payload.h"

namespace kelctl {

/// As a file's name: a standard stream instead.
inline constexpr char kStandardStream[] = "-";

/// A file's name for the library. Throws Fault for one that it cannot open.
std::string libraryFile(const std::string& name);

/// `most`: the size of the largest file that is read.
Bytes readFile(const std::string& name, std::size_t most = SIZE_MAX);

/// The payload that the command line describes.
Bytes payloadOf(const PayloadOptions& options);

/// What --out names: a file or standard output, which get bytes as they are; or nothing, and then it is not to be
/// written to.
class ByteFile {
 public:
  explicit ByteFile(const std::string& name);

  explicit operator bool() const { return !mName.empty(); }
  void write(const Bytes& bytes);

 private:
  const std::string mName;
  std::ofstream mFile;
};

}  // namespace kelctl
