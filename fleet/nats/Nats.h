/* SPDX-License-Identifier: MIT */
// NATS as the rest of the fleet's code sees it: connections, messages and subscriptions that end by themselves.
//
// Threads. A handler runs on a thread of its subscription, one message at a time. A Connection may be used by any
// number of threads. Unsubscribing waits until the handler has returned, so a handler must not do it with its own
// subscription.
#pragma once

#include <nats/nats.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kel/fleet_access.hpp"

namespace kel::fleet {

struct DestroyMessage {
  void operator()(natsMsg* message) const { natsMsg_Destroy(message); }
};
using MessagePtr = std::unique_ptr<natsMsg, DestroyMessage>;

/// A message to send. `reply` may be empty. Throws std::bad_alloc.
MessagePtr makeMessage(const std::string& subject, const std::string& reply, std::string_view payload);
void setHeader(natsMsg& message, const char* name, const std::string& value);
/// Nothing if the message has no such header.
std::optional<std::string> header(natsMsg& message, const char* name);
std::string_view payloadOf(natsMsg& message);
/// Empty if nobody waits for an answer.
std::string replyTo(natsMsg& message);

/// Gets a message, or null when none has come for the subscription's time-out.
using MessageHandler = std::function<void(natsMsg* message)>;

class Subscription {
 public:
  Subscription() = default;
  ~Subscription() { end(); }
  Subscription(Subscription&&) noexcept = default;
  Subscription& operator=(Subscription&& other) noexcept;

  /// Waits until the handler has returned for the last time.
  void end();
  explicit operator bool() const { return mInside != nullptr; }

 private:
  friend class Connection;
  struct Inside;
  std::shared_ptr<Inside> mInside;
};

/// How a connection behaves beyond what is said of access to the servers.
struct ConnectionOptions {
  std::string name;
  /// Come back by itself, for ever; else the first loss is the end of it.
  bool reconnects = false;
  /// How long a server may take until it is reached, and as long until it has said who it is. An attempt ends after
  /// twice that for each server, and once more.
  std::chrono::milliseconds connectTimeout{2000};
  /// Told of each change: true for connected. On a thread of the connection's own; it must not end the connection.
  std::function<void(bool isConnected)> onChange;
  /// Told in the server's words that permissions forbid to publish or subscribe to a subject, which stands in quotes
  /// there: the publish itself said nothing. On a thread of the connection's own.
  std::function<void(const std::string& what)> onForbidden;
};

class Connection {
 public:
  /// Null, with the reason in `why`, if no server can be reached in time or none lets us in. Blocks no longer than the
  /// options say; a thread may stay behind that waits for a server to go on, at most eight of them in a process.
  static std::unique_ptr<Connection> open(const Access& access, ConnectionOptions options, std::string& why);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool isConnected() const;
  /// The largest payload that the server takes, headers included.
  std::size_t maxPayload() const;
  /// A subject that nobody else has, for answers: below "_INBOX", and there below the user's name if there is one, so
  /// that servers can let each user have its own answers only.
  std::string newInbox() const;

  /// With a `queue`, only one of its members gets each message. A time-out of 0 is none.
  Subscription subscribe(const std::string& subject, MessageHandler handler, const std::string& queue = {},
                         std::chrono::milliseconds timeout = std::chrono::milliseconds(0));
  natsStatus publish(natsMsg& message);
  /// Null and the reason in `status`: NATS_NO_RESPONDERS if nobody is there, NATS_TIMEOUT if nobody answers in time.
  MessagePtr request(natsMsg& message, std::chrono::milliseconds timeout, natsStatus& status);
  /// Waits until the servers have had all that was published before.
  bool flush(std::chrono::milliseconds timeout);

  natsConnection* get() const { return mConnection; }

 private:
  Connection() = default;

  struct Watch;
  struct Attempt;
  std::shared_ptr<Watch> mWatch;
  std::string mInboxes;
  natsConnection* mConnection = nullptr;
};

}  // namespace kel::fleet
