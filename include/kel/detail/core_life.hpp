// SPDX-License-Identifier: MIT
// The beginning and the end of a client, and what it tells of itself.
#pragma once

#include "kel/detail/core.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

inline void Core::begin() {
  if (mOptions.onState) beginCallbacks();
  mTimeThread = std::thread([this] { keepTime(); });
  try {
    mLinkThread = std::thread([self = shared_from_this()] { self->keepLink(); });
  } catch (...) {
    {
      const Lock lock(mMutex);
      mTimeEnds = true;
      mTimeWake.notifyAll();
    }
    mTimeThread.join();
    throw;
  }
}

inline void Core::close() {
  requestClose();
  if (mCallbacks.isThisThread()) return;
  const Lock joining(mJoinMutex);
  letGo(Owner::waits);
  if (mLinkThread.joinable()) mLinkThread.join();
  joinOthers();
}

inline void Core::requestClose() {
  Finished finished;
  const Lock lock(mMutex);
  if (mIsClosing) return;
  mIsClosing = true;
  endEverything(Cause::closed, End::closed, finished);
  endBroadcasts();
  mLinkWake.notifyAll();
  mTimeWake.notifyAll();
  mStateChanged.notifyAll();
}

inline void Core::abandon() {
  requestClose();
  const Lock joining(mJoinMutex);
  if (mLinkThread.joinable()) letGo(Owner::gone);
}

inline void Core::post(std::function<void()> function) {
  const auto job = std::make_shared<FunctionJob>(std::move(function));
  if (!mCallbacks.post(job)) job->run();
}

inline void Core::endCallbacks() {
  const Lock joining(mJoinMutex);
  mCallbacks.end();
}

inline void Core::letGo(Owner owner) {
  const Lock lock(mMutex);
  mOwner = owner;
  mLinkWake.notifyAll();
}

inline void Core::joinOthers() {
  if (mTimeThread.joinable()) mTimeThread.join();
  mCallbacks.end();
}

inline State Core::state() const {
  const Lock lock(mMutex);
  return mState;
}

inline bool Core::awaitState(State state, Clock::time_point deadline) {
  const Lock lock(mMutex);
  while (mState != state) {
    const bool isOver = mState == State::closed || (mIsClosing && state != State::closed);
    if (isOver || Clock::now() >= deadline) return false;
    mStateChanged.waitUntil(mMutex, deadline);
  }
  return true;
}

inline std::string Core::reason() const {
  const Lock lock(mMutex);
  return mReason;
}

inline Statistics Core::statistics() const {
  const Lock lock(mMutex);
  Statistics counts = mCounts;
  counts.inFlight = mEntries.live();
  counts.queued = static_cast<std::uint32_t>(mQueue.size());
  counts.heldNumbers = mEntries.held();
  return counts;
}

}  // namespace detail
}  // namespace v1
}  // namespace kel
