// SPDX-License-Identifier: MIT
#include "adapter/pipe_library/linked_functions.h"

#include "adapter/SluiceHub.h"

namespace kel::test {

std::optional<VersionCheck> gVersionCheck;
std::uint32_t gVersionCheckResult = 0;
std::uint32_t gVersionValidationEnabled = 1;

}  // namespace kel::test

std::uint32_t IsVersionValidationEnabled() { return kel::test::gVersionValidationEnabled; }

std::uint32_t ValidateVersion(const wchar_t* userName, VersionArray ofLibrary, VersionArray ofUser) {
  kel::test::gVersionCheck = {userName, ofLibrary, ofUser};
  return kel::test::gVersionCheckResult;
}
