// SPDX-License-Identifier: MIT
// Files and dates.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <locale>

#include "platform/platform.h"
#include "platform/posix/errors.h"

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

// The system opens a folder for reading too, and fails only the reads. Most files that are asked for here are not
// there, so a stream is made only for one that is.
std::FILE* openToRead(const char* fileName) {
  const int descriptor = open(fileName, O_RDONLY);
  if (descriptor != -1) {
    struct stat status;
    const bool isFolder = fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
    if (std::FILE* file = isFolder ? nullptr : fdopen(descriptor, "rb")) return file;
    close(descriptor);
  }
  posix::setLastError(posix::kFileNotFound);
  return nullptr;
}

std::ofstream openToAppend(const std::string& fileName) {
  std::ofstream file;
  file.imbue(std::locale::classic());
  file.open(fileName, std::ios::out | std::ios::app);
  return file;
}

int dateText(char (&text)[kDateTextSize]) { return formatNow("%m/%d/%y", text); }

int timeText(char (&text)[kDateTextSize]) { return formatNow("%H:%M:%S", text); }

}  // namespace kel::platform
