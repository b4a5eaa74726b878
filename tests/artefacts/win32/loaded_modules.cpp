// SPDX-License-Identifier: MIT
#include "artefacts/loaded_modules.h"

#include <windows.h>

namespace kel::test {

bool IsLoaded(const char* library) { return GetModuleHandleA(library) != nullptr; }

}  // namespace kel::test
