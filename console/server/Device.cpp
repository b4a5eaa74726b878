// SPDX-License-Identifier: MIT
#include "Device.h"

#include <iterator>
#include <utility>

namespace kel::console {
namespace {

/// Of the streams that have ended so many are remembered.
constexpr std::size_t kMostStreams = 50;
/// Of a message or broadcast so many bytes are shown: they may come by the thousand.
constexpr std::size_t kShownOfMessage = 64;

const char* wordOf(Target target) {
  switch (target) {
    case Target::userDriver:
      return "user driver";
    case Target::firmware:
      return "firmware";
    case Target::broadcast:
      return "broadcast";
    case Target::trace:
      return "trace";
    case Target::upperDsps:
      return "upper DSPs";
  }
  return "unknown";
}

Json linkJson(const StateChange& change) {
  return {{"state", text(change.state)},
          {"reason", change.reason},
          {"attempt", change.attempt},
          {"pause", change.pause.count()},
          {"time", now()}};
}

}  // namespace

Device::Device(Settings settings, Journal& journal, Calls& calls)
    : mSettings(std::move(settings)),
      mIsOfThisHost(fleet::addressOf(mSettings.uri).value().servers.empty()),
      mOwnTable(TaskTable::inForce(mSettings.table)),
      mJournal(journal),
      mCalls(calls),
      mLink(linkJson({State::connecting, ""})) {}

void Device::connect() {
  const std::lock_guard connecting(mConnecting);
  closeLink();
  Options options;
  options.table = mSettings.table;
  options.timeout = mSettings.timeout;
  options.supervision.heartbeat = mSettings.heartbeat;
  options.supervision.reconnect = true;
  options.supervision.longestPause = Milliseconds(5000);
  options.onState = [this](const StateChange& change) { tellLink(change); };
  const auto client = std::make_shared<Client>(fleet::begin(mSettings.uri, std::move(options), identity()).value());
  Subscription broadcasts = client->broadcasts([this](const Broadcast& broadcast) { tellBroadcast(broadcast); });
  const std::lock_guard lock(mMutex);
  mClient = client;
  mBroadcasts.emplace(std::move(broadcasts));
}

void Device::disconnect() {
  const std::lock_guard connecting(mConnecting);
  closeLink();
}

void Device::setHolder(const std::string& holder) {
  {
    const std::lock_guard lock(mMutex);
    mHolder = holder;
    if (!mClient) return;
  }
  connect();
}

fleet::Identity Device::identity() const {
  const std::lock_guard lock(mMutex);
  return {mSettings.access, mHolder};
}

void Device::closeLink() {
  std::shared_ptr<Client> client;
  std::optional<Subscription> broadcasts;
  {
    const std::lock_guard lock(mMutex);
    client = std::exchange(mClient, nullptr);
    if (mBroadcasts) broadcasts.emplace(std::move(*mBroadcasts));
    mBroadcasts.reset();
  }
  if (client) client->close();
}

std::uint64_t Device::send(Order order) {
  const std::shared_ptr<Client> to = client();
  const std::uint64_t id = mCalls.begin(order);
  if (!to) {
    mCalls.end(id, Error{Cause::notConnected, 0, ""});
    return id;
  }
  const Request request(order.payload.data(), order.payload.size());
  CallOptions options;
  options.timeout = order.timeout;
  if (order.wantsAnswer) {
    to->start(
        order.task, request, [this, id](const Result<Payload>& outcome) { mCalls.end(id, outcome); }, options);
  } else {
    const Result<void> sent = to->post(order.task, request, options);
    mCalls.end(id, sent ? Result<Payload>(Payload()) : Result<Payload>(sent.error()));
  }
  return id;
}

Result<std::uint64_t> Device::openStream(const Order& order) {
  const std::shared_ptr<Client> to = client();
  if (!to) return Error{Cause::notConnected, 0, order.task};
  std::uint64_t id = 0;
  {
    const std::lock_guard lock(mMutex);
    id = ++mLastStream;
    OpenStream& entry = mStreams[id];
    entry.task = order.task;
    entry.time = now();
    entry.request = console::jsonOf(order.form, order.bytes());
    tellStream(id, entry);
  }
  StreamOptions options;
  options.timeout = order.timeout;
  Result<Stream> stream = to->stream(
      order.task, Request(order.payload.data(), order.payload.size()),
      [this, id](const Message& message) { tellMessage(id, message); }, [this, id](End end) { endStream(id, end); },
      options);
  const std::lock_guard lock(mMutex);
  const auto entry = mStreams.find(id);
  if (!stream) {
    mStreams.erase(entry);
    mJournal.add(textOf({{"kind", "no-stream"}, {"id", id}}));
    return stream.error();
  }
  // One that was short has ended meanwhile.
  if (entry->second.end == End::none) entry->second.stream.emplace(std::move(*stream));
  return id;
}

Json Device::json() const {
  const std::lock_guard lock(mMutex);
  Json streams = Json::array();
  for (const auto& [id, stream] : mStreams) streams.push_back(jsonOf(id, stream));
  return {{"uri", mSettings.uri},
          {"link", mLink},
          {"streams", streams},
          {"heartbeat", mSettings.heartbeat},
          {"timeout", mSettings.timeout.count()}};
}

Json Device::tasks() const {
  const std::shared_ptr<Client> of = client();
  Json tasks = Json::array();
  for (const TaskTable::Row& row : tableOf(of.get()).rows()) {
    tasks.push_back({{"name", row.name},
                     {"tui", row.tui},
                     {"form", v1::formOf(row.tui) == Form::val ? "VAL" : "REF"},
                     {"target", wordOf(targetOf(row.tui))}});
  }
  return tasks;
}

Json Device::statistics() const {
  const std::shared_ptr<Client> of = client();
  const Statistics counts = of ? of->statistics() : Statistics();
  return {{"answered", counts.answered},
          {"failed", counts.failed},
          {"lateAnswers", counts.lateAnswers},
          {"repeated", counts.repeated},
          {"streamMessages", counts.streamMessages},
          {"broadcasts", counts.broadcasts},
          {"droppedMessages", counts.droppedMessages},
          {"droppedBroadcasts", counts.droppedBroadcasts},
          {"connections", counts.connections},
          {"losses", counts.losses},
          {"heartbeats", counts.heartbeats},
          {"inFlight", counts.inFlight},
          {"queued", counts.queued},
          {"heldNumbers", counts.heldNumbers}};
}

Form Device::formOf(const std::string& task) const {
  const std::shared_ptr<Client> of = client();
  const auto tui = tableOf(of.get()).find(task);
  return tui ? v1::formOf(*tui) : Form::ref;
}

const TaskTable& Device::tableOf(const Client* client) const {
  return client != nullptr && client->table().size() != 0 ? client->table() : mOwnTable;
}

std::shared_ptr<Client> Device::client() const {
  const std::lock_guard lock(mMutex);
  return mClient;
}

void Device::tellLink(const StateChange& change) {
  const std::lock_guard lock(mMutex);
  mLink = linkJson(change);
  mJournal.add(textOf({{"kind", "link"}, {"link", mLink}}));
}

void Device::tellMessage(std::uint64_t id, const Message& message) {
  const std::lock_guard lock(mMutex);
  const auto entry = mStreams.find(id);
  if (entry == mStreams.end()) return;
  mJournal.add(textOf({{"kind", "message"},
                       {"stream", id},
                       {"number", entry->second.messages++},
                       {"time", now()},
                       {"payload", console::jsonOf(message.form(), message.bytes(), kShownOfMessage)}}));
}

void Device::tellStream(std::uint64_t id, const OpenStream& stream) const {
  mJournal.add(textOf({{"kind", "stream"}, {"stream", jsonOf(id, stream)}}));
}

bool Device::endStream(std::uint64_t id, End end) {
  std::optional<Stream> ended;  // destroyed once the lock is given back
  const std::lock_guard lock(mMutex);
  const auto entry = mStreams.find(id);
  if (entry == mStreams.end() || entry->second.end != End::none) return false;
  OpenStream& stream = entry->second;
  stream.end = end;
  if (stream.stream) {
    stream.dropped = stream.stream->dropped();
    ended.emplace(std::move(*stream.stream));
    stream.stream.reset();
  }
  tellStream(id, stream);
  forgetOldStreams();
  return true;
}

void Device::tellBroadcast(const Broadcast& broadcast) const {
  mJournal.add(textOf({{"kind", "broadcast"},
                       {"time", now()},
                       {"task", broadcast.task},
                       {"word", broadcast.sequenceWord()},
                       {"payload", console::jsonOf(broadcast.form(), broadcast.bytes(), kShownOfMessage)}}));
}

void Device::forgetOldStreams() {
  for (auto entry = mStreams.begin(); entry != mStreams.end() && mStreams.size() > kMostStreams;) {
    entry = entry->second.end == End::none ? std::next(entry) : mStreams.erase(entry);
  }
}

Json Device::jsonOf(std::uint64_t id, const OpenStream& stream) {
  return {{"id", id},
          {"task", stream.task},
          {"time", stream.time},
          {"state", stream.end == End::none ? "open" : text(stream.end)},
          {"messages", stream.messages},
          {"dropped", stream.dropped},
          {"request", stream.request}};
}

}  // namespace kel::console
