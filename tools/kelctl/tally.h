/* SPDX-License-Identifier: MIT */
// What became of tasks that were sent all at once.
#pragma once

#include <cstdint>
#include <string>

#include "clock.h"

namespace kelctl {

struct Tally {
  std::uint32_t tasks = 0;
  std::uint32_t answered = 0;
  std::uint32_t timedOut = 0;
  std::uint32_t refused = 0;
  Clock::duration time{};
};

/// "64 tasks: 63 answered, 1 timed out, 0 refused, 1.50 ms"
std::string summary(const Tally& tally);

}  // namespace kelctl
