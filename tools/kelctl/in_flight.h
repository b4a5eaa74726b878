/* SPDX-License-Identifier: MIT */
// Several asynchronous tasks at once.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "callbacks.h"

namespace kelctl {

/// As many tasks as a connection has sequence numbers, and so may have open.
inline constexpr std::uint32_t kMaxInFlight = 64;

struct InFlight {
  std::uint32_t tasks = 0;        ///< all of them
  std::uint32_t refused = 0;      ///< tasks that the library did not take
  std::uint32_t refusalCode = 0;  ///< what it returned for the last of them
  std::vector<Answer> answers;    ///< of the others, in the order of their arrival
  Clock::duration time{};         ///< from the first task to the last answer

  bool interrupted = false;  ///< not all of them were waited for

  std::uint32_t answered() const;
  std::uint32_t timedOut() const { return static_cast<std::uint32_t>(answers.size()) - answered(); }
};

/// Sends a task `count` times without waiting, each with its number as command ID and with `payloadOf` that number;
/// then waits for what comes of them, or for Ctrl-C where that is caught.
InFlight sendInFlight(std::uint64_t connection, const std::string& task, std::uint32_t count,
                      const std::function<Bytes(std::uint32_t)>& payloadOf);

/// "64 tasks: 63 answered, 1 timed out, 0 refused, 1.50 ms"
std::string summary(const InFlight& outcome);

}  // namespace kelctl
