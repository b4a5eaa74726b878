// SPDX-License-Identifier: MIT
// The run-time library's copy of the environment does not learn of what is set here.
#include "support/environment_variable.h"

#include <windows.h>

namespace kel::test {

EnvironmentVariable::EnvironmentVariable(const char* name, const char* value) : mName(name) {
  SetEnvironmentVariableA(name, value);
}

EnvironmentVariable::~EnvironmentVariable() { SetEnvironmentVariableA(mName, nullptr); }

}  // namespace kel::test
