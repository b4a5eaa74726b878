/* SPDX-License-Identifier: MIT */
// What the tests of the fleet share: a NATS server, and a device that is offered there by a worker in this process, so
// that the stand-in's controls reach it.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>

#include "SluiceHubSim.h"
#include "fleet/posix/nats_server.h"
#include "kel/fleet.hpp"
#include "keld/Worker.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

using namespace std::chrono_literals;

inline constexpr auto kEcho = tasks::TASK_ID_APPLICATION_DEBUG_VAL;
inline constexpr auto kEchoBytes = tasks::TASK_ID_APPLICATION_DEBUG_REF;
inline constexpr auto kStreamer = tasks::TASK_ID_APPLICATION_DEBUG_STREAMER;
inline constexpr auto kBroadcaster = tasks::TASK_ID_APPLICATION_DEBUG_BROADCASTER;

/// Longer than anything here takes unless something is wrong.
inline constexpr Milliseconds kLong{30'000};

/// Waits until it holds. False if it never does.
template <class Holds>
bool soon(Holds holds) {
  const Clock::time_point until = Clock::now() + kLong;
  while (!holds()) {
    if (Clock::now() >= until) return false;
    std::this_thread::yield();
  }
  return true;
}

inline Cause CauseOf(const Result<Payload>& result) { return result.ok() ? Cause{} : result.cause(); }

inline SluiceHubSimRule RuleFor(std::uint32_t tui) {
  SluiceHubSimRule rule{};
  rule.tui = tui;
  rule.tuiMask = SLUICEHUBSIM_EXACT;
  return rule;
}

/// A worker that runs in this process.
class Offered {
 public:
  explicit Offered(fleet::WorkerOptions options)
      : mWorker(std::move(options)), mThread([this] { mStatus = mWorker.run(); }) {}
  ~Offered() { end(); }

  /// Withdraws the device. Returns the worker's exit status.
  int end() {
    mWorker.stop();
    if (mThread.joinable()) mThread.join();
    return mStatus;
  }

 private:
  fleet::Worker mWorker;
  int mStatus = -1;
  std::thread mThread;
};

class FleetTest : public ::testing::Test {
 protected:
  fleet::WorkerOptions workerOptions(const std::string& device = "bench") const {
    fleet::WorkerOptions options;
    options.name = {"lab", device};
    options.access.servers = {server->address()};
    return options;
  }

  void startServer(const std::string& configuration = {}) { server.emplace(folder.path(), configuration); }
  void offer() { offered.emplace(workerOptions()); }

  /// Options of a client that comes until the device is there.
  static Options coming() {
    Options options;
    options.supervision.reconnect = true;
    options.supervision.firstPause = Milliseconds(20);
    options.supervision.longestPause = Milliseconds(200);
    options.connectTimeout = kLong;
    return options;
  }

  Client connected(Options options = coming(), fleet::Identity identity = {}) {
    return fleet::connect(server->uri(), std::move(options), std::move(identity)).value();
  }

  ScratchDirectory folder;
  RegistrySettings registry;
  std::optional<NatsServer> server;
  std::optional<Offered> offered;
};

}  // namespace kel::test
