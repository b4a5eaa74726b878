/* SPDX-License-Identifier: MIT */
// The state of the stand-in: connections, socket IDs, rules, device, request log and counts, under one lock.
//
// The lock is held for short steps only and never while a handler runs. It is the one lock on a request's way; traces,
// control status and version have small locks of their own, none of which is taken together with another.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "Capture.h"
#include "Connection.h"
#include "DeviceModel.h"
#include "Rules.h"
#include "RunningScenario.h"
#include "SluiceHubSim.h"

namespace kel::sim {

/// A message that was sent to an agent.
struct Message {
  std::uint32_t agent;
  std::uint32_t ID;
  std::span<const std::uint8_t> body;
};

struct Hub {
  std::mutex mutex;

  std::vector<std::shared_ptr<Connection>> connections;  ///< oldest first
  std::uint64_t createdConnections = 0;
  std::array<std::uint64_t, kNoSocket> socketOwners{};  ///< connection that holds each socket ID, or 0
  std::optional<SluiceHubSimSocketReply> socketReply;
  Rules rules;
  RunningScenario scenario;
  DeviceModel device;
  Answer answer;  ///< serves one request after the other
  SluiceHubSimCounts counts{};
  Capture capture;

  std::uint32_t runningThreads = 0;
  bool halted = false;  ///< the process ends: delivery threads deliver nothing more

  /// The process that connected or began a capture last; a copy of it sees by this that it has nothing to end. Atomic,
  /// since in a copy the lock may belong to a thread that is not there.
  std::atomic<std::uint32_t> process{0};

  std::shared_ptr<Connection> Find(std::uint64_t value) const;
  /// The one connection, or all of them for 0.
  std::vector<std::shared_ptr<Connection>> Select(std::uint64_t value) const;
  void FreeSocketsOf(std::uint64_t connection);

  /// Posts at once, after `delayMs`.
  std::unique_ptr<Delivery> NewDelivery(Delivery::Kind kind, std::uint32_t ID, std::uint32_t delayMs = 0);
  void Recycle(std::unique_ptr<Delivery> delivery);

  void Log(std::uint64_t connection, const Message& message);
  bool GetLogged(std::uint64_t index, SluiceHubSimRequest* request, std::span<std::uint8_t> body) const;

  void Reset();

  /// Blocks until `done` holds, which is looked at whenever something has been sent or delivered.
  template <typename Done>
  void WaitUntil(std::unique_lock<std::mutex>& lock, Done done) {
    ++mWaiters;
    mChanged.wait(lock, done);
    --mWaiters;
  }
  template <typename Done>
  bool WaitFor(std::unique_lock<std::mutex>& lock, std::uint32_t timeoutMs, Done done) {
    ++mWaiters;
    const bool inTime = mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), done);
    --mWaiters;
    return inTime;
  }
  void NotifyWaiters() {
    if (mWaiters != 0) mChanged.notify_all();
  }

 private:
  struct LoggedMessage {
    SluiceHubSimRequest head{};
    std::vector<std::uint8_t> body;
  };

  std::array<LoggedMessage, 64> mLog;  ///< a ring; `counts.messages` is the number of the next one
  std::vector<std::unique_ptr<Delivery>> mSpares;
  std::condition_variable mChanged;
  std::uint32_t mWaiters = 0;
};

/// The one hub. Never destroyed: delivery threads may run until the process has ended.
Hub& TheHub();

}  // namespace kel::sim
