// The link thread: connects, watches the link, reconnects and disconnects.
#pragma once

#include "kel/detail/core.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

inline void Core::setState(State state, StateChange change) {
  mState = state;
  mReason = change.reason;
  if (mOptions.onState) post([this, change = std::move(change)] { mOptions.onState(change); });
  mStateChanged.notifyAll();
  mTimeWake.notifyAll();
}

inline void Core::presumeLost(std::string why) {
  if (mPresumedLost) return;
  mPresumedLost = std::move(why);
  mLinkWake.notifyAll();
}

inline void Core::keepLink() {
  Milliseconds pause = mOptions.supervision.firstPause;
  std::uint32_t attempt = 0;
  std::string why = "the client begins";
  Lock lock(mMutex);
  const std::string& heartbeat = mOptions.supervision.heartbeat;
  if (!mIsClosing && !heartbeat.empty() && !mTable.find(heartbeat)) {
    giveUp("the task table has no task " + heartbeat + " for the heartbeat");
    awaitClosing();
  }
  while (!mIsClosing) {
    setState(State::connecting, {State::connecting, std::exchange(why, {}), ++attempt, Milliseconds(0)});
    lock.unlock();
    const bool isOpen = mRoad->open(mOptions.table, *this);
    lock.lock();
    bool isRenewal = false;
    if (isOpen) {
      attempt = 0;
      pause = mOptions.supervision.firstPause;
      if (!mIsClosing) why = serve(&isRenewal);
      takeDown(isRenewal, why);
    } else {
      why = "connecting failed";
    }
    if (mIsClosing) break;
    if (isRenewal) continue;
    if (!mOptions.supervision.reconnect || isLastAttempt(attempt)) {
      if (!isOpen) giveUp(why);
      awaitClosing();
      break;
    }
    const Milliseconds thisPause = jittered(pause);
    pause = std::min(pause * 2, mOptions.supervision.longestPause);
    if (mState != State::lost || !isOpen) {
      setState(State::lost, {State::lost, why, attempt, thisPause});
    }
    const Clock::time_point until = after(thisPause);
    while (!mIsClosing && Clock::now() < until) mLinkWake.waitUntil(mMutex, until);
    why = "the next attempt";
  }
  runJobs(false);
  if (mState != State::closed) setState(State::closed, {State::closed, "closed", 0, Milliseconds(0)});
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
  setState(State::closed, {State::closed, why, 0, Milliseconds(0)});
}

inline void Core::awaitClosing() {
  while (!mIsClosing) mLinkWake.wait(mMutex);
}

inline std::string Core::serve(bool* isRenewal) {
  const Supervision& supervision = mOptions.supervision;
  const bool beats = !supervision.heartbeat.empty();
  mPresumedLost.reset();
  mRefusals = 0;
  ++mCounts.connections;
  setState(State::connected, {State::connected, "connected", 0, Milliseconds(0)});
  std::uint32_t misses = 0;
  std::uint64_t signs = mSignsOfLife;
  Clock::time_point nextBeat = after(supervision.interval);
  while (!mIsClosing) {
    if (mPresumedLost) return *mPresumedLost;
    if (mIsRenewing) {
      *isRenewal = true;
      return "stopped streams hold too many numbers: the connection is renewed";
    }
    if (!mJobs.empty()) {
      runJobs(true);
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
      const bool isAlive = !cause || mSignsOfLife != before || mDelivering.load() != 0;
      if (isAlive) {
        misses = 0;
        settleDoubted();
      } else if (*cause == Cause::noAnswer || *cause == Cause::refused) {
        ++misses;
      }
      if (misses >= supervision.misses) {
        return misses == 1 ? "a heartbeat was not answered" : std::to_string(misses) + " heartbeats were not answered";
      }
      if (!isAlive && !mIsClosing && *cause != Cause::noAnswer) {
        // A refusal comes at once. The next attempt shall not.
        const Clock::time_point until = after(std::min(supervision.interval, Milliseconds(50)));
        while (!mIsClosing && !mPresumedLost && Clock::now() < until) mLinkWake.waitUntil(mMutex, until);
        if (!mDoubted.empty()) continue;
      }
    }
    signs = mSignsOfLife;
    nextBeat = misses == 0 ? after(supervision.interval) : Clock::now();
  }
  return "closed";
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

inline void Core::runJobs(bool isConnected) {
  while (!mJobs.empty()) {
    const std::function<void(bool)> job = std::move(mJobs.front());
    mJobs.pop_front();
    mMutex.unlock();
    job(isConnected);
    mMutex.lock();
  }
}

inline void Core::takeDown(bool isRenewal, const std::string& why) {
  if (!mIsClosing) {
    if (isRenewal) {
      const Clock::time_point until = after(kRenewalTime);
      while (!mIsClosing && hasCalls() && Clock::now() < until) {
        mLinkWake.waitUntil(mMutex, std::min(until, after(kLook)));
      }
      setState(State::connecting, {State::connecting, why, 0, Milliseconds(0)});
    } else {
      ++mCounts.losses;
      setState(State::lost, {State::lost, why, 0, Milliseconds(0)});
    }
    Finished finished;
    endCalls(finished);
  }
  while (mSenders != 0) mSendersGone.wait(mMutex);
  {
    Finished finished;
    endCalls(finished);
  }
  mMutex.unlock();
  mRoad->close();
  mMutex.lock();
  mEntries.releaseAll();
  mIsRenewing = false;
  mPresumedLost.reset();
}

inline bool Core::hasCalls() const {
  return std::any_of(mEntries.begin(), mEntries.end(), [](const Entry& entry) { return entry.call != nullptr; });
}

inline void Core::endCalls(Finished& finished) {
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
  mWantsBroadcasts.store(false);
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
  struct Job {
    std::optional<Result<bool>> verdict;
    Condition done;
  };
  const auto job = std::make_shared<Job>();
  const Clock::time_point deadline = after(timeout);
  const std::string subject = file;
  Lock lock(mMutex);
  if (mIsClosing || mState != State::connected) {
    return Error{mIsClosing ? Cause::closed : Cause::notConnected, 0, subject};
  }
  mJobs.push_back([this, job, file = std::move(file), content = std::move(content), userVersion,
                   vectors = std::move(vectors)](bool isConnected) {
    Result<bool> verdict = Error{Cause::linkLost, 0, file};
    if (isConnected) {
      verdict = mRoad->validateVersion(file, content.data(), static_cast<std::uint32_t>(content.size()), userVersion,
                                       vectors);
    }
    {
      const Lock storing(mMutex);
      job->verdict = std::move(verdict);
    }
    job->done.notifyAll();
  });
  mLinkWake.notifyAll();
  while (!job->verdict) {
    if (mIsClosing) return Error{Cause::closed, 0, subject};
    if (Clock::now() >= deadline) return Error{Cause::noAnswer, 0, subject};
    job->done.waitUntil(mMutex, std::min(deadline, after(kLook)));
  }
  return *job->verdict;
}

}  // namespace detail
}  // namespace v1
}  // namespace kel
