/* SPDX-License-Identifier: MIT */
// Broadcasts that JetStream keeps for those who come later: a stream for each device, over the subject on which its
// broadcasts are published anyway.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "nats/Nats.h"
#include "protocol/Subjects.h"

namespace kel::fleet {

/// Has the device's broadcasts kept for so long from now on. False, with the reason in `why`, if that cannot be done.
bool keepBroadcasts(Connection& connection, const DeviceName& name, std::chrono::minutes time, int replicas,
                    std::string& why);

/// Gives each broadcast that was kept since then, the oldest first. False, with the reason in `why`, if they cannot be
/// read. The time is the servers'.
bool readBroadcasts(Connection& connection, const DeviceName& name, std::chrono::system_clock::time_point since,
                    const std::function<void(natsMsg& message, std::chrono::system_clock::time_point time)>& take,
                    std::string& why);

}  // namespace kel::fleet
