/* SPDX-License-Identifier: MIT */
// The library as kelctl calls it: a connection that is given back in any case, and refusals that say what they mean.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "KELHandler.h"
#include "callbacks.h"
#include "payload.h"

namespace kelctl {

/// What a result code means and what to do next, in lines of less than 80 columns.
std::string meaning(std::uint32_t code);

/// A call that the library refused: its name, the code, the code's meaning.
class Refused : public std::runtime_error {
 public:
  Refused(const std::string& call, std::uint32_t code);

  const std::string& call() const { return mCall; }
  std::uint32_t code() const { return mCode; }

 private:
  const std::string mCall;
  const std::uint32_t mCode;
};

/// A task that was sent and not answered within RxWaitTimeout.
class NoAnswer : public std::runtime_error {
 public:
  NoAnswer();
};

/// Ctrl-C while an answer was waited for.
class Interrupted : public std::runtime_error {
 public:
  Interrupted();
};

/// The outcome of a task. `payload` is there if the device answered, also with no bytes.
struct Reply {
  std::uint32_t code = KEL_OK;
  std::optional<Bytes> payload;
};

/// Sends a task and takes its answer over, whatever the result.
Reply sendTask(std::uint64_t connection, const std::string& task, const Bytes& payload, bool responseExpected = true,
               KEL_StreamCallback streamCallback = nullptr);

/// What KEL_ValidateVersion says of a file with this name and content. Throws Refused.
bool isVersionValid(std::uint64_t connection, std::string name, const Bytes& content, const std::string& vectors);

/// The pipe library started and one connection open, for the life of the object. Ctrl-C is caught from here on: the
/// connection is given back in any case.
class Session {
 public:
  /// An empty `table` is the library's choice. Throws Refused.
  explicit Session(const std::string& table, KEL_BroadcastCallback broadcastCallback = nullptr);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  std::uint64_t connection() const { return mConnection; }

  /// Sends a task and waits for its answer. Throws Refused, NoAnswer, Interrupted.
  ///
  /// It goes the asynchronous road: there a task that was refused and one that was not answered can be told apart, the
  /// latter keeps no sequence number, and Ctrl-C need not wait for the time-out.
  Answer ask(const std::string& task, const Bytes& payload) const;
  /// Sends a task that opens a stream and waits for its opening. Messages may overtake that. Throws as ask().
  void openStream(const std::string& task, const Bytes& payload) const;
  /// Sends a task and waits for nothing. Throws Refused.
  void tell(const std::string& task, const Bytes& payload) const;

 private:
  std::uint64_t mConnection = 0;
};

}  // namespace kelctl
