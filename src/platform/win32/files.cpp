// Files and dates.
#include <fcntl.h>
#include <io.h>
#include <time.h>

#include <locale>

#include "platform/platform.h"
#include "platform/win32/windows_api.h"

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

// _isatty() says yes to the null device as well; only a console has a mode.
bool isTerminal(std::FILE* stream) {
  const HANDLE console = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  DWORD mode = 0;
  if (!GetConsoleMode(console, &mode)) return false;
  SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
  return true;
}

void passBytes(std::FILE* stream) { _setmode(_fileno(stream), _O_BINARY); }

int dateText(char (&text)[kDateTextSize]) { return _strdate_s(text, sizeof text); }

int timeText(char (&text)[kDateTextSize]) { return _strtime_s(text, sizeof text); }

}  // namespace kel::platform
