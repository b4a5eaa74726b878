// SPDX-License-Identifier: MIT
#include "keld/StreamSender.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <utility>

namespace kel::fleet {

namespace {

/// As many streams as a connection has numbers for, less those that tasks need.
constexpr std::size_t kMostStreams = 48;
constexpr std::uint64_t kWindow = 256;
constexpr std::uint64_t kLargestWindow = 4096;
constexpr std::size_t kWindowBytes = 4 << 20;

/// A reader that acknowledges nothing for so long is asked whether it is there.
constexpr std::chrono::seconds kPatience{2};

/// Waits for a reader in the client layer, of each stream.
constexpr std::size_t kQueued = 16384;

}  // namespace

struct StreamSender::Open {
  // Constant.
  WireRequest request;
  std::string reply;
  std::uint64_t number = 0;  // of the stream

  // Guarded by the sender's mutex.
  std::condition_variable changed;
  std::deque<std::pair<std::uint64_t, std::size_t>> underWay;  // running number and size of what is not acknowledged
  std::size_t bytesUnderWay = 0;
  Stream* stream = nullptr;  // while it is open
  bool isStopping = false;
  bool isOver = false;

  std::thread thread;
};

StreamSender::StreamSender(Client& client, Connection& connection, Subjects subjects, Counters& counters)
    : mClient(client), mConnection(connection), mSubjects(std::move(subjects)), mCounters(counters) {}

StreamSender::~StreamSender() { sweep(true); }

void StreamSender::sweep(bool all) {
  std::list<std::unique_ptr<Open>> ended;
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    for (auto place = mOpen.begin(); place != mOpen.end();) {
      const auto next = std::next(place);
      Open& stream = **place;
      if (all) {
        stream.isStopping = true;
        if (stream.stream != nullptr) stream.stream->stop();
        stream.changed.notify_all();
      }
      if (all || stream.isOver) ended.splice(ended.end(), mOpen, place);
      place = next;
    }
  }
  for (const std::unique_ptr<Open>& stream : ended) stream->thread.join();
}

void StreamSender::open(WireRequest request, std::string reply) {
  sweep(false);
  const std::lock_guard<std::mutex> lock(mMutex);
  if (mOpen.size() >= kMostStreams) {
    const Error error{Cause::busy, 0, request.task};
    mCounters.streams.add(std::chrono::nanoseconds(0), &error);
    publish(*writeError(reply, error));
    return;
  }
  mOpen.push_back(std::make_unique<Open>());
  Open& stream = *mOpen.back();
  stream.request = std::move(request);
  stream.reply = std::move(reply);
  stream.number = ++mLastStream;
  stream.thread = std::thread([this, &stream] { run(stream); });
}

void StreamSender::takeFlow(natsMsg& message) {
  const std::optional<FlowMark> mark = flowMarkOf(natsMsg_GetSubject(&message));
  if (!mark) return;
  const std::lock_guard<std::mutex> lock(mMutex);
  const auto place =
      std::find_if(mOpen.begin(), mOpen.end(), [&](const auto& one) { return one->number == mark->stream; });
  if (place == mOpen.end()) return;
  Open& stream = **place;
  if (natsMsg_IsNoResponders(&message) || payloadOf(message) == "stop") {
    stream.isStopping = true;
    if (stream.stream != nullptr) stream.stream->stop();
  } else {
    while (!stream.underWay.empty() && stream.underWay.front().first <= mark->number) {
      stream.bytesUnderWay -= stream.underWay.front().second;
      stream.underWay.pop_front();
    }
  }
  stream.changed.notify_all();
}

void StreamSender::run(Open& open) {
  const WireRequest& request = open.request;
  const auto begin = std::chrono::steady_clock::now();
  StreamOptions options;
  options.timeout = request.timeLeft;
  options.idle = request.idle;
  options.limit = kQueued;
  Result<Stream> stream = mClient.stream(request.task, {request.payload.data(), request.payload.size()}, options);
  const auto took = std::chrono::steady_clock::now() - begin;
  if (!stream) {
    mCounters.streams.add(took, &stream.error());
    publish(*writeError(open.reply, stream.error()));
  } else {
    mCounters.streams.add(took, nullptr);
    ++mCounters.openStreams;
    {
      const std::lock_guard<std::mutex> lock(mMutex);
      open.stream = &*stream;
      if (open.isStopping) stream->stop();
    }
    MessagePtr opening = writePayload(open.reply, mSubjects.flow(open.number, 0), stream->opening(), request.wantsJson);
    setHeader(*opening, headers::kNumber, "0");
    publish(*opening);

    std::uint64_t sent = 0;
    bool hasEnded = false;
    for (const kel::Message& message : *stream) {
      if (!awaitRoom(open, message.size())) break;
      const std::uint64_t number = ++sent + stream->dropped();
      {
        const std::lock_guard<std::mutex> lock(mMutex);
        open.underWay.emplace_back(number, message.size());
        open.bytesUnderWay += message.size();
      }
      MessagePtr next = writePayload(open.reply, mSubjects.flow(open.number, number), message, request.wantsJson);
      setHeader(*next, headers::kNumber, std::to_string(number));
      if (message.isLast) setHeader(*next, headers::kEnd, text(End::finished));
      hasEnded = message.isLast;
      publish(*next);
      ++mCounters.streamMessages;
    }
    if (!hasEnded) {
      // What is not marked by the device is marked here, with the number that would have come next.
      const End reason = stream->reason() == End::none ? End::stopped : stream->reason();
      MessagePtr end = makeMessage(open.reply, {}, {});
      setHeader(*end, headers::kNumber, std::to_string(sent + stream->dropped() + 1));
      setHeader(*end, headers::kEnd, text(reason));
      publish(*end);
    }
    --mCounters.openStreams;
  }
  const std::lock_guard<std::mutex> lock(mMutex);
  open.stream = nullptr;
  open.isOver = true;
}

bool StreamSender::awaitRoom(Open& stream, std::size_t size) {
  const std::uint64_t wanted = stream.request.window == 0 ? kWindow : stream.request.window;
  const std::uint64_t window = std::min(wanted, kLargestWindow);
  std::unique_lock<std::mutex> lock(mMutex);
  const auto hasRoom = [&] {
    if (stream.isStopping || stream.underWay.empty()) return true;
    return stream.underWay.size() < window && stream.bytesUnderWay + size <= kWindowBytes;
  };
  while (!stream.changed.wait_for(lock, kPatience, hasRoom)) {
    // Acknowledgements may have been lost with a server, and the reader itself may be gone. To answer this is to
    // acknowledge all that was sent before.
    const MessagePtr probe = makeMessage(stream.reply, mSubjects.flow(stream.number, stream.underWay.back().first), {});
    lock.unlock();
    publish(*probe);
    lock.lock();
  }
  return !stream.isStopping;
}

void StreamSender::publish(natsMsg& message) {
  if (mConnection.publish(message) != NATS_OK) ++mCounters.unpublished;
}

}  // namespace kel::fleet
