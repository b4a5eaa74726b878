/* SPDX-License-Identifier: MIT */
// What keld's exit status says.
#pragma once

namespace kel::fleet {

inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;      ///< The arguments or the configuration are wrong.
inline constexpr int kExitNameTaken = 3;  ///< Another keld offers a device of this name.

}  // namespace kel::fleet
