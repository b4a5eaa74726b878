// SPDX-License-Identifier: MIT
#include "tally.h"

namespace kelctl {

std::string summary(const Tally& tally) {
  return std::to_string(tally.tasks) + (tally.tasks == 1 ? " task: " : " tasks: ") + std::to_string(tally.answered) +
         " answered, " + std::to_string(tally.timedOut) + " timed out, " + std::to_string(tally.refused) +
         " refused, " + timeText(tally.time);
}

}  // namespace kelctl
