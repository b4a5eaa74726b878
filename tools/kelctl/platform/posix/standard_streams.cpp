// SPDX-License-Identifier: MIT
#include "platform/standard_streams.h"

#include <unistd.h>

namespace kelctl {

bool isTerminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

void passBytes(std::FILE* /*stream*/) {}

}  // namespace kelctl
