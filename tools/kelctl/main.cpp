// SPDX-License-Identifier: MIT
// kelctl: the device from the command line.
#include "command_line.h"

int main(int argc, char** argv) { return kelctl::run({argv + 1, argv + argc}); }
