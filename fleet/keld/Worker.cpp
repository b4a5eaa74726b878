// SPDX-License-Identifier: MIT
#include "keld/Worker.h"

#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <utility>

#include "directory/Bucket.h"
#include "directory/KeptBroadcasts.h"
#include "keld/LeaseGuard.h"
#include "keld/Log.h"
#include "keld/Metrics.h"
#include "keld/exit_status.h"
#include "keld/host.h"
#include "keld/service_manager.h"

namespace kel::fleet {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr const char* kEcho = "TASK_ID_APPLICATION_DEBUG_VAL";
/// Members of one queue get each request once, if ever two of one name are up.
constexpr const char* kQueue = "keld";
constexpr const char* kServiceVersion = "4.1.0";

/// A worker that does not say for two minutes that it is alive is started anew by keld@.service.
constexpr const char* kAlive = "WATCHDOG=1";

constexpr seconds kStateInterval{1};
constexpr int kPresenceEach = 5;  // of those
constexpr seconds kFirstConnectRetry{1};

/// Tasks that wait for a number behind those in flight. More are told that the device is busy.
constexpr std::uint32_t kMostQueued = 256;

std::string randomId() {
  std::random_device random;
  char text[25];
  std::snprintf(text, sizeof text, "%08x%08x%08x", random(), random(), random());
  return text;
}

std::int64_t millisecondsNow() {
  return std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// A device whose task table has the echo of the built-in one is watched by it, unless something else is named.
std::string heartbeatOf(const WorkerOptions& options) {
  if (!options.heartbeat.empty()) return options.heartbeat;
  return TaskTable::inForce(options.table).find(kEcho) ? kEcho : "";
}

/// What the client layer says of its own limits means to others that the device is busy.
Error toldOf(Error error) {
  if (error.cause == Cause::noNumber) error.cause = Cause::busy;
  return error;
}

}  // namespace

Worker::Worker(WorkerOptions options)
    : mOptions(std::move(options)), mSubjects(mOptions.name), mInstance(randomId()), mSince(millisecondsNow()) {}

Worker::~Worker() = default;

void Worker::stop() {
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    mIsStopping = true;
  }
  mChanged.notify_all();
}

int Worker::run() {
  if (!connect()) return 0;
  if (!nameIsFree()) {
    logLine("error", "another keld offers a device of this name", {{"site", mOptions.name.site}});
    return kExitNameTaken;
  }
  Options options;
  options.table = mOptions.table;
  options.maxQueued = kMostQueued;
  options.supervision.heartbeat = heartbeatOf(mOptions);
  options.supervision.reconnect = true;
  options.supervision.longestPause = milliseconds(5000);
  options.onState = [this](const StateChange& change) {
    logLine(change.state == State::lost ? "warning" : "info", "the device's link changed",
            {{"state", text(change.state)}, {"reason", change.reason}, {"attempt", change.attempt}});
    const std::lock_guard<std::mutex> lock(mMutex);
    mTellsState = true;
    mChanged.notify_all();
  };
  mClient = Client::begin(std::move(options));
  try {
    if (!mOptions.metrics.empty()) {
      mMetrics =
          std::make_unique<Metrics>(mOptions.metrics, mOptions.name.site, mOptions.name.device, mCounters, *mClient);
    }
  } catch (const std::exception& exception) {
    logLine("error", "metrics cannot be served", {{"address", mOptions.metrics}, {"reason", exception.what()}});
    return kExitFailed;
  }
  offer();
  logLine("info", "the device is offered", {{"site", mOptions.name.site}, {"instance", mInstance}});

  std::unique_lock<std::mutex> lock(mMutex);
  for (int turn = 0; !mIsStopping; ++turn) {
    mTellsState = false;
    lock.unlock();
    publishState();
    if (turn % kPresenceEach == 0) publishPresence();
    tellServiceManager(kAlive);
    lock.lock();
    mChanged.wait_for(lock, kStateInterval, [this] { return mIsStopping || mTellsState; });
    if (mTellsState) turn = -1;  // a change is told in the presence too
  }
  lock.unlock();
  withdraw();
  logLine("info", "the device is withdrawn");
  return 0;
}

bool Worker::connect() {
  std::string told;
  std::unique_lock<std::mutex> lock(mMutex);
  while (!mIsStopping) {
    lock.unlock();
    std::string why;
    ConnectionOptions options;
    options.name = "keld " + mOptions.name.site + "/" + mOptions.name.device;
    options.reconnects = true;
    options.onChange = [this](bool isConnected) {
      logLine(isConnected ? "info" : "warning", isConnected ? "back on NATS" : "the NATS servers are out of reach");
      if (!isConnected) return;
      ++mConnections;
      const std::lock_guard<std::mutex> guard(mMutex);
      mTellsState = true;
      mChanged.notify_all();
    };
    options.onForbidden = [](const std::string& what) {
      logLine("error", "the NATS servers forbid it", {{"reason", what}});
    };
    mConnection = Connection::open(mOptions.access, std::move(options), why);
    tellServiceManager(kAlive);
    lock.lock();
    if (mConnection) return true;
    if (told != why) logLine("warning", "the NATS servers cannot be reached yet", {{"reason", why}});
    told = why;
    mChanged.wait_for(lock, kFirstConnectRetry, [this] { return mIsStopping; });
  }
  return false;
}

bool Worker::nameIsFree() {
  const MessagePtr hello = makeMessage(mSubjects.hello(), {}, {});
  setProtocol(*hello);
  natsStatus status = NATS_OK;
  return mConnection->request(*hello, seconds(1), status) == nullptr;
}

void Worker::offer() {
  Connection& nats = *mConnection;
  mGuard = std::make_unique<LeaseGuard>(nats, mOptions.name.site, mOptions.name.device, mOptions.replicas, [this] {
    publishPresence();
    keepBroadcasts();
  });
  mStreams = std::make_unique<StreamSender>(*mClient, nats, mSubjects, mCounters);
  mBroadcasts.emplace(mClient->broadcasts([this](const Broadcast& broadcast) { takeBroadcast(broadcast); }));

  std::map<std::string, std::string> metadata = mOptions.tags;
  metadata["site"] = mOptions.name.site;
  metadata["device"] = mOptions.name.device;
  metadata["model"] = mOptions.model;
  mResponder = std::make_unique<Responder>(
      nats, mInstance, kServiceVersion, "A device of KELHandler", std::move(metadata),
      std::vector<Responder::Endpoint>{{"task", mSubjects.task(), kQueue, &mCounters.tasks},
                                       {"stream", mSubjects.stream(), kQueue, &mCounters.streams}});

  const auto take = [&](const std::string& subject, auto handler, const char* queue) {
    mSubscriptions.push_back(nats.subscribe(subject, std::move(handler), queue));
  };
  take(
      mSubjects.hello(), [this](natsMsg* message) { takeHello(*message); }, kQueue);
  take(
      mSubjects.task(), [this](natsMsg* message) { takeTask(*message); }, kQueue);
  take(
      mSubjects.post(), [this](natsMsg* message) { takePost(*message); }, kQueue);
  take(
      mSubjects.stream(), [this](natsMsg* message) { takeStream(*message); }, kQueue);
  take(
      mSubjects.flow(), [this](natsMsg* message) { mStreams->takeFlow(*message); }, "");
  take(
      mSubjects.lease(),
      [this](natsMsg* message) {
        const std::uint64_t revision = numberIn(*message, headers::kRevision).value_or(0);
        const std::string reply = replyTo(*message);
        if (reply.empty() || !mGuard->awaitRevision(revision, seconds(2))) return;
        publish(*makeMessage(reply, {}, {}));
      },
      "");
  nats.flush(seconds(2));
}

void Worker::withdraw() {
  // Requests that come from now on find nobody, and their senders are told so by the server.
  mSubscriptions.clear();
  mResponder.reset();
  mBroadcasts.reset();
  mClient->close();
  mStreams.reset();
  mMetrics.reset();
  mGuard.reset();
  publishState();
  std::string why;
  if (mConnection->isConnected()) {
    if (const std::optional<Bucket> bucket =
            Bucket::open(*mConnection, bucketOf(mOptions.name.site), std::nullopt, why)) {
      bucket->remove(presenceKey(mOptions.name.device));
    }
    mConnection->flush(seconds(1));
  }
  mClient.reset();
  mConnection.reset();
}

// ---- Requests ----

void Worker::takeHello(natsMsg& message) {
  const std::string reply = replyTo(message);
  if (reply.empty()) return;
  const MessagePtr answer = makeMessage(reply, {}, presence());
  setProtocol(*answer);
  setIdentity(*answer);
  setHeader(*answer, headers::kContent, kJson);
  publish(*answer);
}

std::shared_ptr<const WireRequest> Worker::admitted(natsMsg& message, EndpointCounters& counters) {
  const std::string reply = replyTo(message);
  const auto refuse = [&](const Error& error, const std::string& reason) {
    counters.add(std::chrono::nanoseconds(0), &error);
    if (!reply.empty()) publish(*writeError(reply, error, reason));
    return nullptr;
  };
  Result<WireRequest> request = readRequest(message);
  if (!request) return refuse(request.error(), request.error().subject);
  if (const std::optional<std::string> holder = mGuard->heldAgainst(request->holder)) {
    return refuse({Cause::reserved, 0, request->task}, "reserved for " + *holder);
  }
  return std::make_shared<const WireRequest>(std::move(*request));
}

void Worker::takeTask(natsMsg& message) {
  const steady_clock::time_point begin = steady_clock::now();
  const std::string reply = replyTo(message);
  const std::shared_ptr<const WireRequest> request = admitted(message, mCounters.tasks);
  if (!request) return;
  CallOptions options;
  options.timeout = request->timeLeft;
  mClient->start(
      request->task.c_str(), Request(request->payload.data(), request->payload.size()),
      [this, begin, reply, request](const Result<Payload>& outcome) {
        mCounters.tasks.add(steady_clock::now() - begin, outcome ? nullptr : &outcome.error());
        answer(reply, *request, outcome);
      },
      options);
}

void Worker::takePost(natsMsg& message) {
  const steady_clock::time_point begin = steady_clock::now();
  const std::shared_ptr<const WireRequest> request = admitted(message, mCounters.tasks);
  if (!request) return;
  CallOptions options;
  options.timeout = request->timeLeft;
  options.sequenceWord = request->sequenceWord;
  const Result<void> posted =
      mClient->post(request->task.c_str(), Request(request->payload.data(), request->payload.size()), options);
  mCounters.tasks.add(steady_clock::now() - begin, posted ? nullptr : &posted.error());
  answer(replyTo(message), *request, posted ? Result<Payload>(Payload()) : Result<Payload>(posted.error()));
}

void Worker::answer(const std::string& reply, const WireRequest& request, const Result<Payload>& outcome) {
  if (reply.empty()) return;
  if (!outcome) return publish(*writeError(reply, toldOf(outcome.error())));
  const MessagePtr message = writePayload(reply, {}, *outcome, request.wantsJson);
  setProtocol(*message);
  if (mConnection->publish(*message) == NATS_MAX_PAYLOAD) {
    publish(*writeError(reply, {Cause::wrongForm, 0, request.task}, "the answer is larger than a message may be"));
  }
}

void Worker::takeStream(natsMsg& message) {
  std::string reply = replyTo(message);
  if (reply.empty()) return;
  if (const std::shared_ptr<const WireRequest> request = admitted(message, mCounters.streams)) {
    mStreams->open(*request, std::move(reply));
  }
}

void Worker::takeBroadcast(const Broadcast& broadcast) {
  const MessagePtr message = writePayload(mSubjects.broadcast(), {}, broadcast, false);
  setHeader(*message, headers::kTask, broadcast.task);
  setHeader(*message, headers::kInstance, mInstance);
  // Those that the client layer dropped count as well, so that the gap is seen.
  const std::uint64_t number = ++mCounters.broadcasts + mClient->statistics().droppedBroadcasts;
  setHeader(*message, headers::kNumber, std::to_string(number));
  publish(*message);
}

void Worker::keepBroadcasts() {
  if (mOptions.keepBroadcasts.count() == 0) return;
  std::string why;
  if (!fleet::keepBroadcasts(*mConnection, mOptions.name, mOptions.keepBroadcasts, mOptions.replicas, why)) {
    logLine("error", "broadcasts are not kept", {{"reason", why}});
  }
}

void Worker::publish(natsMsg& message) {
  if (mConnection->publish(message) != NATS_OK) ++mCounters.unpublished;
}

// ---- State and presence ----

void Worker::setIdentity(natsMsg& message) const {
  setHeader(message, headers::kState, text(mClient->state()));
  setHeader(message, headers::kInstance, mInstance);
  setHeader(message, headers::kConnection, std::to_string(mConnections.load()));
}

void Worker::publishState() {
  const MessagePtr message = makeMessage(mSubjects.state(), {}, {});
  setProtocol(*message);
  setIdentity(*message);
  publish(*message);
}

std::string Worker::presence() const {
  const Statistics link = mClient->statistics();
  const nlohmann::json json{{"protocol", kProtocol},
                            {"oldestProtocol", kOldestProtocol},
                            {"version", kServiceVersion},
                            {"site", mOptions.name.site},
                            {"device", mOptions.name.device},
                            {"model", mOptions.model},
                            {"tags", mOptions.tags},
                            {"host", hostName()},
                            {"process", processId()},
                            {"instance", mInstance},
                            {"since", mSince},
                            {"state", text(mClient->state())},
                            {"inFlight", link.inFlight},
                            {"queued", link.queued},
                            {"openStreams", mCounters.openStreams.load()},
                            {"tasks", mCounters.tasks.snapshot().requests}};
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void Worker::publishPresence() {
  // Without waiting for JetStream: what is lost is told again in five seconds.
  publish(
      *makeMessage("$KV." + bucketOf(mOptions.name.site) + "." + presenceKey(mOptions.name.device), {}, presence()));
}

}  // namespace kel::fleet
