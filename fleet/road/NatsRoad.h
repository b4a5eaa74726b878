/* SPDX-License-Identifier: MIT */
// The road over NATS to a device's keld.
//
// Each connection of the client layer is a connection to NATS of its own, which does not come back by itself: when it
// is lost, so is the link, and the client layer does what its options say. So no answer of an earlier connection can be
// taken for one of the next, and nothing is sent twice that was not said to be repeatable.
//
// That the device's side is there is known without asking: its keld tells its state each second, to those who listen.
#pragma once

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kel/detail/road.hpp"
#include "kel/fleet.hpp"
#include "nats/Nats.h"
#include "protocol/Subjects.h"

namespace kel::fleet {

class NatsRoad final : public detail::Road {
 public:
  NatsRoad(DeviceName name, Identity identity);

  std::optional<TaskTable> table(const std::string& path) const override;
  bool confirmsPosts() const override { return true; }
  bool open(const std::string& table, detail::Sink& sink) override;
  std::string failure() const override;
  void close() override;
  detail::Sent send(const detail::Outgoing& request) override;
  void listen() override;
  void awaitTurn(Clock::time_point deadline) override;
  Result<bool> validateVersion(std::string file, const void* content, std::uint32_t size, std::uint64_t userVersion,
                               const std::string& vectors) override;
  std::uint32_t codeOf(detail::Sent) const override { return 0; }

 private:
  /// Of a stream whose end has not come.
  struct Incoming {
    std::uint64_t next = 1;       // running number of the next message
    std::uint64_t unsettled = 0;  // messages since the last acknowledgement
    bool isStopped = false;
  };

  enum class Kind : std::uint8_t { task, post, stream };

  std::string subjectOf(Kind kind) const;
  /// Notes that a request is on its way to a subject which the servers may forbid. With mMutex held.
  void watchOver(std::uint32_t id, Kind kind);
  /// An answer: its subject is allowed.
  void prove(std::uint32_t id);
  /// Requests to the subject that is named there end as refused.
  void takeForbidden(const std::string& what);
  bool greet();
  void takeReply(natsMsg& message);
  void takeStreamMessage(std::uint32_t id, std::uint64_t number, natsMsg& message);
  void takeState(natsMsg* message);
  void takeBroadcast(natsMsg& message);
  void tellLost(const std::string& why);
  /// Acknowledges a message of a stream and all before it, or says "stop" there.
  void settle(natsMsg& message, std::string_view word);

  const Subjects mSubjects;
  const Identity mIdentity;
  std::string mFailure;          // of the thread that opens and closes
  std::string mInstance;         // likewise, and constant while it is open
  std::string mKeldsConnection;  // likewise

  std::unique_ptr<Connection> mConnection;
  std::string mInbox;
  std::atomic<detail::Sink*> mSink{nullptr};
  Subscription mReplies;
  Subscription mState;

  std::mutex mMutex;
  std::map<std::uint32_t, Incoming> mStreams;  // guarded by mMutex
  // Likewise: by number, requests to subjects to which none has been answered yet.
  std::map<std::uint32_t, Kind> mUnproven;
  std::array<bool, 3> mIsProven{};  // likewise, by kind
  bool mIsOpen = false;             // likewise
  Subscription mBroadcasts;         // likewise

  // Of the thread that takes broadcasts.
  std::string mBroadcaster;
  std::uint64_t mNextBroadcast = 0;
};

/// The road to a device, not opened yet.
std::unique_ptr<detail::Road> roadTo(const Address& address, Identity identity);

}  // namespace kel::fleet
