// SPDX-License-Identifier: MIT
// Files and dates.
#include <time.h>

#include <locale>

#include "platform/platform.h"

namespace kel::platform {

const char kPathSeparator = '\\';

std::FILE* openToRead(const char* fileName) { return std::fopen(fileName, "rb"); }

// The C runtime opens every file so that others may read and write it meanwhile.
std::ofstream openToAppend(const std::string& fileName) {
  std::ofstream file;
  file.imbue(std::locale::classic());
  file.open(fileName, std::ios::out | std::ios::app);
  return file;
}

int dateText(char (&text)[kDateTextSize]) { return _strdate_s(text, sizeof text); }

int timeText(char (&text)[kDateTextSize]) { return _strtime_s(text, sizeof text); }

}  // namespace kel::platform
