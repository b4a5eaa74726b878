/* SPDX-License-Identifier: MIT */
// The adapter's rows and its log, for the adapter's own sources.
#pragma once

#include <atomic>
#include <cstdint>

#include "adapter/Dorv.h"
#include "logging/ALogger.h"

namespace kel {

inline constexpr std::uint32_t kDorvInstances = 16;

/// One row. Its fields are read and written by several threads with no lock: always through Load() and Store().
struct DorvInstance {
  std::uint64_t L5Connection;  ///< opaque, from L5Connect; 0: none
  std::uint32_t handle;        ///< the row's number. Its address is the context of the row's L5 events
  std::uint8_t socketID;       ///< from KelProxyAgent; 255: none
  std::uint32_t inUse;
  std::uint32_t disconnecting;  ///< this side has begun to disconnect: the event of it is no alert
  BrelCallback brelCallback;
  BrelAlertsCallback brelAlertsCallback;
};

template <class Field>
Field Load(Field& field) {
  return std::atomic_ref<Field>(field).load(std::memory_order_relaxed);
}

template <class Field>
void Store(Field& field, Field value) {
  std::atomic_ref<Field>(field).store(value, std::memory_order_relaxed);
}

extern DorvInstance gDorvInstances[kDorvInstances];

/// The pipe library's functions: null until the first successful Dorv_Init, and never cleared again.
extern std::atomic<tL5DispatcherFunctions*> gL5DispatcherFunctions;

/// Set by the first load of the pipe library; null while it is not loaded.
extern std::atomic<GetServiceDispatcherFunctions> gGetServiceDispatcherFunctions;

/// The log of all rows. It writes nothing before the first load of the pipe library.
extern ALogger& gDorvLogger;

/// Counts one more user of the pipe library, and loads it for the first. False if it may not be used.
bool WRAPPER_COMMON_LoadSluiceHub();
/// Counts one user less, and frees the library with the last.
void WRAPPER_COMMON_UnloadSluiceHub();

/// The adapter's console print, which prints nothing.
inline void Dorv_DebugPrint(const char* /*format*/, ...) {}

/// A line of the log before the row is known.
template <class... Pieces>
void LogDorv(std::uint32_t level, const char* function, const Pieces&... pieces) {
  gDorvLogger.line(level, function, pieces...);
}

/// A line of the log about a row.
template <class... Pieces>
void LogRow(std::uint32_t level, std::uint32_t handle, const char* function, const Pieces&... pieces) {
  LogDorv(level, function, "(", handle, ") - ", pieces...);
}

/// An error of a row, on both outlets.
template <class... Pieces>
void ReportRowError(std::uint32_t handle, const char* function, const char* text, const Pieces&... pieces) {
  LogRow(kError, handle, function, text, pieces...);
  Dorv_DebugPrint("DorvL5 (%d) - %s - ERROR - %s", handle, function, text);
}

/// An error before the row is known, on both outlets.
template <class... Pieces>
void ReportDorvError(const char* function, const char* text, const Pieces&... pieces) {
  LogDorv(kError, function, text, pieces...);
  Dorv_DebugPrint("DorvL5 - %s - ERROR - %s", function, text);
}

}  // namespace kel
