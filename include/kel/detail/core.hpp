// SPDX-License-Identifier: MIT
// What a client is inside: its calls, its streams and its link.
//
// Threads. The link thread connects, sends heartbeats, notices losses, reconnects and disconnects; all that may block
// for long happens there. The time thread ends what is overdue and sends what waits. The callback thread runs the
// user's functions, with no lock held. Requests are sent by the thread that makes the call, if they can be sent at
// once. Answers come on threads of the road.
//
// Locks, each taken behind those before it: Core::mMutex; that of a MessageQueue; that of the CallbackThread. The road
// is called with none of them held. It never calls from inside of send(), and calls nobody after close(); so a call
// of it may wait for anything but a thread that closes it.
//
// Calls. Each ends once, under mMutex: by its answer, its deadline, a refusal, the loss of the link, its cancelling, or
// the closing of the client. A request that was sent has an entry, whose id comes back with its answer. Where a call
// ends before that, the entry stays taken without it, as the connection's number does.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kel/detail/call_state.hpp"
#include "kel/detail/callback_thread.hpp"
#include "kel/detail/entries.hpp"
#include "kel/detail/message_queue.hpp"
#include "kel/detail/road.hpp"
#include "kel/detail/sync.hpp"
#include "kel/options.hpp"
#include "kel/task_table.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

using BroadcastQueue = MessageQueue<Broadcast>;

class Core final : public Sink, public std::enable_shared_from_this<Core> {
 public:
  Core(Options options, std::unique_ptr<Road> road)
      : mOptions(std::move(options)), mRoad(std::move(road)), mTable(mRoad->table(mOptions.table)) {}

  // ---- Life (core_life.hpp) ----

  /// Once, before anything else. Throws std::system_error, and leaves no thread behind.
  void begin();
  /// Ends all calls and streams with `closed`, then disconnects, and waits for that; but on the callback thread it does
  /// not wait. May be called again.
  void close();
  void requestClose();
  /// For the last owner, on any thread: closes, and leaves the waiting to the link thread.
  void abandon();
  /// Runs the callbacks that have been posted, and no more: for an owner who never handed the client out.
  void endCallbacks();

  bool isCallbackThread() const { return mCallbacks.isThisThread(); }

  State state() const;
  /// Waits until the client is in that state, or closed. False at the deadline, and if it is closed instead.
  bool awaitState(State state, Clock::time_point deadline);
  std::string reason() const;
  Statistics statistics() const;
  const Options& options() const { return mOptions; }
  const TaskTable& table() const {
    static const TaskTable none;
    return mTable ? *mTable : none;
  }

  /// Has a function run on the callback thread; if that has ended, at once.
  void post(std::function<void()> function);
  /// To be called before the first function is posted. Throws std::system_error.
  void beginCallbacks() { mCallbacks.begin(); }

  // ---- Calls (core_calls.hpp) ----

  struct What {
    const char* task;
    const Request& request;
    Milliseconds timeout;
    bool expectsAnswer = true;
    bool isRepeatable = false;
    std::uint32_t sequenceWord = 0;
    std::shared_ptr<StreamQueue> stream = nullptr;
    Clock::duration idle = kForever;
    Clock::duration duration = kForever;
    bool isHeartbeat = false;
  };

  /// Makes a call. Does not wait for anything. `isAwaited`: its caller waits for it and minds its deadline.
  CallRef start(const What& what, OnAnswer onAnswer, bool isAwaited);
  /// Waits for the end of a call, which comes at its deadline at the latest. From then on its outcome is constant.
  void await(const CallRef& call);
  /// Waits for the end of a call until then. False if it has not ended.
  bool awaitUntil(const CallRef& call, Clock::time_point until);
  bool isDone(const CallRef& call) const;
  /// False if it had ended already.
  bool cancel(const CallRef& call);

  Result<bool> validateVersion(std::string file, std::vector<std::uint8_t> content, std::uint64_t userVersion,
                               std::string vectors, Milliseconds timeout);

  // ---- What comes along the road, and its readers (core_arrivals.hpp) ----

  void answered(std::uint32_t id, const Payload& answer) override;
  void failed(std::uint32_t id, Cause cause, std::uint32_t code) override;
  bool streamed(std::uint32_t id, Message message) override;
  void missed(std::uint32_t id, std::uint64_t count) override;
  void missedBroadcasts(std::uint64_t count) override;
  void ended(std::uint32_t id, End end) override;
  void broadcast(Broadcast broadcast) override;
  bool wantsBroadcasts() const override;
  void lost(std::string why) override;

  /// The reader wants no more of a stream. Its number stays taken until the device ends it.
  void stopStream(const std::shared_ptr<StreamQueue>& stream, End end);
  void subscribe(std::shared_ptr<BroadcastQueue> queue, BroadcastOptions options);
  void unsubscribe(const std::shared_ptr<BroadcastQueue>& queue);

 private:
  /// How long anything is waited for that cannot say when it changes.
  static constexpr Milliseconds kLook{10};
  /// So often a request is tried for which there may have been no number, with pauses from 1 ms on that double. One
  /// that is refused still is refused by the device.
  static constexpr std::uint32_t kTries = 6;
  /// What is under way when a connection is renewed gets so long to come to its end.
  static constexpr Milliseconds kRenewalTime{1000};

  struct Subscriber {
    std::shared_ptr<BroadcastQueue> queue;
    BroadcastOptions options;
  };

  /// Made by the link thread, which may wait for it.
  struct VersionCheck {
    std::string file;
    std::vector<std::uint8_t> content;
    std::uint64_t userVersion;
    std::string vectors;
    std::optional<Result<bool>> verdict;  // guarded by the core's mutex
  };

  /// What the client that this belongs to does: the link thread outlives it, or is joined by it.
  enum class Owner : std::uint8_t { there, waits, gone };

  // ---- Life ----

  void letGo(Owner owner);
  void joinOthers() KEL_DETAIL_REQUIRES(mJoinMutex);

  // ---- Calls ----

  /// Whether the task table is known, and does not have the name.
  bool isUnknown(const std::string& task) const { return mTable && !mTable->find(task); }
  bool canSend(const CallState& call) const KEL_DETAIL_REQUIRES(mMutex);
  /// Takes an entry for a call, if it wants one, and counts its sender.
  void file(const CallRef& call) KEL_DETAIL_REQUIRES(mMutex);
  /// Sends the request of a call that has been filed, and takes the refusal of it. Gives the lock up meanwhile.
  void transmit(const CallRef& call, const void* data, std::size_t size, Finished& finished)
      KEL_DETAIL_REQUIRES(mMutex);
  void takeRefusal(const CallRef& call, Sent sent, Finished& finished) KEL_DETAIL_REQUIRES(mMutex);
  /// Has a call wait to be sent again, if it may be, or ends it.
  void again(const CallRef& call, Error error, Finished& finished) KEL_DETAIL_REQUIRES(mMutex);
  /// Ends a call wherever it is. A number that it has stays taken.
  void retire(const CallRef& call, Error error, Finished& finished) KEL_DETAIL_REQUIRES(mMutex);
  void waitFor(CallState& call, Clock::time_point until) KEL_DETAIL_REQUIRES(mMutex);
  /// Ends a call at its deadline.
  void expire(const CallRef& call, Finished& finished) KEL_DETAIL_REQUIRES(mMutex);
  /// Ends a call. The first end counts.
  void end(const CallRef& call, Result<Payload> outcome, Finished& finished) KEL_DETAIL_REQUIRES(mMutex);

  // ---- Arrivals ----

  /// Runs what may wait for room, and is a sign of life meanwhile.
  template <class Push>
  std::size_t delivered(Push push);
  /// The call of a stream has ended well.
  void opened(Entry& entry) KEL_DETAIL_REQUIRES(mMutex);
  /// Numbers that nobody waits for any more are counted apart from those under way.
  void countHeld() KEL_DETAIL_REQUIRES(mMutex);
  void endBroadcasts() KEL_DETAIL_REQUIRES(mMutex);

  // ---- The time thread (core_time.hpp) ----

  void keepTime();
  void mindDeadline(Clock::time_point deadline) KEL_DETAIL_REQUIRES(mMutex);
  void expireOverdue(Finished& finished) KEL_DETAIL_REQUIRES(mMutex);
  void expireStream(Entry& entry, Clock::time_point now) KEL_DETAIL_REQUIRES(mMutex);
  void expireAll(const std::deque<CallRef>& calls, Clock::time_point now, Finished& finished)
      KEL_DETAIL_REQUIRES(mMutex);
  /// Sends what waits, as long as it can be sent. Returns when to look again.
  Clock::time_point sendQueued() KEL_DETAIL_REQUIRES(mMutex);

  // ---- The link thread (core_link.hpp) ----

  void keepLink();
  void setState(StateChange change) KEL_DETAIL_REQUIRES(mMutex);
  void presumeLost(std::string why) KEL_DETAIL_REQUIRES(mMutex);
  bool isLastAttempt(std::uint32_t attempt) const;
  Milliseconds jittered(Milliseconds pause);
  /// Connecting has failed for good.
  void giveUp(const std::string& why) KEL_DETAIL_REQUIRES(mMutex);
  /// While the connection is good. Returns what becomes of it: lost, or connecting if it is to be renewed.
  StateChange serve() KEL_DETAIL_REQUIRES(mMutex);
  /// Sends one heartbeat and waits for its end. None: it was answered.
  std::optional<Cause> beat() KEL_DETAIL_REQUIRES(mMutex);
  /// The link is alive: what was refused, the device has refused.
  void settleDoubted() KEL_DETAIL_REQUIRES(mMutex);
  void checkVersions() KEL_DETAIL_REQUIRES(mMutex);
  /// Ends a connection: tells of it and of what was under way, and disconnects.
  void takeDown(StateChange change) KEL_DETAIL_REQUIRES(mMutex);
  bool hasCalls() const KEL_DETAIL_REQUIRES(mMutex);
  /// What is under way ends with the connection; what waits to be sent goes on waiting for the next one.
  void endCalls() KEL_DETAIL_REQUIRES(mMutex);
  void endVersionChecks() KEL_DETAIL_REQUIRES(mMutex);
  void endEverything(Cause cause, End streamEnd, Finished& finished) KEL_DETAIL_REQUIRES(mMutex);

  // Constant.
  const Options mOptions;
  const std::unique_ptr<Road> mRoad;
  const std::optional<TaskTable> mTable;

  // With locks of their own, or atomic.
  CallbackThread mCallbacks;
  std::atomic<std::uint32_t> mDelivering{0};  // messages that may wait for room

  mutable Mutex mMutex;
  Condition mLinkWake;
  Condition mTimeWake;
  Condition mStateChanged;
  Condition mSendersGone;
  State mState KEL_DETAIL_GUARDED_BY(mMutex) = State::connecting;
  std::string mReason KEL_DETAIL_GUARDED_BY(mMutex);
  bool mIsClosing KEL_DETAIL_GUARDED_BY(mMutex) = false;
  bool mIsRenewing KEL_DETAIL_GUARDED_BY(mMutex) = false;
  Owner mOwner KEL_DETAIL_GUARDED_BY(mMutex) = Owner::there;
  bool mTimeEnds KEL_DETAIL_GUARDED_BY(mMutex) = false;
  std::optional<std::string> mPresumedLost KEL_DETAIL_GUARDED_BY(mMutex);
  Entries mEntries KEL_DETAIL_GUARDED_BY(mMutex);
  std::uint32_t mSenders KEL_DETAIL_GUARDED_BY(mMutex) = 0;  // requests that are just being sent
  std::deque<CallRef> mQueue KEL_DETAIL_GUARDED_BY(mMutex);
  std::deque<CallRef> mDoubted KEL_DETAIL_GUARDED_BY(mMutex);
  std::deque<std::shared_ptr<VersionCheck>> mVersionChecks KEL_DETAIL_GUARDED_BY(mMutex);
  std::vector<Subscriber> mSubscribers KEL_DETAIL_GUARDED_BY(mMutex);
  Clock::time_point mNextDeadline KEL_DETAIL_GUARDED_BY(mMutex) = kNever;
  std::uint64_t mSignsOfLife KEL_DETAIL_GUARDED_BY(mMutex) = 0;
  std::uint64_t mRefusedAtSign KEL_DETAIL_GUARDED_BY(mMutex) = 0;
  std::uint32_t mRefusals KEL_DETAIL_GUARDED_BY(mMutex) = 0;
  Statistics mCounts KEL_DETAIL_GUARDED_BY(mMutex);

  std::minstd_rand mRandom{std::random_device()()};  // of the link thread

  Mutex mJoinMutex;  // ahead of mMutex
  std::thread mTimeThread;
  std::thread mLinkThread;
};

}  // namespace detail
}  // namespace v1
}  // namespace kel

#include "kel/detail/core_arrivals.hpp"
#include "kel/detail/core_calls.hpp"
#include "kel/detail/core_life.hpp"
#include "kel/detail/core_link.hpp"
#include "kel/detail/core_time.hpp"
