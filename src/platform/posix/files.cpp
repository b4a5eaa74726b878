// Files and dates.
#include <sys/stat.h>

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

// The system opens a folder for reading too, and fails only the reads.
std::FILE* openToRead(const char* fileName) {
  std::FILE* file = std::fopen(fileName, "rb");
  struct stat status;
  if (file != nullptr && fstat(fileno(file), &status) == 0 && S_ISDIR(status.st_mode)) {
    std::fclose(file);
    file = nullptr;
  }
  if (file == nullptr) posix::setLastError(posix::kFileNotFound);
  return file;
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
