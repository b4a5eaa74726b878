// SPDX-License-Identifier: MIT
#include "platform/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <thread>

namespace kelctl {

TerminalSize terminalSize() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return {80, 24};
  return {size.ws_col, size.ws_row};
}

struct SingleKeys::Before {
  termios settings;
};

SingleKeys::SingleKeys() {
  termios settings;
  if (tcgetattr(STDIN_FILENO, &settings) != 0) return;
  mBefore = new Before{settings};
  settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &settings);
}

SingleKeys::~SingleKeys() {
  if (mBefore != nullptr) tcsetattr(STDIN_FILENO, TCSANOW, &mBefore->settings);
  delete mBefore;
}

std::optional<char> SingleKeys::next(std::chrono::milliseconds time) {
  if (mBefore == nullptr) {
    std::this_thread::sleep_for(time);
    return std::nullopt;
  }
  pollfd keys{STDIN_FILENO, POLLIN, 0};
  char key;
  if (poll(&keys, 1, static_cast<int>(time.count())) == 1 && read(STDIN_FILENO, &key, 1) == 1) return key;
  return std::nullopt;
}

}  // namespace kelctl
