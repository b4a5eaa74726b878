// SPDX-License-Identifier: MIT
// kelctl: the device from the command line.
#include "command_line.h"
#include "platform/text.h"

int main(int argc, char** argv) {
  const kelctl::TerminalText text;
  return kelctl::run(kelctl::arguments(argc, argv));
}
