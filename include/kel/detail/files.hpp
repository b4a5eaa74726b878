// SPDX-License-Identifier: MIT
/**
 * @file
 * Files, opened as the library opens them.
 */
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace kel {
inline namespace v1 {
namespace detail {

/** A stream of the bytes of a file. It is not open if the file cannot be opened, or is a folder. */
inline std::ifstream openToRead(const std::string& path) {
#ifndef _WIN32
  // Here a folder can be opened, and only fails to be read.
  std::error_code unknown;
  if (std::filesystem::is_directory(path.c_str(), unknown)) return {};
#endif
  return std::ifstream(path.c_str(), std::ios::binary);
}

}  // namespace detail
}  // namespace v1
}  // namespace kel
