// SPDX-License-Identifier: MIT
#include "platform/terminal.h"

#include <windows.h>

namespace kelctl {

TerminalSize terminalSize() {
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info)) return {80, 24};
  return {static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left + 1),
          static_cast<std::size_t>(info.srWindow.Bottom - info.srWindow.Top + 1)};
}

struct SingleKeys::Before {
  HANDLE console;
  DWORD mode;
};

SingleKeys::SingleKeys() {
  const HANDLE console = GetStdHandle(STD_INPUT_HANDLE);
  DWORD mode;
  if (!GetConsoleMode(console, &mode)) return;
  mBefore = new Before{console, mode};
  SetConsoleMode(console, mode & ~static_cast<DWORD>(ENABLE_LINE_INPUT | ENABLE_ECHO_INPUT));
}

SingleKeys::~SingleKeys() {
  if (mBefore != nullptr) SetConsoleMode(mBefore->console, mBefore->mode);
  delete mBefore;
}

std::optional<char> SingleKeys::next(std::chrono::milliseconds time) {
  if (mBefore == nullptr) {
    Sleep(static_cast<DWORD>(time.count()));
    return std::nullopt;
  }
  const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(time.count());
  for (ULONGLONG now = GetTickCount64(); now <= end; now = GetTickCount64()) {
    if (WaitForSingleObject(mBefore->console, static_cast<DWORD>(end - now)) != WAIT_OBJECT_0) break;
    INPUT_RECORD record;
    DWORD count;
    if (!ReadConsoleInputA(mBefore->console, &record, 1, &count) || count != 1) break;
    const KEY_EVENT_RECORD& key = record.Event.KeyEvent;
    if (record.EventType == KEY_EVENT && key.bKeyDown && key.uChar.AsciiChar != 0) return key.uChar.AsciiChar;
  }
  return std::nullopt;
}

}  // namespace kelctl
