// SPDX-License-Identifier: MIT
#include "platform/standard_streams.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace kelctl {

// _isatty() says yes to the null device as well; only a console has a mode.
bool isTerminal(std::FILE* stream) {
  const HANDLE console = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  DWORD mode = 0;
  if (!GetConsoleMode(console, &mode)) return false;
  SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
  return true;
}

void passBytes(std::FILE* stream) { _setmode(_fileno(stream), _O_BINARY); }

}  // namespace kelctl
