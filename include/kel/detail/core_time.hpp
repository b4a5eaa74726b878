// SPDX-License-Identifier: MIT
// The time thread: ends what is overdue, and sends what waits.
#pragma once

#include "kel/detail/core.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

inline void Core::mindDeadline(Clock::time_point deadline) {
  if (deadline >= mNextDeadline) return;
  mNextDeadline = deadline;
  mTimeWake.notifyAll();
}

inline void Core::keepTime() {
  Lock lock(mMutex);
  while (!mTimeEnds) {
    // What has ended is told before anything else is waited for.
    {
      Finished finished;
      expireOverdue(finished);
      lock.unlock();
    }
    lock.lock();
    if (mTimeEnds) return;
    const Clock::time_point next = sendQueued();
    if (mTimeEnds) return;
    if (next > Clock::now()) mTimeWake.waitUntil(mMutex, next);
  }
}

inline void Core::expireOverdue(Finished& finished) {
  const Clock::time_point now = Clock::now();
  if (now < mNextDeadline) return;
  mNextDeadline = kNever;
  for (Entry& entry : mEntries) {
    if (!entry.isTaken) continue;
    if (entry.call) {
      if (entry.call->deadline <= now) {
        expire(CallRef(entry.call), finished);
      } else {
        mNextDeadline = (std::min)(mNextDeadline, entry.call->deadline);
      }
    }
    if (entry.stream && !entry.call) expireStream(entry, now);
  }
  expireAll(mQueue, now, finished);
  expireAll(mDoubted, now, finished);
  countHeld();
}

inline void Core::expireStream(Entry& entry, Clock::time_point now) {
  const Clock::time_point until = overAt(entry);
  if (until <= now) {
    entry.stream->finish(at(entry.opened, entry.duration) <= now ? End::deadline : End::idle);
    entry.stream = nullptr;
  } else {
    mNextDeadline = (std::min)(mNextDeadline, until);
  }
}

inline void Core::expireAll(const std::deque<CallRef>& calls, Clock::time_point now, Finished& finished) {
  std::vector<CallRef> overdue;
  for (const CallRef& call : calls) {
    if (call->deadline <= now) {
      overdue.push_back(call);
    } else {
      mNextDeadline = (std::min)(mNextDeadline, call->deadline);
    }
  }
  for (const CallRef& call : overdue) expire(call, finished);
}

inline Clock::time_point Core::sendQueued() {
  for (;;) {
    const Clock::time_point now = Clock::now();
    if (now >= mNextDeadline) return now;
    // Calls wait in their order, but for those that are tried again later.
    Clock::time_point next = mNextDeadline;
    auto place = mQueue.begin();
    for (; place != mQueue.end() && (*place)->nextTry > now; ++place) next = (std::min)(next, (*place)->nextTry);
    if (place == mQueue.end() || !canSend(**place)) return next;
    const CallRef call = *place;
    mQueue.erase(place);
    file(call);
    Finished finished;
    transmit(call, call->payload.data(), call->payload.size(), finished);
    const bool isBusy = call->stage == CallState::Stage::waiting && call->nextTry <= now;
    if (isBusy) {
      const Clock::time_point until = (std::min)(mNextDeadline, after(kLook));
      mMutex.unlock();
      mRoad->awaitTurn(until);
      mMutex.lock();
    }
  }
}

}  // namespace detail
}  // namespace v1
}  // namespace kel
