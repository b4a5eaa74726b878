/* SPDX-License-Identifier: MIT */
// Where everything that comes in from the adapter enters the engine, and where it leaves it for the client.
//
// The two callbacks run on the pipe library's threads: they classify, copy and signal, and call no client. The two
// Process functions run on the listener threads and do.
#pragma once

#include <cstdint>

namespace kel {

/// Takes a task record of `size` bytes, which stays the caller's. 1 if it was taken, else 0.
std::uint32_t BrelEngineCallback(std::uint32_t dorvHandle, const std::uint8_t* buffer, std::uint32_t bufferSize);

/// Takes an error event of the adapter. 1 if it was taken, else 0.
std::uint32_t BrelEngineAlertsCallback(std::uint32_t dorvHandle, std::uint32_t errorCode);

/// Hand a queued alert or broadcast to the engine of a listener. 0 only if there is no such engine any more.
std::uint32_t ProcessAlertData(std::uint32_t engineHandle, const std::uint8_t* buffer, std::uint32_t bufferSize);
std::uint32_t ProcessBroadcastData(std::uint32_t engineHandle, const std::uint8_t* buffer, std::uint32_t bufferSize);

}  // namespace kel
