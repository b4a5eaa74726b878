// SPDX-License-Identifier: MIT
#include "clock.h"

#include <cstdio>

namespace kelctl {

std::string timeText(Clock::duration time) {
  const double us = std::chrono::duration<double, std::micro>(time).count();
  char text[32];
  if (us < 1e3) {
    std::snprintf(text, sizeof text, "%.0f us", us);
  } else if (us < 1e6) {
    std::snprintf(text, sizeof text, "%.2f ms", us / 1e3);
  } else {
    std::snprintf(text, sizeof text, "%.2f s", us / 1e6);
  }
  return text;
}

}  // namespace kelctl
