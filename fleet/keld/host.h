/* SPDX-License-Identifier: MIT */
// What a worker says of where it runs.
#pragma once

#include <string>

namespace kel::fleet {

std::string hostName();
int processId();

}  // namespace kel::fleet
