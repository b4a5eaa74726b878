/* SPDX-License-Identifier: MIT */
// A device as the verbs reach it: a client that gives its connection back in any case, a link that is watched, and
// errors that say what to do.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "clock.h"
#include "interrupt.h"
#include "kel/client.hpp"
#include "options.h"
#include "payload.h"
#include "status.h"

namespace kelctl {

/// As many tasks as a connection has sequence numbers, and so may have open.
inline constexpr std::uint32_t kMaxInFlight = 64;

/// What a failed call ends the program with: text, hint, status and cause.
Fault faultOf(const kel::Error& error);

kel::Milliseconds toMilliseconds(double seconds);

Bytes toBytes(const kel::Payload& payload);
inline bool isRef(const kel::Payload& payload) { return payload.form() == kel::Form::ref; }

/// A client that begins to connect to a device, wherever it is. Throws Fault.
kel::Client beginClient(const WhichDevice& device, kel::Options options);

/// A connection, for the life of the object. Ctrl-C is caught from here on. It closes the client, which ends whatever
/// is waited for; so does the loss of the link, unless the client is to come back.
class Device {
 public:
  /// Connects. Throws Fault.
  explicit Device(const LinkOptions& options, bool checksForm = true);
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  kel::Client& client() { return mClient; }

  /// Whether it may serve once more.
  bool isUsable() const { return mClient.state() != kel::State::closed && !loss() && !interrupted(); }

  /// Tells on standard error what goes on from now on, and how the link is watched meanwhile.
  void announce(const std::string& activity) const;

  /// Sends a task and waits for its answer. Throws Fault.
  kel::Payload ask(const std::string& task, const Bytes& payload);

  /// What a failed call means now that it has failed: Ctrl-C or the loss of the link, if that ended it.
  Fault fault(const kel::Error& error);

  /// The end of the link, if it has ended for good.
  std::optional<Fault> loss() const;

 private:
  struct Watch {
    std::string task;  ///< empty: the link is not watched
    kel::Milliseconds interval{2000};
  };

  static Watch watchOf(const LinkOptions& options);
  kel::Options clientOptions(const LinkOptions& options, bool checksForm);
  void tell(const kel::StateChange& change);
  /// Closes the client at Ctrl-C and at the loss of the link.
  void keepGuard();
  void end();

  const bool mReconnects;
  const Watch mWatch;

  mutable std::mutex mMutex;
  std::condition_variable mWake;
  bool mEnds = false;                // guarded by mMutex
  bool mIsUp = false;                // likewise: connected, as far as was told
  bool mWasLost = false;             // likewise: it is to be told when it is back
  std::optional<std::string> mLoss;  // likewise: why the link is gone for good

  kel::Client mClient;
  const bool mIsElsewhere;  ///< the device is another host's
  std::thread mGuard;
};

/// The device that a verb works with: one of its own, or the one that KeptDevice has from the verb before.
class Session {
 public:
  /// Connects, if need be. Throws Fault.
  explicit Session(const LinkOptions& options, bool checksForm = true);

  // As of a Device.
  kel::Client& client() { return mDevice->client(); }
  void announce(const std::string& activity) const { mDevice->announce(activity); }
  kel::Payload ask(const std::string& task, const Bytes& payload) { return mDevice->ask(task, payload); }
  Fault fault(const kel::Error& error) { return mDevice->fault(error); }
  std::optional<Fault> loss() const { return mDevice->loss(); }

 private:
  const std::shared_ptr<Device> mDevice;
};

/// While it lives, the device of a session stays connected for the next one with the same options. One at a time.
class KeptDevice {
 public:
  KeptDevice();
  ~KeptDevice();
  KeptDevice(const KeptDevice&) = delete;
  KeptDevice& operator=(const KeptDevice&) = delete;
};

}  // namespace kelctl
