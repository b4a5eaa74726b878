/* SPDX-License-Identifier: MIT */
// Streams of a device on their way to readers anywhere on NATS.
//
// Each stream has a thread, which takes messages from the client layer and publishes them. A message has as its reply
// subject where it is acknowledged, it and all before it. No more than a window of messages is on its way; a reader
// that does not acknowledge leaves the others to wait in the client layer's queue, which has a limit, drops the oldest
// beyond it, and counts them: the running number of a message counts those too, so the reader sees the gap. A reader
// that is gone has no subscription any more, and the server says so at the acknowledgement's subject: then the stream
// is stopped.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "kel/client.hpp"
#include "keld/Counters.h"
#include "nats/Nats.h"
#include "protocol/Subjects.h"
#include "protocol/Wire.h"

namespace kel::fleet {

class StreamSender {
 public:
  StreamSender(Client& client, Connection& connection, Subjects subjects, Counters& counters);
  /// Stops all streams and waits for their threads.
  ~StreamSender();

  /// Opens a stream and publishes it to `reply`. Does not wait.
  void open(WireRequest request, std::string reply);
  /// Takes what came to a flow subject: an acknowledgement, "stop", or that nobody is there.
  void takeFlow(natsMsg& message);

 private:
  struct Open;

  void run(Open& stream);
  /// Waits for room in the window. False if the stream is to be stopped.
  bool awaitRoom(Open& stream, std::size_t size);
  void publish(natsMsg& message);
  /// Joins the threads of streams that have ended.
  void sweep(bool all);

  Client& mClient;
  Connection& mConnection;
  const Subjects mSubjects;
  Counters& mCounters;

  std::mutex mMutex;
  std::uint64_t mLastStream = 0;
  std::list<std::unique_ptr<Open>> mOpen;
};

}  // namespace kel::fleet
