/* SPDX-License-Identifier: MIT */
// A device as the verbs reach it: a client that gives its connection back in any case, and errors that say what to do.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "clock.h"
#include "kel/client.hpp"
#include "options.h"
#include "payload.h"
#include "status.h"

namespace kelctl {

/// As many tasks as a connection has sequence numbers, and so may have open.
inline constexpr std::uint32_t kMaxInFlight = 64;

/// What a failed call ends the program with: text, hint, status and cause.
Fault faultOf(const kel::Error& error);

/// So long at most; zero and less is no time at all.
kel::Milliseconds toMilliseconds(double seconds);

Bytes toBytes(const kel::Payload& payload);
inline bool isRef(const kel::Payload& payload) { return payload.form() == kel::Form::ref; }

/// A connection, for the life of the object. Ctrl-C is caught from here on: it closes the client, which ends whatever
/// is waited for.
class Session {
 public:
  /// Throws Fault.
  explicit Session(const LinkOptions& options);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  kel::Client& client() { return mClient; }

  /// How long one answer is waited for.
  kel::Milliseconds timeout() const { return mTimeout; }

  /// Sends a task and waits for its answer. Throws Fault.
  kel::Payload ask(const std::string& task, const Bytes& payload, const kel::CallOptions& options = {});

  /// What a failed call means now that it has failed: Ctrl-C, if that ended it.
  Fault fault(const kel::Error& error) const;

 private:
  static constexpr kel::Milliseconds kConnectTime{10000};

  kel::Options clientOptions(const LinkOptions& options);
  /// Closes the client at Ctrl-C.
  void keepGuard();
  void end();

  const kel::Milliseconds mTimeout;
  kel::Client mClient;

  std::mutex mMutex;
  std::condition_variable mWake;
  bool mEnds = false;  // guarded by mMutex
  std::thread mGuard;
};

}  // namespace kelctl
