// SPDX-License-Identifier: MIT
#include "status.h"

namespace kelctl {

std::string statusTable() {
  return "  0  done\n"
         "  1  the library or the device refused, or the outcome is not what was asked for\n"
         "  2  wrong usage, or a file that cannot be read or written\n"
         "  3  no answer in time\n"
         "  4  the link was lost, or there is no device\n"
         "  5  no such task\n"
         "  6  busy, or reserved by somebody else\n";
}

}  // namespace kelctl
