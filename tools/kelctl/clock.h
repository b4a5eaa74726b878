/* SPDX-License-Identifier: MIT */
// Times: by which clock, and how people read them.
#pragma once

#include <chrono>
#include <string>

namespace kelctl {

using Clock = std::chrono::steady_clock;

/// "250 us", "1.50 ms", "10.00 s"
std::string timeText(Clock::duration time);

// A moment, in milliseconds: of the day here, and for scripts in UTC ("2026-01-31T12:00:00.000Z").
std::string clockText(std::chrono::system_clock::time_point time);
std::string isoText(std::chrono::system_clock::time_point time);

/// For scripts.
inline double milliseconds(Clock::duration time) { return std::chrono::duration<double, std::milli>(time).count(); }

}  // namespace kelctl
