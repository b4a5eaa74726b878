// Broadcasts on their way from the library's thread to the one that prints them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "payload.h"

namespace kelctl {

using Clock = std::chrono::steady_clock;

struct Broadcast {
  std::string name;
  bool isRef = false;
  Bytes payload;
  Clock::time_point arrival;
};

/// The broadcast callback to connect with. It queues what it gets, for the whole process, since it is told nothing of
/// whose broadcast it has; kelctl has one connection.
extern "C" void queueBroadcast(char* name, std::uint32_t isRef, void* payload, std::uint32_t size,
                               std::uint32_t seqTui);

/// The next broadcast, waited for until `deadline`.
std::optional<Broadcast> nextBroadcast(Clock::time_point deadline);

/// The task that makes the device send `values[0]` broadcasts, `values[1]` ms apart.
inline constexpr char kBroadcaster[] = "TASK_ID_APPLICATION_DEBUG_BROADCASTER";

}  // namespace kelctl
