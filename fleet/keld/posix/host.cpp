// SPDX-License-Identifier: MIT
#include "keld/host.h"

#include <unistd.h>

namespace kel::fleet {

std::string hostName() {
  char name[256] = "";
  if (gethostname(name, sizeof name - 1) != 0) return "unknown";
  return name;
}

int processId() { return getpid(); }

}  // namespace kel::fleet
