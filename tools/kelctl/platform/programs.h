/* SPDX-License-Identifier: MIT */
// Programs that belong to kelctl and are installed beside it.
#pragma once

#include <string>
#include <vector>

namespace kelctl {

/// Becomes the program of this name in the folder of kelctl's own, with these words. Returns only if it is not there or
/// cannot be run.
void becomeProgramBeside(const std::string& name, const std::vector<std::string>& words);

}  // namespace kelctl
