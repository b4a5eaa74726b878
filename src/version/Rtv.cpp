// SPDX-License-Identifier: MIT
#include "version/Rtv.h"

namespace kel {

std::int32_t RtvValidateVersion(std::uint32_t, const std::uint32_t*, const char*, const void*, std::uint32_t, void*,
                                const char*, std::uint32_t, const char* const*, const std::uint32_t*) {
  return RTV_PASSED;
}

}  // namespace kel
