// SPDX-License-Identifier: MIT
// What comes along the road, and who gets it.
#pragma once

#include "kel/detail/core.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

template <class Push>
std::size_t Core::delivered(Push push) {
  struct Counted {
    std::atomic<std::uint32_t>& count;
    explicit Counted(std::atomic<std::uint32_t>& counter) : count(counter) { count.fetch_add(1); }
    ~Counted() { count.fetch_sub(1); }
  };
  const Counted counted(mDelivering);
  return push();
}

inline bool Core::wantsBroadcasts() const {
  const Lock lock(mMutex);
  return !mSubscribers.empty();
}

inline void Core::opened(Entry& entry) {
  if (!entry.stream) return;
  entry.opened = Clock::now();
  mindDeadline(overAt(entry));
}

inline void Core::answered(std::uint32_t id, const Payload& answer) {
  Finished finished;
  const Lock lock(mMutex);
  ++mSignsOfLife;
  Entry* const entry = mEntries.find(id);
  if (entry == nullptr) return;
  const CallRef call = std::move(entry->call);
  if (!call && !entry->isStream) ++mCounts.lateAnswers;
  // A stream's number is free when the stream has ended.
  if (entry->isStream) {
    if (call) opened(*entry);
    countHeld();
  } else {
    mEntries.release(*entry);
  }
  if (call) end(call, answer, finished);
  if (!mQueue.empty()) mTimeWake.notifyAll();
}

inline void Core::failed(std::uint32_t id, Cause cause, std::uint32_t code) {
  Finished finished;
  const Lock lock(mMutex);
  Entry* const entry = mEntries.find(id);
  if (entry == nullptr) return;
  const CallRef call = std::move(entry->call);
  // Of a stream that was open the rest is missing.
  if (entry->stream && !call) entry->stream->finish(End::linkLost);
  mEntries.release(*entry);
  if (!mQueue.empty()) mTimeWake.notifyAll();
  if (!call) return;
  Error error{cause, code, call->task};
  if (cause == Cause::linkLost) {
    again(call, std::move(error), finished);
  } else {
    end(call, std::move(error), finished);
  }
}

inline bool Core::streamed(std::uint32_t id, Message message) {
  std::shared_ptr<StreamQueue> stream;
  const bool isLast = message.isLast;
  {
    Finished finished;
    const Lock lock(mMutex);
    ++mSignsOfLife;
    Entry* const entry = mEntries.find(id);
    if (entry == nullptr) return false;
    stream = entry->stream;
    if (stream) ++mCounts.streamMessages;
    // A message may overtake the opening.
    if (const CallRef call = std::move(entry->call)) {
      opened(*entry);
      end(call, Payload(), finished);
    }
    if (isLast) {
      mEntries.release(*entry);
      countHeld();
      if (!mQueue.empty()) mTimeWake.notifyAll();
    }
  }
  if (!stream) return false;
  std::size_t dropped = 1;
  try {
    dropped = delivered([&] { return stream->push(std::move(message)); });
  } catch (const std::bad_alloc&) {  // the message is lost, but not the end
  }
  if (isLast) stream->finish(End::finished);
  if (dropped == 0) return true;
  const Lock lock(mMutex);
  mCounts.droppedMessages += dropped;
  return true;
}

inline void Core::missed(std::uint32_t id, std::uint64_t count) {
  const Lock lock(mMutex);
  mCounts.droppedMessages += count;
  Entry* const entry = mEntries.find(id);
  if (entry != nullptr && entry->stream) entry->stream->countDropped(count);
}

inline void Core::missedBroadcasts(std::uint64_t count) {
  const Lock lock(mMutex);
  mCounts.droppedBroadcasts += count;
  for (const Subscriber& one : mSubscribers) one.queue->countDropped(count);
}

inline void Core::ended(std::uint32_t id, End end) {
  std::shared_ptr<StreamQueue> stream;
  {
    const Lock lock(mMutex);
    Entry* const entry = mEntries.find(id);
    if (entry == nullptr) return;
    stream = std::move(entry->stream);
    mEntries.release(*entry);
    countHeld();
    if (!mQueue.empty()) mTimeWake.notifyAll();
  }
  if (stream) stream->finish(end);
}

inline void Core::lost(std::string why) {
  const Lock lock(mMutex);
  presumeLost(std::move(why));
}

inline void Core::broadcast(Broadcast broadcast) {
  std::vector<std::shared_ptr<BroadcastQueue>> takers;
  {
    const Lock lock(mMutex);
    ++mSignsOfLife;
    ++mCounts.broadcasts;
    for (const Subscriber& one : mSubscribers) {
      if (!one.options.task.empty() && one.options.task != broadcast.task) continue;
      if (one.options.sequenceWord && *one.options.sequenceWord != broadcast.sequenceWord()) continue;
      takers.push_back(one.queue);
    }
  }
  std::size_t dropped = 0;
  for (const std::shared_ptr<BroadcastQueue>& taker : takers) {
    dropped += delivered([&] { return taker->push(broadcast); });
  }
  if (dropped == 0) return;
  const Lock lock(mMutex);
  mCounts.droppedBroadcasts += dropped;
}

inline void Core::countHeld() {
  std::uint32_t stopped = 0;
  for (Entry& entry : mEntries) {
    if (!entry.isTaken) continue;
    if (!entry.call && !entry.stream) mEntries.hold(entry);
    if (entry.isStream && !entry.isLive) ++stopped;
  }
  const Supervision& supervision = mOptions.supervision;
  const bool areTooMany = supervision.renewAt != 0 && stopped >= supervision.renewAt;
  if (areTooMany && supervision.reconnect && mState == State::connected && !mIsRenewing) {
    mIsRenewing = true;
    mLinkWake.notifyAll();
  }
}

inline void Core::stopStream(const std::shared_ptr<StreamQueue>& stream, End end) {
  {
    const Lock lock(mMutex);
    for (Entry& entry : mEntries) {
      if (entry.stream == stream) entry.stream = nullptr;
    }
    countHeld();
  }
  stream->finish(end);
}

inline void Core::subscribe(std::shared_ptr<BroadcastQueue> queue, BroadcastOptions options) {
  {
    const Lock lock(mMutex);
    if (!mIsClosing && mState != State::closed) {
      mSubscribers.push_back({std::move(queue), std::move(options)});
      queue = nullptr;
    }
  }
  if (queue) return queue->finish(End::closed);
  mRoad->listen();
}

inline void Core::unsubscribe(const std::shared_ptr<BroadcastQueue>& queue) {
  {
    const Lock lock(mMutex);
    mSubscribers.erase(std::remove_if(mSubscribers.begin(), mSubscribers.end(),
                                      [&](const Subscriber& one) { return one.queue == queue; }),
                       mSubscribers.end());
  }
  queue->finish(End::stopped);
}

}  // namespace detail
}  // namespace v1
}  // namespace kel
