/* SPDX-License-Identifier: MIT */
// The two functions of the pipe library that the adapter finds at link time, as the program has them here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "KELHandler.h"

namespace kel::test {

struct VersionCheck {
  std::wstring userName;
  VersionArray ofLibrary;
  VersionArray ofUser;
};

/// What the last check was asked, if there was one.
extern std::optional<VersionCheck> gVersionCheck;
/// What it says.
extern std::uint32_t gVersionCheckResult;
extern std::uint32_t gVersionValidationEnabled;

}  // namespace kel::test
