// SPDX-License-Identifier: MIT
#include "support/environment_variable.h"

#include <cstdlib>

namespace kel::test {

EnvironmentVariable::EnvironmentVariable(const char* name, const char* value) : mName(name) { setenv(name, value, 1); }

EnvironmentVariable::~EnvironmentVariable() { unsetenv(mName); }

}  // namespace kel::test
