// The console outlet, and the rule that a line is reported twice.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

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
inline void append(std::string& line, const char* text) { line += text; }
inline void append(std::string& line, std::int32_t number) { line += std::to_string(number); }
inline void append(std::string& line, std::uint32_t number) { append(line, static_cast<std::int32_t>(number)); }
inline void append(std::string& line, const void* handle) {
  char digits[9];
  std::snprintf(digits, sizeof digits, "%X", static_cast<unsigned>(HandleNumber(handle)));
  line += digits;
}
}  // namespace console

/// Reports one line on both outlets: in the log under `function`, and on the console behind `function` and " - ". On
/// the console every number is a signed decimal one, and a handle stands in hexadecimal digits without a base.
template <class... Pieces>
void ReportTwice(ALogger& logger, const DebugPrint& debugPrint, std::uint32_t level, const char* function,
                 const Pieces&... pieces) {
  (logger.log(level, function, kLogFlags) << ... << pieces);
  if (!debugPrint.isOn()) return;
  std::string line = function;
  line += " - ";
  (console::append(line, pieces), ...);
  debugPrint("%s", line.c_str());
}

}  // namespace kel
