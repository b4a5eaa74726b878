// Files that go to the device or come from it, read and written whole. What goes wrong is a std::exception that names
// the file.
#pragma once

#include <string>

#include "commands.h"
#include "payload.h"

namespace kelctl {

/// As a file's name: a standard stream instead.
inline constexpr char kStandardStream[] = "-";

[[noreturn]] void failOnFile(const std::string& name);

Bytes readFile(const std::string& name);

/// The payload that the command line describes.
Bytes payloadOf(const PayloadOptions& options);

}  // namespace kelctl
