/* SPDX-License-Identifier: MIT */
// The trace call of the exported layer. Whether a trace is kept, and where, is for the pipe library to say.
#pragma once

#include <cstdint>

extern "C" void Beacon_WriteTrace(std::uint32_t sourceMask, std::uint32_t level, const wchar_t* file,
                                  const wchar_t* function, std::uint32_t line, const wchar_t* format, ...);

namespace kel {

/// Names this library as the source of a trace.
inline constexpr std::uint32_t kTraceSource = 0x200000;

inline constexpr std::uint32_t kTraceUnknownConnection = 1;
inline constexpr std::uint32_t kTraceEngineFailed = 4;
inline constexpr std::uint32_t kTraceProgress = 32;

}  // namespace kel
