// SPDX-License-Identifier: MIT
#include "Traces.h"

#include <atomic>
#include <cstdarg>
#include <cwchar>
#include <deque>
#include <mutex>

#include "Export.h"
#include "SluiceHubSim.h"
#include "logging/Trace.h"

namespace kel::sim {
namespace {

constexpr std::size_t kMostTraces = 4096;

std::atomic<std::uint32_t> gKeptLevels{0};

/// A lock of their own: a trace may be written wherever the hub's lock is held.
struct KeptTraces {
  std::mutex mutex;
  std::deque<SluiceHubSimTrace> traces;
};

/// Never destroyed, since traces are written for as long as the process has threads.
KeptTraces& Kept() {
  static auto* kept = new KeptTraces;
  return *kept;
}

template <std::size_t Room>
void CopyText(wchar_t (&to)[Room], const wchar_t* from) {
  if (from == nullptr) return;
  std::size_t i = 0;
  for (; i + 1 < Room && from[i] != 0; ++i) to[i] = from[i];
  to[i] = 0;
}

}  // namespace

void ResetTraces() {
  gKeptLevels = 0;
  SluiceHubSim_ClearTraces();
}

}  // namespace kel::sim

extern "C" {

SLUICE_HUB_EXPORT void Beacon_WriteTrace(std::uint32_t sourceMask, std::uint32_t level, const wchar_t* file,
                                         const wchar_t* function, std::uint32_t line, const wchar_t* format, ...) {
  using namespace kel::sim;
  if ((level & gKeptLevels.load(std::memory_order_relaxed)) == 0) return;

  SluiceHubSimTrace trace{};
  trace.sourceMask = sourceMask;
  trace.level = level;
  trace.line = line;
  CopyText(trace.file, file);
  CopyText(trace.function, function);
  if (format != nullptr) {
    // A text that does not fit is reported as an error, with what fits in place.
    constexpr std::size_t room = sizeof trace.text / sizeof *trace.text;
    std::va_list arguments;
    va_start(arguments, format);
    std::vswprintf(trace.text, room, format, arguments);
    va_end(arguments);
    trace.text[room - 1] = 0;
  }

  KeptTraces& kept = Kept();
  const std::lock_guard lock(kept.mutex);
  if (kept.traces.size() == kMostTraces) kept.traces.pop_front();
  kept.traces.push_back(trace);
}

SLUICE_HUB_EXPORT void SluiceHubSim_KeepTraces(uint32_t levels) { kel::sim::gKeptLevels = levels; }

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_TraceCount(void) {
  auto& kept = kel::sim::Kept();
  const std::lock_guard lock(kept.mutex);
  return static_cast<uint32_t>(kept.traces.size());
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_GetTrace(uint32_t index, SluiceHubSimTrace* trace) {
  auto& kept = kel::sim::Kept();
  const std::lock_guard lock(kept.mutex);
  if (index >= kept.traces.size()) return 0;
  *trace = kept.traces[index];
  return 1;
}

SLUICE_HUB_EXPORT void SluiceHubSim_ClearTraces(void) {
  auto& kept = kel::sim::Kept();
  const std::lock_guard lock(kept.mutex);
  kept.traces.clear();
}

}  // extern "C"
