/* SPDX-License-Identifier: MIT */
// Error numbers that this platform sets itself. They are those that Windows gives to the same failures, since callers
// and their log readers know them.
#pragma once

#include <cstdint>

namespace kel::platform::posix {

inline constexpr std::uint32_t kFileNotFound = 2;
inline constexpr std::uint32_t kTooManyHandles = 4;
inline constexpr std::uint32_t kInvalidHandle = 6;
inline constexpr std::uint32_t kOutOfMemory = 8;
inline constexpr std::uint32_t kInvalidData = 13;
inline constexpr std::uint32_t kInvalidParameter = 87;
inline constexpr std::uint32_t kModuleNotFound = 126;
inline constexpr std::uint32_t kSymbolNotFound = 127;
inline constexpr std::uint32_t kVariableNotFound = 203;
inline constexpr std::uint32_t kNotOwner = 288;
inline constexpr std::uint32_t kResourceNotFound = 1814;

void setLastError(std::uint32_t error);

/// Sets the error and gives false, so that a failing function ends in `return fail(...)`.
inline bool fail(std::uint32_t error) {
  setLastError(error);
  return false;
}

}  // namespace kel::platform::posix
