/* SPDX-License-Identifier: MIT */
// One device on NATS: what `keld run` does in each of its processes.
//
//     request on NATS -> client layer -> device -> client layer -> answer on NATS
//
// The client layer has all the policies: limits, deadlines, causes, supervision, reconnects. The worker translates.
//
// Threads. Requests come on threads of their subscriptions and go to the client without waiting, but for posts, which
// wait for each other; answers come on the client's callback thread, and are published there. Streams have threads of
// their own (StreamSender). The thread that runs the worker tells the device's state each second and its presence each
// five.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "kel/client.hpp"
#include "keld/Counters.h"
#include "keld/Responder.h"
#include "keld/StreamSender.h"
#include "keld/WorkerOptions.h"
#include "nats/Nats.h"
#include "protocol/Wire.h"

namespace kel::fleet {

class LeaseGuard;
class Metrics;

class Worker {
 public:
  explicit Worker(WorkerOptions options);
  ~Worker();

  /// Runs until stop(). Returns the program's exit status.
  int run();
  /// From any thread and any handler of signals that runs on a thread.
  void stop();

 private:
  bool connect();
  /// False if another keld offers a device of this name.
  bool nameIsFree();
  void offer();
  void withdraw();

  void takeHello(natsMsg& message);
  void takeTask(natsMsg& message);
  void takePost(natsMsg& message);
  void takeStream(natsMsg& message);
  void takeBroadcast(const Broadcast& broadcast);

  /// The request in a message, if it may be carried out; else null, and its sender has been told.
  std::shared_ptr<const WireRequest> admitted(natsMsg& message, EndpointCounters& counters);
  void answer(const std::string& reply, const WireRequest& request, const Result<Payload>& outcome);
  /// Has JetStream keep them, if that is asked for.
  void keepBroadcasts();
  void publish(natsMsg& message);
  void setIdentity(natsMsg& message) const;
  void publishState();
  void publishPresence();
  std::string presence() const;

  const WorkerOptions mOptions;
  const Subjects mSubjects;
  const std::string mInstance;
  const std::int64_t mSince;
  Counters mCounters;
  std::atomic<std::uint32_t> mConnections{1};  // to the servers, this one included

  std::mutex mMutex;
  std::condition_variable mChanged;
  bool mIsStopping = false;
  bool mTellsState = false;  // out of turn

  std::unique_ptr<Connection> mConnection;
  std::optional<Client> mClient;
  std::unique_ptr<LeaseGuard> mGuard;
  std::unique_ptr<StreamSender> mStreams;
  std::unique_ptr<Responder> mResponder;
  std::unique_ptr<Metrics> mMetrics;
  std::optional<kel::Subscription> mBroadcasts;
  std::vector<fleet::Subscription> mSubscriptions;
};

}  // namespace kel::fleet
