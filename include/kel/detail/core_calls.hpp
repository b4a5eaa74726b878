// SPDX-License-Identifier: MIT
// How a call is made, sent and ended.
#pragma once

#include "kel/detail/core.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

/// For a call that is not sent at once, or may be sent again.
inline void keepPayload(CallState& call, const void* data, std::size_t size) {
  const auto* const bytes = static_cast<const std::uint8_t*>(data);
  call.payload.assign(bytes, bytes + size);
}

inline CallRef Core::start(const What& what, OnAnswer onAnswer, bool isAwaited) {
  CallRef call = std::make_shared<CallState>();
  call->task = what.task != nullptr ? what.task : "";
  call->deadline = after(what.timeout);
  call->expectsAnswer = what.expectsAnswer;
  call->takesEntry = what.expectsAnswer || mRoad->confirmsPosts();
  call->isRepeatable = what.isRepeatable;
  call->isHeartbeat = what.isHeartbeat;
  call->sequenceWord = what.sequenceWord;
  call->stream = what.stream;
  call->idle = what.idle;
  call->duration = what.duration;
  call->onAnswer = std::move(onAnswer);
  if (call->onAnswer) mCallbacks.begin();

  const bool fitsAll = !mOptions.checksForm || what.request.size() == 0 || what.request.size() == sizeof(Values);
  const std::optional<std::uint32_t> tui = mTable && !fitsAll ? mTable->find(call->task) : std::nullopt;
  const bool isWrong = tui && formOf(*tui) == Form::val;

  Finished finished;
  const Lock lock(mMutex);
  if (mIsClosing || mState == State::closed) {
    end(call, Error{mIsClosing ? Cause::closed : Cause::notConnected, 0, call->task}, finished);
    return call;
  }
  if (isWrong) {
    end(call, Error{Cause::wrongForm, 0, call->task}, finished);
    return call;
  }
  if (mState == State::lost && !mOptions.supervision.reconnect) {
    end(call, Error{Cause::linkLost, 0, call->task}, finished);
    return call;
  }
  const bool sendsNow = canSend(*call) && (mQueue.empty() || call->isHeartbeat);
  if (!sendsNow || call->isRepeatable) keepPayload(*call, what.request.data(), what.request.size());
  if (!sendsNow && !call->isHeartbeat && mQueue.size() >= mOptions.maxQueued) {
    end(call, Error{Cause::noNumber, 0, call->task}, finished);
    return call;
  }
  if (!isAwaited || !sendsNow) mindDeadline(call->deadline);
  if (!sendsNow) {
    if (call->isHeartbeat) {
      mQueue.push_front(call);
    } else {
      mQueue.push_back(call);
      if (canSend(*call)) mTimeWake.notifyAll();
    }
    return call;
  }
  file(call);
  transmit(call, what.request.data(), what.request.size(), finished);
  return call;
}

inline void Core::waitFor(CallState& call, Clock::time_point until) {
  ++call.waiters;
  call.done.waitUntil(mMutex, until);
  --call.waiters;
}

inline void Core::await(const CallRef& call) {
  Finished finished;
  Lock lock(mMutex);
  while (call->stage != CallState::Stage::done) {
    if (Clock::now() >= call->deadline) {
      expire(call, finished);
      break;
    }
    waitFor(*call, call->deadline);
  }
}

inline bool Core::awaitUntil(const CallRef& call, Clock::time_point until) {
  const Lock lock(mMutex);
  while (call->stage != CallState::Stage::done) {
    if (Clock::now() >= until) return false;
    waitFor(*call, until);
  }
  return true;
}

inline bool Core::isDone(const CallRef& call) const {
  const Lock lock(mMutex);
  return call->stage == CallState::Stage::done;
}

inline bool Core::cancel(const CallRef& call) {
  Finished finished;
  const Lock lock(mMutex);
  if (call->stage == CallState::Stage::done) return false;
  retire(call, Error{Cause::cancelled, 0, call->task}, finished);
  return true;
}

inline bool Core::canSend(const CallState& call) const {
  if (mState != State::connected || mIsRenewing) return false;
  if (!call.takesEntry) return true;
  if (call.isHeartbeat) return mEntries.free() != 0;
  const std::uint32_t reserved = mOptions.supervision.heartbeat.empty() ? 0 : 1;
  return mEntries.free() > reserved && mEntries.live() < mOptions.maxInFlight;
}

inline void Core::file(const CallRef& call) {
  call->stage = CallState::Stage::sent;
  ++mSenders;
  if (!call->takesEntry) return;
  call->id = mEntries.take(call);
}

inline void Core::end(const CallRef& call, Result<Payload> outcome, Finished& finished) {
  if (call->stage == CallState::Stage::done) return;
  call->stage = CallState::Stage::done;
  if (!call->isHeartbeat) ++(outcome.ok() ? mCounts.answered : mCounts.failed);
  if (call->stream && !outcome.ok()) call->stream->finish(endBy(outcome.cause()));
  call->outcome.emplace(std::move(outcome));
  if (call->waiters != 0) finished.add(call);
  if (!call->onAnswer) return;
  if (!mCallbacks.post(call)) finished.addUntold(call);
}

inline void Core::retire(const CallRef& call, Error error, Finished& finished) {
  if (Entry* const entry = mEntries.find(*call)) {
    entry->call = nullptr;
    entry->stream = nullptr;
    countHeld();
  } else {
    mQueue.erase(std::remove(mQueue.begin(), mQueue.end(), call), mQueue.end());
    mDoubted.erase(std::remove(mDoubted.begin(), mDoubted.end(), call), mDoubted.end());
  }
  end(call, std::move(error), finished);
  if (!mQueue.empty()) mTimeWake.notifyAll();
}

inline void Core::expire(const CallRef& call, Finished& finished) {
  Cause cause = Cause::noAnswer;
  if (call->stage == CallState::Stage::doubted) cause = Cause::refused;
  if (call->stage == CallState::Stage::waiting) {
    cause = mState == State::lost        ? Cause::linkLost
            : mState != State::connected ? Cause::notConnected
            : call->tries != 0           ? Cause::refused
                                         : Cause::noNumber;
  }
  retire(call, Error{cause, 0, call->task}, finished);
}

inline void Core::transmit(const CallRef& call, const void* data, std::size_t size, Finished& finished) {
  const Outgoing request{
      call->task.c_str(), data,          size, call->id, call->expectsAnswer, call->stream != nullptr,
      call->sequenceWord, call->deadline};
  mMutex.unlock();
  const Sent sent = mRoad->send(request);
  mMutex.lock();
  if (--mSenders == 0) mSendersGone.notifyAll();
  if (call->isHeartbeat && sent == Sent::sent) ++mCounts.heartbeats;
  if (sent == Sent::sent) {
    mRefusals = 0;
    if (!call->takesEntry) end(call, Payload(), finished);
    return;
  }
  if (call->takesEntry) {
    Entry* const entry = mEntries.find(*call);
    if (entry == nullptr) {
      // It has ended meanwhile. Nothing will come for the number that it had.
      Entry* const left = mEntries.find(request.id);
      if (left != nullptr) mEntries.takeBack(*left);
      return;
    }
    mEntries.takeBack(*entry);
  } else if (call->stage == CallState::Stage::done) {
    return;
  }
  const bool isShort = sent == Sent::refused && call->takesEntry && call->tries < kTries && mEntries.mayBeShort();
  if (sent == Sent::busy || isShort) {
    if (call->payload.empty()) keepPayload(*call, data, size);
    if (isShort) call->nextTry = after(Milliseconds(1u << call->tries++));
    call->stage = CallState::Stage::waiting;
    mQueue.push_front(call);
    mindDeadline(call->deadline);
    mTimeWake.notifyAll();
    return;
  }
  takeRefusal(call, sent, finished);
}

inline void Core::takeRefusal(const CallRef& call, Sent sent, Finished& finished) {
  const std::uint32_t code = mRoad->codeOf(sent);
  if (sent == Sent::notConnected) {
    presumeLost("the connection is gone");
    return again(call, Error{Cause::linkLost, code, call->task}, finished);
  }
  if (sent == Sent::wrongForm) return end(call, Error{Cause::wrongForm, code, call->task}, finished);
  if (isUnknown(call->task)) return end(call, Error{Cause::unknownTask, code, call->task}, finished);
  const Supervision& supervision = mOptions.supervision;
  if (call->isHeartbeat) return end(call, Error{Cause::refused, code, call->task}, finished);
  if (mState != State::connected) return again(call, Error{Cause::linkLost, code, call->task}, finished);
  if (!supervision.heartbeat.empty()) {
    call->stage = CallState::Stage::doubted;
    mDoubted.push_back(call);
    mindDeadline(call->deadline);
    mLinkWake.notifyAll();
    return;
  }
  if (mRefusedAtSign != mSignsOfLife) mRefusals = 0;
  mRefusedAtSign = mSignsOfLife;
  if (supervision.reconnect && supervision.refusals != 0 && ++mRefusals >= supervision.refusals) {
    presumeLost(std::to_string(mRefusals) + " tasks in a row were refused");
    return again(call, Error{Cause::linkLost, code, call->task}, finished);
  }
  end(call, Error{Cause::refused, code, call->task}, finished);
}

inline void Core::again(const CallRef& call, Error error, Finished& finished) {
  if (!call->isRepeatable || call->stream || !mOptions.supervision.reconnect || mIsClosing) {
    return end(call, std::move(error), finished);
  }
  ++mCounts.repeated;
  call->tries = 0;
  call->nextTry = {};
  call->stage = CallState::Stage::waiting;
  mQueue.push_front(call);
  mindDeadline(call->deadline);
}

}  // namespace detail
}  // namespace v1
}  // namespace kel
