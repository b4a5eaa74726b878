// SPDX-License-Identifier: MIT
#include "road/NatsRoad.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>
#include <vector>

#include "protocol/Wire.h"

namespace kel::fleet {

using detail::Sent;

namespace {

constexpr std::chrono::milliseconds kGreetingTime{2000};
/// A keld tells its state each second. So long without a word, and it is gone.
constexpr std::chrono::milliseconds kSilence{3500};
/// So many messages of a stream are acknowledged at once: some of a window, so that it never runs dry.
constexpr std::uint64_t kSettledAtOnce = 64;
/// Requests that are kept in mind until the servers are known to let their like through.
constexpr std::size_t kMostUnproven = 1024;
/// Headers take that of a payload at the most.
constexpr std::size_t kRoomForHeaders = 1024;

std::optional<std::uint32_t> idIn(std::string_view subject) {
  const std::string_view token = subject.substr(subject.rfind('.') + 1);
  std::uint32_t id = 0;
  const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), id);
  if (error != std::errc() || end != token.data() + token.size()) return std::nullopt;
  return id;
}

}  // namespace

NatsRoad::NatsRoad(DeviceName name, Identity identity) : mSubjects(name), mIdentity(std::move(identity)) {}

std::optional<TaskTable> NatsRoad::table(const std::string& path) const {
  // The device's own is keld's to know. One that is named is for checks on this side.
  if (path.empty()) return std::nullopt;
  return TaskTable::inForce(path);
}

std::string NatsRoad::failure() const { return mFailure; }

bool NatsRoad::open(const std::string& /*table*/, detail::Sink& sink) {
  ConnectionOptions options;
  options.name = "kel client";
  options.onChange = [this](bool isConnected) {
    if (!isConnected) tellLost("the connection to the NATS servers is lost");
  };
  options.onForbidden = [this](const std::string& what) { takeForbidden(what); };
  mConnection = Connection::open(mIdentity.access, std::move(options), mFailure);
  if (!mConnection) return false;
  mSink.store(&sink);
  mInbox = mConnection->newInbox();
  mReplies = mConnection->subscribe(mInbox + ".*", [this](natsMsg* message) { takeReply(*message); });
  if (!mReplies || !greet()) {
    close();
    return false;
  }
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    mIsOpen = true;
  }
  listen();
  return true;
}

bool NatsRoad::greet() {
  const MessagePtr hello = makeMessage(mSubjects.hello(), {}, {});
  setProtocol(*hello);
  natsStatus status = NATS_OK;
  const MessagePtr answer = mConnection->request(*hello, kGreetingTime, status);
  if (status == NATS_NO_RESPONDERS) {
    mFailure = "nobody offers the device";
    return false;
  }
  if (!answer) {
    mFailure = status == NATS_TIMEOUT ? "the device's keld does not answer" : natsStatus_GetText(status);
    return false;
  }
  if (std::string misfit = misfitOf(*answer); !misfit.empty()) {
    mFailure = std::move(misfit);
    return false;
  }
  if (header(*answer, headers::kState) != text(State::connected)) {
    mFailure = "the device's link is " + header(*answer, headers::kState).value_or("unknown");
    return false;
  }
  mInstance = header(*answer, headers::kInstance).value_or("");
  mKeldsConnection = header(*answer, headers::kConnection).value_or("");
  mState = mConnection->subscribe(
      mSubjects.state(), [this](natsMsg* message) { takeState(message); }, {}, kSilence);
  return static_cast<bool>(mState);
}

void NatsRoad::close() {
  Subscription broadcasts;
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    mIsOpen = false;
    broadcasts = std::move(mBroadcasts);
  }
  broadcasts.end();
  mState.end();
  mReplies.end();
  mSink.store(nullptr);
  mConnection.reset();
  mStreams.clear();
  mUnproven.clear();
  mIsProven = {};
}

Sent NatsRoad::send(const detail::Outgoing& request) {
  if (request.size + kRoomForHeaders > mConnection->maxPayload() || !fitsHeader(request.task)) return Sent::wrongForm;
  const Kind kind = request.isStream ? Kind::stream : request.expectsAnswer ? Kind::task : Kind::post;
  const MessagePtr message = makeMessage(subjectOf(kind), mInbox + "." + std::to_string(request.id),
                                         {static_cast<const char*>(request.data), request.size});
  setProtocol(*message);
  setHeader(*message, headers::kTask, request.task);
  if (request.deadline != Clock::time_point::max()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(request.deadline - Clock::now()).count();
    setHeader(*message, headers::kTimeLeft, std::to_string(std::max<std::int64_t>(left, 1)));
  }
  if (!mIdentity.holder.empty()) setHeader(*message, headers::kHolder, mIdentity.holder);
  if (!request.expectsAnswer) setHeader(*message, headers::kSequenceWord, std::to_string(request.sequenceWord));
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (request.isStream) mStreams[request.id] = {};
    watchOver(request.id, kind);
  }
  return mConnection->publish(*message) == NATS_OK ? Sent::sent : Sent::notConnected;
}

std::string NatsRoad::subjectOf(Kind kind) const {
  switch (kind) {
    case Kind::task:
      return mSubjects.task();
    case Kind::post:
      return mSubjects.post();
    case Kind::stream:
      break;
  }
  return mSubjects.stream();
}

void NatsRoad::watchOver(std::uint32_t id, Kind kind) {
  if (!mIsProven[static_cast<std::size_t>(kind)] && mUnproven.size() < kMostUnproven) mUnproven[id] = kind;
}

void NatsRoad::prove(std::uint32_t id) {
  const std::lock_guard<std::mutex> lock(mMutex);
  const auto place = mUnproven.find(id);
  if (place == mUnproven.end()) return;
  const Kind kind = place->second;
  mIsProven[static_cast<std::size_t>(kind)] = true;
  for (auto next = mUnproven.begin(); next != mUnproven.end();) {
    next = next->second == kind ? mUnproven.erase(next) : std::next(next);
  }
}

void NatsRoad::takeForbidden(const std::string& what) {
  std::vector<std::uint32_t> refused;
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    for (auto next = mUnproven.begin(); next != mUnproven.end();) {
      const bool isMeant = what.find('"' + subjectOf(next->second) + '"') != std::string::npos;
      if (isMeant) refused.push_back(next->first);
      next = isMeant ? mUnproven.erase(next) : std::next(next);
    }
  }
  detail::Sink* const sink = mSink.load();
  for (const std::uint32_t id : refused) {
    if (sink != nullptr) sink->failed(id, Cause::refused, 0);
  }
}

void NatsRoad::awaitTurn(Clock::time_point /*deadline*/) {
  // send() is never busy.
}

void NatsRoad::listen() {
  const std::lock_guard<std::mutex> lock(mMutex);
  if (!mIsOpen || mBroadcasts || !mSink.load()->wantsBroadcasts()) return;
  mBroadcasts = mConnection->subscribe(mSubjects.broadcast(), [this](natsMsg* message) { takeBroadcast(*message); });
}

Result<bool> NatsRoad::validateVersion(std::string file, const void* /*content*/, std::uint32_t /*size*/,
                                       std::uint64_t /*userVersion*/, const std::string& /*vectors*/) {
  return Error{Cause::refused, 0, std::move(file)};
}

void NatsRoad::tellLost(const std::string& why) {
  if (detail::Sink* const sink = mSink.load()) sink->lost(why);
}

void NatsRoad::takeReply(natsMsg& message) {
  detail::Sink& sink = *mSink.load();
  const std::optional<std::uint32_t> id = idIn(natsMsg_GetSubject(&message));
  if (!id) return;
  prove(*id);
  if (natsMsg_IsNoResponders(&message)) {
    sink.failed(*id, Cause::linkLost, 0);
    return sink.lost("nobody offers the device any more");
  }
  if (const std::optional<std::string> cause = header(message, headers::kCause)) {
    {
      const std::lock_guard<std::mutex> lock(mMutex);
      mStreams.erase(*id);
    }
    // A cause of a later version is a refusal to us.
    return sink.failed(*id, causeOf(*cause).value_or(Cause::refused),
                       static_cast<std::uint32_t>(numberIn(message, headers::kCode).value_or(0)));
  }
  if (const std::optional<std::uint64_t> number = numberIn(message, headers::kNumber)) {
    return takeStreamMessage(*id, *number, message);
  }
  if (header(message, headers::kForm)) return sink.answered(*id, readPayload(message));
  // keld asks whether anybody is here: to acknowledge is the answer.
  settle(message, {});
}

void NatsRoad::takeStreamMessage(std::uint32_t id, std::uint64_t number, natsMsg& message) {
  detail::Sink& sink = *mSink.load();
  if (number == 0) return sink.answered(id, readPayload(message));
  Incoming stream;
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto place = mStreams.find(id);
    if (place == mStreams.end()) return settle(message, "stop");
    stream = place->second;
  }
  if (number > stream.next) sink.missed(id, number - stream.next);
  stream.next = number + 1;
  const std::optional<std::string> end = header(message, headers::kEnd);
  if (header(message, headers::kForm)) {
    const bool isWanted = sink.streamed(id, {readPayload(message), end.has_value()});
    if (!isWanted && !end && !stream.isStopped) {
      stream.isStopped = true;
      settle(message, "stop");
    } else if (++stream.unsettled == kSettledAtOnce) {
      stream.unsettled = 0;
      settle(message, {});
    }
  } else if (end) {
    sink.ended(id, endOf(*end).value_or(End::finished));
  }
  const std::lock_guard<std::mutex> lock(mMutex);
  if (end) {
    mStreams.erase(id);
  } else {
    mStreams[id] = stream;
  }
}

void NatsRoad::settle(natsMsg& message, std::string_view word) {
  const std::string reply = replyTo(message);
  if (!reply.empty()) mConnection->publish(*makeMessage(reply, {}, word));
}

void NatsRoad::takeState(natsMsg* message) {
  if (message == nullptr) return tellLost("the device's keld has fallen silent");
  if (header(*message, headers::kInstance) != mInstance) return tellLost("another keld offers the device now");
  if (header(*message, headers::kConnection).value_or("") != mKeldsConnection) {
    // What was on its way between keld and the servers went with its former connection.
    return tellLost("the device's keld has come back by another connection");
  }
  const std::string state = header(*message, headers::kState).value_or("unknown");
  if (state != text(State::connected)) tellLost("the device's link is " + state);
}

void NatsRoad::takeBroadcast(natsMsg& message) {
  detail::Sink& sink = *mSink.load();
  const std::uint64_t number = numberIn(message, headers::kNumber).value_or(0);
  const std::string sender = header(message, headers::kInstance).value_or("");
  if (sender == mBroadcaster && number > mNextBroadcast) sink.missedBroadcasts(number - mNextBroadcast);
  mBroadcaster = sender;
  mNextBroadcast = number + 1;
  sink.broadcast({readPayload(message), header(message, headers::kTask).value_or("UNKNOWN_TASK")});
}

// ---- Clients ----

std::unique_ptr<detail::Road> roadTo(const Address& address, Identity identity) {
  if (address.servers.empty()) return std::make_unique<detail::ProcessRoad>();
  identity.access.servers.insert(identity.access.servers.begin(), address.servers.begin(), address.servers.end());
  return std::make_unique<NatsRoad>(DeviceName{address.site, address.device}, std::move(identity));
}

Result<Client> connect(const std::string& uri, Options options, Identity identity) {
  const Result<Address> address = addressOf(uri);
  if (!address) return address.error();
  return Client::connect(std::move(options), roadTo(*address, std::move(identity)));
}

Result<Client> begin(const std::string& uri, Options options, Identity identity) {
  const Result<Address> address = addressOf(uri);
  if (!address) return address.error();
  return Client::begin(std::move(options), roadTo(*address, std::move(identity)));
}

}  // namespace kel::fleet
