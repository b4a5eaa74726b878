/* SPDX-License-Identifier: MIT */
// The console outlet, and the rule that a line is reported twice.
#pragma once

#include <atomic>
#include <cstdint>

#include "logging/ALogger.h"

namespace kel {

/// The console print of one object: writes to standard output while the object's mLogToConsole is not 0.
///
/// It is a member of its object, called like a function: debugPrint("got %d \n", number). Threads: any number; a line
/// does not break inside one call.
class DebugPrint {
 public:
  explicit DebugPrint(const std::atomic<std::uint32_t>& logToConsole) : mLogToConsole(logToConsole) {}
  DebugPrint(const DebugPrint&) = delete;
  DebugPrint& operator=(const DebugPrint&) = delete;

  bool isOn() const { return mLogToConsole.load(std::memory_order_relaxed) != 0; }

  void operator()(const char* format, ...) const __attribute__((format(printf, 2, 3)));

 private:
  const std::atomic<std::uint32_t>& mLogToConsole;
};

/// A handle as the console's %d and %X show it: its low 32 bits.
inline std::int32_t HandleNumber(const void* handle) {
  return static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(handle));
}

namespace console {

// A piece of a line as printf() takes it, and the letter of the conversion for what that is.
inline const char* argument(const char* text) { return text; }
inline std::int32_t argument(std::int32_t number) { return number; }
inline std::int32_t argument(std::uint32_t number) { return static_cast<std::int32_t>(number); }
inline std::uint32_t argument(const void* handle) { return static_cast<std::uint32_t>(HandleNumber(handle)); }

template <class Argument>
constexpr char kConversion = '\0';
template <>
inline constexpr char kConversion<const char*> = 's';
template <>
inline constexpr char kConversion<std::int32_t> = 'd';
template <>
inline constexpr char kConversion<std::uint32_t> = 'X';

/// The format of a whole line, so that it is printed in one call, with no block of its own: "%s - ", and behind that
/// one conversion for each argument.
template <class... Arguments>
struct LineFormat {
  constexpr LineFormat() {
    char* end = text + 5;
    ((*end++ = '%', *end++ = kConversion<Arguments>), ...);
  }
  char text[6 + 2 * sizeof...(Arguments)] = {'%', 's', ' ', '-', ' '};
};
template <class... Arguments>
inline constexpr LineFormat<Arguments...> kLineFormat;

}  // namespace console

/// Reports one line on both outlets: in the log under `function`, and on the console behind `function` and " - ". On
/// the console every number is a signed decimal one, and a handle stands in hexadecimal digits without a base. Nothing
/// is thrown.
template <class... Pieces>
void ReportTwice(ALogger& logger, const DebugPrint& debugPrint, std::uint32_t level, const char* function,
                 const Pieces&... pieces) {
  logger.line(level, function, pieces...);
  if (!debugPrint.isOn()) return;
  debugPrint(console::kLineFormat<decltype(console::argument(pieces))...>.text, function, console::argument(pieces)...);
}

}  // namespace kel
