// SPDX-License-Identifier: MIT
#include "platform/environment.h"

#include <stdlib.h>

namespace kelctl {

void setDefault(const char* name, const char* value) { setenv(name, value, 0); }

}  // namespace kelctl
