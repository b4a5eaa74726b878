// SPDX-License-Identifier: MIT
#include "platform/programs.h"

namespace kelctl {

// There are none for Windows.
void becomeProgramBeside(const std::string& /*name*/, const std::vector<std::string>& /*words*/) {}

}  // namespace kelctl
