// SPDX-License-Identifier: MIT
#include "clock.h"

#include <cstdio>
#include <ctime>

namespace kelctl {
namespace {

std::string text(std::chrono::system_clock::time_point time, const char* format,
                 std::tm* (*split)(const std::time_t*)) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
  char head[32], text[48];
  std::strftime(head, sizeof head, format, split(&seconds));
  std::snprintf(text, sizeof text, "%s.%03d", head, static_cast<int>(ms));
  return text;
}

}  // namespace

std::string clockText(std::chrono::system_clock::time_point time) { return text(time, "%H:%M:%S", std::localtime); }
std::string isoText(std::chrono::system_clock::time_point time) {
  return text(time, "%Y-%m-%dT%H:%M:%S", std::gmtime) + 'Z';
}

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
