#include <iostream>

#include "KELHandler.h"
#include "commands.h"

namespace kelctl {

// The fifth number is no part of the version as people know it: it is 0 in every release.
std::string libraryVersion() {
  const VersionArray version = KEL_GetVersion();
  return std::to_string(version.number[0]) + '.' + std::to_string(version.number[1]) + '.' +
         std::to_string(version.number[2]) + '.' + std::to_string(version.number[3]);
}

int version() {
  std::cout << "KELHandler  " << libraryVersion() << "\nkelctl      " KELCTL_VERSION "\n";
  return 0;
}

}  // namespace kelctl
