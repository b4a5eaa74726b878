/* SPDX-License-Identifier: MIT */
// The environment of this process, as the libraries in it see it.
#pragma once

namespace kelctl {

/// Gives a variable this value, unless the user has set it.
void setDefault(const char* name, const char* value);

}  // namespace kelctl
