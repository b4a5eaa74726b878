/* SPDX-License-Identifier: MIT */
// The device that the console shows: its link, and what passes over it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Calls.h"
#include "Journal.h"
#include "Json.h"
#include "kel/fleet.hpp"

namespace kel::console {

/// One client at a time, with all broadcasts subscribed. What happens goes to the journal:
///
///   {"kind": "link", "link": {"state", "reason", "attempt", "pause", "time"}}
///   {"kind": "stream", "stream": {"id", "task", "time", "state", "messages", "dropped", "request"}}
///   {"kind": "message", "stream", "number", "time", "payload"}
///   {"kind": "broadcast", "time", "task", "word", "payload"}
///
/// Every function may be called by any thread but the client's own callback thread.
class Device {
 public:
  struct Settings {
    std::string uri;  ///< checked
    fleet::Access access;
    std::string table;
    std::string heartbeat;
    Milliseconds timeout{10000};
  };

  Device(Settings settings, Journal& journal, Calls& calls);
  ~Device() { disconnect(); }

  /// Begins to connect, which is the first thing to do; a link that is there is closed first. Does not wait for the
  /// device.
  void connect();
  /// Closes the link and waits for that. All that is under way ends.
  void disconnect();

  /// What is sent from now on is sent under this reservation, or under none. Opens a link anew that is there.
  void setHolder(const std::string& holder);

  /// Sends a task and does not wait for its answer, which the history gets. Returns the call's number.
  std::uint64_t send(Order order);
  /// Opens a stream and waits for that. Returns its number.
  Result<std::uint64_t> openStream(const Order& order);
  /// False if there is no such stream, or it has ended.
  bool stopStream(std::uint64_t id) { return endStream(id, End::stopped); }

  const Settings& settings() const { return mSettings; }
  /// Whether it is reached by the library in this process.
  bool isOfThisHost() const { return mIsOfThisHost; }
  /// {"uri", "link", "streams", "heartbeat", "timeout"}
  Json json() const;
  /// [{"name", "tui", "form", "target"}], in the table's order.
  Json tasks() const;
  /// REF for a task that the table does not have.
  Form formOf(const std::string& task) const;
  /// The client's counts.
  Json statistics() const;

 private:
  struct OpenStream {
    std::string task;
    double time = 0;
    Json request;
    std::uint64_t messages = 0;
    End end = End::none;
    std::uint64_t dropped = 0;
    std::optional<Stream> stream;  ///< until it ends
  };

  void closeLink();  // under mConnecting
  std::shared_ptr<Client> client() const;
  fleet::Identity identity() const;
  /// A client of another host's device may know none: then it is this host's.
  const TaskTable& tableOf(const Client* client) const;
  void tellLink(const StateChange& change);
  void tellMessage(std::uint64_t id, const Message& message);
  void tellStream(std::uint64_t id, const OpenStream& stream) const;
  bool endStream(std::uint64_t id, End end);
  void tellBroadcast(const Broadcast& broadcast) const;
  void forgetOldStreams();
  static Json jsonOf(std::uint64_t id, const OpenStream& stream);

  const Settings mSettings;
  const bool mIsOfThisHost;
  const TaskTable mOwnTable;
  Journal& mJournal;
  Calls& mCalls;

  std::mutex mConnecting;  // one connect() or disconnect() at a time; taken before mMutex
  mutable std::mutex mMutex;
  // Guarded by mMutex, under which the client is not called.
  std::shared_ptr<Client> mClient;  // null while nobody is connected
  std::optional<Subscription> mBroadcasts;
  std::string mHolder;
  Json mLink;
  std::map<std::uint64_t, OpenStream> mStreams;
  std::uint64_t mLastStream = 0;
};

}  // namespace kel::console
