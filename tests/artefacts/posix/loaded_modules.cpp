// SPDX-License-Identifier: MIT
#include "artefacts/loaded_modules.h"

#include <fstream>
#include <string>

namespace kel::test {

bool IsLoaded(const char* library) {
  const std::string file = std::string("/lib") + library + ".so";
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(file) != std::string::npos) return true;
  }
  return false;
}

}  // namespace kel::test
