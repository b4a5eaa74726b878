// SPDX-License-Identifier: MIT
// The link thread: connects, watches the link, reconnects and disconnects.
#pragma once

#include "kel/detail/core.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

inline void Core::setState(StateChange change) {
  mState = change.state;
  mReason = change.reason;
  if (mOptions.onState) {
    (void)mCallbacks.post(
        std::make_shared<FunctionJob>([this, change = std::move(change)] { mOptions.onState(change); }));
  }
  mStateChanged.notifyAll();
  mTimeWake.notifyAll();
}

inline void Core::presumeLost(std::string why) {
  if (mPresumedLost) return;
  mPresumedLost = std::move(why);
  mLinkWake.notifyAll();
}

inline void Core::keepLink() {
  const Supervision& supervision = mOptions.supervision;
  Milliseconds pause = supervision.firstPause;
  const auto nextPause = [&] {
    const Milliseconds now = std::exchange(pause, (std::min)(pause * 2, supervision.longestPause));
    return supervision.reconnect ? jittered(now) : Milliseconds(0);
  };
  std::uint32_t attempt = 1;
  Lock lock(mMutex);
  if (!mIsClosing) setState({State::connecting, "the client begins", attempt});
  if (!supervision.heartbeat.empty() && isUnknown(supervision.heartbeat)) {
    giveUp("the task table has no task " + supervision.heartbeat + " for the heartbeat");
  }
  while (!mIsClosing && mState != State::closed) {
    mPresumedLost.reset();
    lock.unlock();
    const bool isOpen = mRoad->open(mOptions.table, *this);
    lock.lock();
    StateChange change{State::lost, "", attempt};
    if (isOpen) {
      attempt = 0;
      pause = supervision.firstPause;
      change = serve();
    } else {
      change.reason = mRoad->failure();
    }
    if (change.state == State::lost) change.pause = nextPause();
    const Clock::time_point until = supervision.reconnect ? after(change.pause) : kNever;
    if (isOpen) {
      takeDown(change);
    } else if (!supervision.reconnect || isLastAttempt(attempt)) {
      giveUp(change.reason);
    } else if (!mIsClosing) {
      setState(change);
    }
    ++attempt;
    if (mState != State::lost) continue;
    while (!mIsClosing && Clock::now() < until) mLinkWake.waitUntil(mMutex, until);
    if (!mIsClosing) setState({State::connecting, "the next attempt", attempt});
  }
  while (!mIsClosing) mLinkWake.wait(mMutex);
  if (mState != State::closed) setState({State::closed, "closed"});
  mTimeEnds = true;
  mTimeWake.notifyAll();
  while (mOwner == Owner::there) mLinkWake.wait(mMutex);
  const bool isAlone = mOwner == Owner::gone;
  lock.unlock();
  if (!isAlone) return;
  const Lock joining(mJoinMutex);
  joinOthers();
  mLinkThread.detach();
}

inline void Core::giveUp(const std::string& why) {
  Finished finished;
  endEverything(Cause::notConnected, End::closed, finished);
  endBroadcasts();
  setState({State::closed, why});
}

inline StateChange Core::serve() {
  const Supervision& supervision = mOptions.supervision;
  const bool beats = !supervision.heartbeat.empty();
  mRefusals = 0;
  ++mCounts.connections;
  if (!mIsClosing) setState({State::connected, "connected"});
  std::uint32_t misses = 0;
  std::uint64_t signs = mSignsOfLife;
  Clock::time_point nextBeat = after(supervision.interval);
  while (!mIsClosing) {
    if (mPresumedLost) return {State::lost, *mPresumedLost};
    if (mIsRenewing) {
      return {State::connecting, "stopped streams hold too many numbers: the connection is renewed", 1};
    }
    if (!mVersionChecks.empty()) {
      checkVersions();
      continue;
    }
    if (!beats) {
      mLinkWake.wait(mMutex);
      continue;
    }
    if (mDoubted.empty() && Clock::now() < nextBeat) {
      mLinkWake.waitUntil(mMutex, nextBeat);
      continue;
    }
    if (mDoubted.empty() && (mSignsOfLife != signs || mDelivering.load() != 0)) {
      misses = 0;
    } else {
      const std::uint64_t before = mSignsOfLife;
      const std::optional<Cause> cause = beat();
      // A reader that holds up what arrives explains a missing answer, and no refusal.
      const bool isHeldUp = mDelivering.load() != 0 && cause != Cause::refused;
      const bool isAlive = !cause || mSignsOfLife != before || isHeldUp;
      // What still arrives may have been sent before the link was lost. Only an answer tells that requests get through.
      if (!cause) settleDoubted();
      if (isAlive) {
        misses = 0;
      } else if (*cause == Cause::noAnswer || *cause == Cause::refused) {
        ++misses;
      }
      if (misses >= supervision.misses) {
        const std::string count = std::to_string(misses);
        return {State::lost, misses == 1 ? "a heartbeat was not answered" : count + " heartbeats were not answered"};
      }
      if (cause && !mIsClosing && *cause != Cause::noAnswer) {
        // A refusal comes at once. The next attempt shall not.
        const Clock::time_point until = after((std::min)(supervision.interval, Milliseconds(50)));
        while (!mIsClosing && !mPresumedLost && Clock::now() < until) mLinkWake.waitUntil(mMutex, until);
        if (!mDoubted.empty()) continue;
      }
    }
    signs = mSignsOfLife;
    nextBeat = misses == 0 ? after(supervision.interval) : Clock::now();
  }
  return {State::closed, "closed"};
}

inline std::optional<Cause> Core::beat() {
  mMutex.unlock();
  const Request values(mOptions.supervision.heartbeatValues);
  What what{mOptions.supervision.heartbeat.c_str(), values, mOptions.supervision.interval};
  what.isHeartbeat = true;
  const CallRef call = start(what, {}, true);
  await(call);
  mMutex.lock();
  if (call->outcome->ok()) return std::nullopt;
  return call->outcome->cause();
}

inline void Core::settleDoubted() {
  Finished finished;
  for (const CallRef& call : std::exchange(mDoubted, {})) {
    end(call, Error{Cause::refused, mRoad->codeOf(Sent::refused), call->task}, finished);
  }
}

inline void Core::checkVersions() {
  while (!mVersionChecks.empty()) {
    const std::shared_ptr<VersionCheck> check = std::move(mVersionChecks.front());
    mVersionChecks.pop_front();
    mMutex.unlock();
    Result<bool> verdict =
        mRoad->validateVersion(check->file, check->content.data(), static_cast<std::uint32_t>(check->content.size()),
                               check->userVersion, check->vectors);
    mMutex.lock();
    check->verdict.emplace(std::move(verdict));
    mStateChanged.notifyAll();
  }
}

inline void Core::takeDown(StateChange change) {
  const bool isRenewal = change.state == State::connecting;
  const Clock::time_point until = isRenewal ? after(kRenewalTime) : Clock::now();
  while (!mIsClosing && !mPresumedLost && hasCalls() && Clock::now() < until) {
    mLinkWake.waitUntil(mMutex, (std::min)(until, after(kLook)));
  }
  if (!mIsClosing) {
    if (!isRenewal) ++mCounts.losses;
    setState(std::move(change));
  }
  endVersionChecks();
  endCalls();
  while (mSenders != 0) mSendersGone.wait(mMutex);
  endCalls();
  mMutex.unlock();
  mRoad->close();
  mMutex.lock();
  mEntries.releaseAll();
  mIsRenewing = false;
}

inline void Core::endVersionChecks() {
  for (const auto& check : std::exchange(mVersionChecks, {})) {
    check->verdict.emplace(Error{mIsClosing ? Cause::closed : Cause::linkLost, 0, check->file});
  }
  mStateChanged.notifyAll();
}

inline bool Core::hasCalls() const {
  return std::any_of(mEntries.begin(), mEntries.end(), [](const Entry& entry) { return entry.call != nullptr; });
}

inline void Core::endCalls() {
  Finished finished;
  std::vector<CallRef> calls(mDoubted.begin(), mDoubted.end());
  mDoubted.clear();
  for (Entry& entry : mEntries) {
    if (!entry.isTaken) continue;
    if (const std::shared_ptr<StreamQueue> stream = std::move(entry.stream)) stream->finish(End::linkLost);
    if (entry.call) calls.push_back(std::move(entry.call));
  }
  for (const CallRef& call : calls) again(call, Error{Cause::linkLost, 0, call->task}, finished);
  if (!mOptions.supervision.reconnect) {
    for (const CallRef& call : std::exchange(mQueue, {})) end(call, Error{Cause::linkLost, 0, call->task}, finished);
  }
  countHeld();
}

inline void Core::endEverything(Cause cause, End streamEnd, Finished& finished) {
  std::vector<CallRef> calls(mDoubted.begin(), mDoubted.end());
  calls.insert(calls.end(), mQueue.begin(), mQueue.end());
  mDoubted.clear();
  mQueue.clear();
  for (Entry& entry : mEntries) {
    if (!entry.isTaken) continue;
    if (const std::shared_ptr<StreamQueue> stream = std::move(entry.stream)) stream->finish(streamEnd);
    if (entry.call) calls.push_back(std::move(entry.call));
  }
  for (const CallRef& call : calls) end(call, Error{cause, 0, call->task}, finished);
  countHeld();
}

inline void Core::endBroadcasts() {
  for (const Subscriber& one : std::exchange(mSubscribers, {})) one.queue->finish(End::closed);
}

inline bool Core::isLastAttempt(std::uint32_t attempt) const {
  return mOptions.supervision.attempts != 0 && attempt >= mOptions.supervision.attempts;
}

inline Milliseconds Core::jittered(Milliseconds pause) {
  std::uniform_real_distribution<double> share(0.75, 1.25);
  return Milliseconds(static_cast<Milliseconds::rep>(static_cast<double>(pause.count()) * share(mRandom)));
}

inline Result<bool> Core::validateVersion(std::string file, std::vector<std::uint8_t> content,
                                          std::uint64_t userVersion, std::string vectors, Milliseconds timeout) {
  const Clock::time_point deadline = after(timeout);
  const auto check = std::make_shared<VersionCheck>(
      VersionCheck{std::move(file), std::move(content), userVersion, std::move(vectors), {}});
  const Lock lock(mMutex);
  if (mIsClosing || mState != State::connected) {
    return Error{mIsClosing ? Cause::closed : Cause::notConnected, 0, check->file};
  }
  mVersionChecks.push_back(check);
  mLinkWake.notifyAll();
  while (!check->verdict) {
    const bool isOver = Clock::now() >= deadline;
    if (mIsClosing || isOver) {
      mVersionChecks.erase(std::remove(mVersionChecks.begin(), mVersionChecks.end(), check), mVersionChecks.end());
      return Error{mIsClosing ? Cause::closed : Cause::noAnswer, 0, check->file};
    }
    mStateChanged.waitUntil(mMutex, deadline);
  }
  return *check->verdict;
}

}  // namespace detail
}  // namespace v1
}  // namespace kel
