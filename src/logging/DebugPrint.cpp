// SPDX-License-Identifier: MIT
#include "logging/DebugPrint.h"

#include <cstdarg>
#include <cstdio>

namespace kel {

void DebugPrint::operator()(const char* format, ...) const {
  if (!isOn()) return;
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stdout, format, arguments);
  va_end(arguments);
}

}  // namespace kel
