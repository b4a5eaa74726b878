// Files and dates.
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "platform/platform.h"

namespace kel::platform {
namespace {

int formatNow(const char* format, char (&text)[kDateTextSize]) {
  const std::time_t now = std::time(nullptr);
  std::tm local;
  if (!localtime_r(&now, &local)) return errno;
  return std::strftime(text, sizeof text, format, &local) != 0 ? 0 : ERANGE;
}

}  // namespace

const char kPathSeparator = '/';

std::ofstream openToAppend(const std::string& fileName) {
  return std::ofstream(fileName, std::ios::out | std::ios::app);
}

bool isTerminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

void passBytes(std::FILE* /*stream*/) {}

int dateText(char (&text)[kDateTextSize]) { return formatNow("%m/%d/%y", text); }

int timeText(char (&text)[kDateTextSize]) { return formatNow("%H:%M:%S", text); }

}  // namespace kel::platform
