// SPDX-License-Identifier: MIT
#include "platform/environment.h"

#include <windows.h>

namespace kelctl {

void setDefault(const char* name, const char* value) {
  if (GetEnvironmentVariableA(name, nullptr, 0) == 0) SetEnvironmentVariableA(name, value);
}

}  // namespace kelctl
