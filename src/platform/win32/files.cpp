// Files and dates.
#include <time.h>

#include "platform/platform.h"

namespace kel::platform {

const char kPathSeparator = '\\';

// The C runtime opens every file so that others may read and write it meanwhile.
std::ofstream openToAppend(const std::string& fileName) {
  return std::ofstream(fileName, std::ios::out | std::ios::app);
}

int dateText(char (&text)[kDateTextSize]) { return _strdate_s(text, sizeof text); }

int timeText(char (&text)[kDateTextSize]) { return _strtime_s(text, sizeof text); }

}  // namespace kel::platform
