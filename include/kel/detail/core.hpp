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
// the closing of the client. A request that was sent has an entry, whose number comes back with its answer. Where a
// call ends before that, the entry stays taken without it, as the connection's number does.
#pragma once

#include <algorithm>
#include <array>
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

#include "kel/detail/callback_thread.hpp"
#include "kel/detail/message_queue.hpp"
#include "kel/detail/road.hpp"
#include "kel/detail/sync.hpp"
#include "kel/options.hpp"
#include "kel/task_table.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

using StreamQueue = MessageQueue<Message>;
using BroadcastQueue = MessageQueue<Broadcast>;
using OnAnswer = std::function<void(Result<Payload>)>;

/// One call. What is not constant is guarded by the core's mutex.
struct CallState {
  enum class Stage : std::uint8_t {
    waiting,  // in the core's queue
    sent,     // has an entry
    doubted,  // refused, and a heartbeat tells whether for the loss of the link
    done,
  };

  // Constant once the call is made.
  std::string task;
  Clock::time_point deadline;
  bool expectsAnswer = true;
  bool isRepeatable = false;
  bool isHeartbeat = false;
  std::uint32_t sequenceWord = 0;
  std::shared_ptr<StreamQueue> stream;  // null: no stream
  Clock::duration idle = Clock::duration::max();
  Clock::duration duration = Clock::duration::max();

  std::vector<std::uint8_t> payload;  // of a call that was not sent at once, or may be sent again
  OnAnswer onAnswer;                  // may be empty
  Stage stage = Stage::waiting;
  std::uint32_t id = 0;  // of its entry, in Stage::sent
  std::optional<Result<Payload>> outcome;
  Condition done;
};

using CallRef = std::shared_ptr<CallState>;

class Core final : public Sink, public std::enable_shared_from_this<Core> {
 public:
  Core(Options options, std::unique_ptr<Road> road)
      : mOptions(std::move(options)), mRoad(std::move(road)), mTable(TaskTable::inForce(mOptions.table)) {
    for (std::uint32_t i = 0; i < kNumbers; ++i) mFree[i] = kNumbers - 1 - i;
  }

  // ---- Life ----

  /// Once, before anything else.
  void begin() {
    mTimeThread = std::thread([this] { keepTime(); });
    mLinkThread = std::thread([self = shared_from_this()] { self->keepLink(); });
  }

  /// Ends all calls and streams with `closed`, then disconnects, and waits for that; but on the callback thread it does
  /// not wait. May be called again.
  void close() {
    requestClose();
    if (mCallbacks.isThisThread()) return;
    const Lock joining(mJoinMutex);
    letGo(Owner::waits);
    if (mLinkThread.joinable()) mLinkThread.join();
    joinOthers();
  }

  void requestClose() {
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

  /// For the last owner, on any thread: closes, and leaves the waiting to the link thread.
  void abandon() {
    requestClose();
    const Lock joining(mJoinMutex);
    if (mLinkThread.joinable()) letGo(Owner::gone);
  }

  bool isCallbackThread() const { return mCallbacks.isThisThread(); }

  // ---- Calls ----

  struct What {
    const char* task;
    const Request& request;
    Milliseconds timeout;
    bool expectsAnswer = true;
    bool isRepeatable = false;
    std::uint32_t sequenceWord = 0;
    std::shared_ptr<StreamQueue> stream = nullptr;
    Clock::duration idle = Clock::duration::max();
    Clock::duration duration = Clock::duration::max();
    bool isHeartbeat = false;
  };

  /// Makes a call. Does not wait for anything. `isAwaited`: its caller waits for it and minds its deadline.
  CallRef start(const What& what, OnAnswer onAnswer, bool isAwaited) {
    CallRef call = std::make_shared<CallState>();
    call->task = what.task != nullptr ? what.task : "";
    call->deadline = after(what.timeout);
    call->expectsAnswer = what.expectsAnswer;
    call->isRepeatable = what.isRepeatable;
    call->isHeartbeat = what.isHeartbeat;
    call->sequenceWord = what.sequenceWord;
    call->stream = what.stream;
    call->idle = what.idle;
    call->duration = what.duration;
    call->onAnswer = std::move(onAnswer);

    const std::optional<std::uint32_t> tui = mTable.find(call->task);
    const bool isWrong =
        tui && formOf(*tui) == Form::val && what.request.size() != 0 && what.request.size() != sizeof(Values);

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
    if (!sendsNow || call->isRepeatable) keepPayload(*call, what.request);
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
      }
      mTimeWake.notifyAll();
      return call;
    }
    file(call);
    transmit(call, what.request.data(), what.request.size(), finished);
    return call;
  }

  /// Waits for the end of a call, which comes at its deadline at the latest. From then on its outcome is constant.
  void await(const CallRef& call) {
    Finished finished;
    Lock lock(mMutex);
    while (call->stage != CallState::Stage::done) {
      if (Clock::now() >= call->deadline) {
        expire(call, finished);
        break;
      }
      call->done.waitUntil(mMutex, call->deadline);
    }
  }

  /// Waits for the end of a call until then. False if it has not ended.
  bool awaitUntil(const CallRef& call, Clock::time_point until) {
    const Lock lock(mMutex);
    while (call->stage != CallState::Stage::done) {
      if (Clock::now() >= until) return false;
      call->done.waitUntil(mMutex, until);
    }
    return true;
  }

  bool isDone(const CallRef& call) const {
    const Lock lock(mMutex);
    return call->stage == CallState::Stage::done;
  }

  /// False if it had ended already.
  bool cancel(const CallRef& call) {
    Finished finished;
    const Lock lock(mMutex);
    if (call->stage == CallState::Stage::done) return false;
    retire(call, Error{Cause::cancelled, 0, call->task}, finished);
    return true;
  }

  /// The reader wants no more of a stream. Its number stays taken until the device ends it.
  void stopStream(const std::shared_ptr<StreamQueue>& stream, End end) {
    {
      const Lock lock(mMutex);
      for (Entry& entry : mEntries) {
        if (entry.stream == stream) entry.stream = nullptr;
      }
      countHeld();
    }
    stream->finish(end);
  }

  Result<bool> validateVersion(std::string file, std::vector<std::uint8_t> content, std::uint64_t userVersion,
                               std::string vectors, Milliseconds timeout) {
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

  // ---- Broadcasts ----

  void subscribe(std::shared_ptr<BroadcastQueue> queue, BroadcastOptions options) {
    const Lock lock(mMutex);
    if (mIsClosing || mState == State::closed) return queue->finish(End::closed);
    mSubscribers.push_back({std::move(queue), std::move(options)});
    mWantsBroadcasts.store(true);
  }

  void unsubscribe(const std::shared_ptr<BroadcastQueue>& queue) {
    {
      const Lock lock(mMutex);
      mSubscribers.erase(std::remove_if(mSubscribers.begin(), mSubscribers.end(),
                                        [&](const Subscriber& one) { return one.queue == queue; }),
                         mSubscribers.end());
      mWantsBroadcasts.store(!mSubscribers.empty());
    }
    queue->finish(End::stopped);
  }

  // ---- The link ----

  State state() const {
    const Lock lock(mMutex);
    return mState;
  }

  /// Waits until the client is in that state, or closed. False at the deadline, and if it is closed instead.
  bool awaitState(State state, Clock::time_point deadline) {
    const Lock lock(mMutex);
    while (mState != state) {
      if (mState == State::closed || mIsClosing || Clock::now() >= deadline) return false;
      mStateChanged.waitUntil(mMutex, deadline);
    }
    return true;
  }

  std::string reason() const {
    const Lock lock(mMutex);
    return mReason;
  }

  Statistics statistics() const {
    const Lock lock(mMutex);
    Statistics counts = mCounts;
    counts.inFlight = mLive;
    counts.queued = static_cast<std::uint32_t>(mQueue.size());
    counts.heldNumbers = kNumbers - mFreeCount - mLive;
    return counts;
  }

  const Options& options() const { return mOptions; }
  const TaskTable& table() const { return mTable; }

  /// Has a function run on the callback thread.
  void post(std::function<void()> job) { (void)mCallbacks.post(std::move(job)); }

  // ---- What comes along the road ----

  void answered(std::uint32_t id, const Payload* answer) override {
    Finished finished;
    const Lock lock(mMutex);
    ++mSignsOfLife;
    Entry* const entry = find(id);
    if (entry == nullptr) return;
    const CallRef call = std::move(entry->call);
    if (!call && answer != nullptr && !entry->isStream) ++mCounts.lateAnswers;
    // A stream's number is free when the stream has ended.
    if (!entry->isStream) release(*entry);
    if (call) {
      if (answer == nullptr && entry->stream) entry->stream = nullptr;
      end(call, answer != nullptr ? Result<Payload>(*answer) : Error{Cause::noAnswer, 0, call->task}, finished);
    }
    countHeld();
    if (!mQueue.empty()) mTimeWake.notifyAll();
  }

  void streamed(std::uint32_t id, Message message) override {
    std::shared_ptr<StreamQueue> stream;
    const bool isLast = message.isLast;
    {
      Finished finished;
      const Lock lock(mMutex);
      ++mSignsOfLife;
      Entry* const entry = find(id);
      if (entry == nullptr) return;
      stream = entry->stream;
      if (stream) ++mCounts.streamMessages;
      // A message may overtake the opening.
      if (const CallRef call = std::move(entry->call)) end(call, Payload(), finished);
      if (isLast) {
        release(*entry);
        countHeld();
        if (!mQueue.empty()) mTimeWake.notifyAll();
      }
    }
    if (!stream) return;
    const std::size_t dropped = delivered([&] { return stream->push(std::move(message)); });
    if (isLast) stream->finish(End::finished);
    if (dropped == 0) return;
    const Lock lock(mMutex);
    mCounts.droppedMessages += dropped;
  }

  void broadcast(Broadcast broadcast) override {
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

  bool wantsBroadcasts() const noexcept override { return mWantsBroadcasts.load(); }

 private:
  static constexpr std::uint32_t kNumbers = 64;
  static constexpr std::uint32_t kIndexBits = 6;

  /// How long anything is waited for that cannot say when it changes.
  static constexpr Milliseconds kLook{10};
  /// After its answer a number is free again within this time.
  static constexpr Milliseconds kReturnTime{20};
  /// What is under way when a connection is renewed gets so long to come to its end.
  static constexpr Milliseconds kRenewalTime{1000};

  /// A number of the connection's that is taken, by our own count.
  struct Entry {
    std::uint32_t generation = 0;
    bool isTaken = false;
    bool isStream = false;
    bool isLive = false;                  // counted in mLive: somebody still waits for something of it
    CallRef call;                         // null: it has ended
    std::shared_ptr<StreamQueue> stream;  // null: no stream, or one that nobody reads any more
    Clock::duration idle{};
    Clock::time_point until;
  };

  struct Subscriber {
    std::shared_ptr<BroadcastQueue> queue;
    BroadcastOptions options;
  };

  /// Calls that have ended, whose waiting threads are woken behind the lock.
  class Finished {
   public:
    Finished() = default;
    ~Finished() {
      if (mFirst) mFirst->done.notifyAll();
      for (const CallRef& call : mMore) call->done.notifyAll();
      for (const CallRef& call : mUntold) call->onAnswer(*call->outcome);
    }
    Finished(const Finished&) = delete;
    Finished& operator=(const Finished&) = delete;

    void add(CallRef call) {
      if (mFirst) {
        mMore.push_back(std::move(call));
      } else {
        mFirst = std::move(call);
      }
    }
    /// The callback thread is gone: the caller's own thread has to do.
    void addUntold(CallRef call) { mUntold.push_back(std::move(call)); }

   private:
    CallRef mFirst;
    std::vector<CallRef> mMore;
    std::vector<CallRef> mUntold;
  };

  template <class Push>
  std::size_t delivered(Push push) {
    mDelivering.fetch_add(1);
    const std::size_t dropped = push();
    mDelivering.fetch_sub(1);
    return dropped;
  }

  // ---- Entries ----

  bool canSend(const CallState& call) const KEL_DETAIL_REQUIRES(mMutex) {
    if (mState != State::connected || mIsRenewing) return false;
    if (!call.expectsAnswer) return true;
    if (call.isHeartbeat) return mFreeCount != 0;
    const std::uint32_t reserved = mOptions.supervision.heartbeat.empty() ? 0 : 1;
    return mFreeCount > reserved && mLive < mOptions.maxInFlight;
  }

  /// Takes a number for a call, if it wants one, and counts its sender.
  void file(const CallRef& call) KEL_DETAIL_REQUIRES(mMutex) {
    call->stage = CallState::Stage::sent;
    call->id = 0;
    ++mSenders;
    if (!call->expectsAnswer) return;
    const std::uint32_t index = mFree[--mFreeCount];
    Entry& entry = mEntries[index];
    entry.isTaken = true;
    entry.isStream = call->stream != nullptr;
    entry.isLive = true;
    entry.call = call;
    entry.stream = call->stream;
    entry.idle = call->idle;
    entry.until = call->duration == Clock::duration::max() ? Clock::time_point::max() : after(call->duration);
    if (entry.isStream && call->idle != Clock::duration::max()) mindDeadline(after(call->idle));
    if (entry.isStream) mindDeadline(entry.until);
    ++mLive;
    call->id = (entry.generation << kIndexBits | index) & ((1u << kIdBits) - 1);
  }

  Entry* find(std::uint32_t id) KEL_DETAIL_REQUIRES(mMutex) {
    Entry& entry = mEntries[id & (kNumbers - 1)];
    const std::uint32_t generation = entry.generation & ((1u << (kIdBits - kIndexBits)) - 1);
    return entry.isTaken && generation == id >> kIndexBits ? &entry : nullptr;
  }

  Entry* find(const CallState& call) KEL_DETAIL_REQUIRES(mMutex) {
    Entry* const entry = call.stage == CallState::Stage::sent && call.expectsAnswer ? find(call.id) : nullptr;
    return entry != nullptr && entry->call.get() == &call ? entry : nullptr;
  }

  void release(Entry& entry) KEL_DETAIL_REQUIRES(mMutex) {
    entry.isTaken = false;
    ++entry.generation;
    entry.call = nullptr;
    entry.stream = nullptr;
    if (entry.isLive) --mLive;
    entry.isLive = false;
    mFree[mFreeCount++] = static_cast<std::uint32_t>(&entry - mEntries.data());
    mReturned[mReturnedCount++ % kNumbers] = Clock::now();
  }

  /// Numbers that nobody waits for any more are counted apart from those under way.
  void countHeld() KEL_DETAIL_REQUIRES(mMutex) {
    std::uint32_t stopped = 0;
    for (Entry& entry : mEntries) {
      if (!entry.isTaken) continue;
      if (entry.isLive && !entry.call && !entry.stream) {
        entry.isLive = false;
        --mLive;
      }
      if (entry.isStream && !entry.isLive) ++stopped;
    }
    if (mOptions.supervision.reconnect && stopped >= mOptions.supervision.renewAt && mState == State::connected &&
        !mIsRenewing) {
      mIsRenewing = true;
      mLinkWake.notifyAll();
    }
  }

  /// Numbers that are taken, or were so recently that the library may still have them.
  std::uint32_t numbersInUse() const KEL_DETAIL_REQUIRES(mMutex) {
    std::uint32_t count = kNumbers - mFreeCount;
    const Clock::time_point recent = Clock::now() - kReturnTime;
    for (std::uint32_t i = 0; i < std::min(mReturnedCount, kNumbers); ++i) count += mReturned[i] > recent ? 1 : 0;
    return count;
  }

  // ---- Calls ----

  static void keepPayload(CallState& call, const Request& request) {
    const auto* const bytes = static_cast<const std::uint8_t*>(request.data());
    call.payload.assign(bytes, bytes + request.size());
  }

  /// Ends a call. The first end counts.
  void end(const CallRef& call, Result<Payload> outcome, Finished& finished) KEL_DETAIL_REQUIRES(mMutex) {
    if (call->stage == CallState::Stage::done) return;
    call->stage = CallState::Stage::done;
    if (!call->isHeartbeat) ++(outcome.ok() ? mCounts.answered : mCounts.failed);
    if (call->stream && !outcome.ok()) {
      call->stream->finish(outcome.cause() == Cause::linkLost ? End::linkLost : End::closed);
    }
    call->outcome.emplace(std::move(outcome));
    finished.add(call);
    if (!call->onAnswer) return;
    if (!mCallbacks.post([call] { call->onAnswer(*call->outcome); })) finished.addUntold(call);
  }

  /// Ends a call wherever it is. A number that it has stays taken.
  void retire(const CallRef& call, Error error, Finished& finished) KEL_DETAIL_REQUIRES(mMutex) {
    if (Entry* const entry = find(*call)) {
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

  void expire(const CallRef& call, Finished& finished) KEL_DETAIL_REQUIRES(mMutex) {
    Cause cause = Cause::noAnswer;
    if (call->stage == CallState::Stage::doubted) cause = Cause::refused;
    if (call->stage == CallState::Stage::waiting) {
      cause = mState == State::connected ? Cause::noNumber
              : mState == State::lost    ? Cause::linkLost
                                         : Cause::notConnected;
    }
    retire(call, Error{cause, 0, call->task}, finished);
  }

  /// Sends the request of a call that has been filed, and takes the refusal of it.
  void transmit(const CallRef& call, const void* data, std::size_t size, Finished& finished)
      KEL_DETAIL_REQUIRES(mMutex) {
    const Outgoing request{call->task.c_str(), data,         size, call->id, call->expectsAnswer, call->stream != nullptr,
                           call->sequenceWord};
    mMutex.unlock();
    const Sent sent = mRoad->send(request);
    mMutex.lock();
    if (--mSenders == 0) mSendersGone.notifyAll();
    if (call->isHeartbeat && sent == Sent::sent) ++mCounts.heartbeats;
    if (sent == Sent::sent) {
      mRefusals = 0;
      if (!call->expectsAnswer) end(call, Payload(), finished);
      return;
    }
    if (call->expectsAnswer) {
      Entry* const entry = find(*call);
      if (entry == nullptr) {
        // It has ended meanwhile. Nothing will come for the number that it had.
        Entry* const left = find(request.id);
        if (left != nullptr) release(*left);
        return;
      }
      release(*entry);
    } else if (call->stage == CallState::Stage::done) {
      return;
    }
    if (sent == Sent::busy || (sent == Sent::refused && numbersInUse() >= kNumbers)) {
      if (call->payload.empty() && size != 0) {
        const auto* const bytes = static_cast<const std::uint8_t*>(data);
        call->payload.assign(bytes, bytes + size);
      }
      call->stage = CallState::Stage::waiting;
      mQueue.push_front(call);
      if (sent == Sent::refused) mNumberlessUntil = after(Milliseconds(1));
      mindDeadline(call->deadline);
      mTimeWake.notifyAll();
      return;
    }
    takeRefusal(call, sent, finished);
  }

  void takeRefusal(const CallRef& call, Sent sent, Finished& finished) KEL_DETAIL_REQUIRES(mMutex) {
    const std::uint32_t code = mRoad->codeOf(sent);
    if (sent == Sent::notConnected) {
      presumeLost("the connection is gone");
      return again(call, Error{Cause::linkLost, code, call->task}, finished);
    }
    if (!mTable.find(call->task)) return end(call, Error{Cause::unknownTask, code, call->task}, finished);
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

  /// Has a call wait to be sent again, if it may be, or ends it.
  void again(const CallRef& call, Error error, Finished& finished) KEL_DETAIL_REQUIRES(mMutex) {
    if (!call->isRepeatable || call->stream || !mOptions.supervision.reconnect || mIsClosing) {
      return end(call, std::move(error), finished);
    }
    ++mCounts.repeated;
    call->stage = CallState::Stage::waiting;
    mQueue.push_front(call);
    mindDeadline(call->deadline);
  }

  // ---- The time thread ----

  void mindDeadline(Clock::time_point deadline) KEL_DETAIL_REQUIRES(mMutex) {
    if (deadline >= mNextDeadline) return;
    mNextDeadline = deadline;
    mTimeWake.notifyAll();
  }

  void keepTime() {
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

  void expireOverdue(Finished& finished) KEL_DETAIL_REQUIRES(mMutex) {
    const Clock::time_point now = Clock::now();
    if (now < mNextDeadline) return;
    mNextDeadline = Clock::time_point::max();
    for (Entry& entry : mEntries) {
      if (!entry.isTaken) continue;
      if (entry.call) {
        if (entry.call->deadline <= now) {
          expire(CallRef(entry.call), finished);
        } else {
          mNextDeadline = std::min(mNextDeadline, entry.call->deadline);
        }
      }
      if (entry.stream) expireStream(entry, now);
    }
    expireAll(mQueue, now, finished);
    expireAll(mDoubted, now, finished);
    countHeld();
  }

  void expireStream(Entry& entry, Clock::time_point now) KEL_DETAIL_REQUIRES(mMutex) {
    Clock::time_point idleUntil = Clock::time_point::max();
    if (entry.idle != Clock::duration::max()) idleUntil = entry.stream->cameLast() + entry.idle;
    if (entry.until <= now || idleUntil <= now) {
      entry.stream->finish(entry.until <= now ? End::deadline : End::idle);
      entry.stream = nullptr;
    } else {
      mNextDeadline = std::min({mNextDeadline, entry.until, idleUntil});
    }
  }

  void expireAll(const std::deque<CallRef>& calls, Clock::time_point now, Finished& finished)
      KEL_DETAIL_REQUIRES(mMutex) {
    std::vector<CallRef> overdue;
    for (const CallRef& call : calls) {
      if (call->deadline <= now) {
        overdue.push_back(call);
      } else {
        mNextDeadline = std::min(mNextDeadline, call->deadline);
      }
    }
    for (const CallRef& call : overdue) expire(call, finished);
  }

  /// Sends what waits, as long as it can be sent. Returns when to look again.
  Clock::time_point sendQueued() KEL_DETAIL_REQUIRES(mMutex) {
    while (!mQueue.empty() && canSend(*mQueue.front())) {
      const Clock::time_point now = Clock::now();
      if (now >= mNextDeadline) return now;
      if (mNumberlessUntil > now) return std::min(mNumberlessUntil, mNextDeadline);
      const CallRef call = mQueue.front();
      mQueue.pop_front();
      file(call);
      Finished finished;
      transmit(call, call->payload.data(), call->payload.size(), finished);
      const bool isBusy = call->stage == CallState::Stage::waiting && mNumberlessUntil <= Clock::now();
      if (isBusy) {
        const Clock::time_point until = std::min(mNextDeadline, after(kLook));
        mMutex.unlock();
        mRoad->awaitTurn(until);
        mMutex.lock();
      }
    }
    return mNextDeadline;
  }

  // ---- The link thread ----

  void setState(State state, StateChange change) KEL_DETAIL_REQUIRES(mMutex) {
    mState = state;
    mReason = change.reason;
    if (mOptions.onState) post([this, change = std::move(change)] { mOptions.onState(change); });
    mStateChanged.notifyAll();
    mTimeWake.notifyAll();
  }

  void presumeLost(std::string why) KEL_DETAIL_REQUIRES(mMutex) {
    if (mPresumedLost) return;
    mPresumedLost = std::move(why);
    mLinkWake.notifyAll();
  }

  void keepLink() {
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

  /// What the client that this belongs to does: the link thread outlives it, or is joined by it.
  enum class Owner : std::uint8_t { there, waits, gone };

  void letGo(Owner owner) {
    const Lock lock(mMutex);
    mOwner = owner;
    mLinkWake.notifyAll();
  }

  bool isLastAttempt(std::uint32_t attempt) const {
    return mOptions.supervision.attempts != 0 && attempt >= mOptions.supervision.attempts;
  }

  /// Connecting has failed for good.
  void giveUp(const std::string& why) KEL_DETAIL_REQUIRES(mMutex) {
    Finished finished;
    endEverything(Cause::notConnected, End::closed, finished);
    endBroadcasts();
    setState(State::closed, {State::closed, why, 0, Milliseconds(0)});
  }

  void awaitClosing() KEL_DETAIL_REQUIRES(mMutex) {
    while (!mIsClosing) mLinkWake.wait(mMutex);
  }

  /// While the connection is good. Returns why it no longer is.
  std::string serve(bool* isRenewal) KEL_DETAIL_REQUIRES(mMutex) {
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

  /// Sends one heartbeat and waits for its end. None: it was answered.
  std::optional<Cause> beat() KEL_DETAIL_REQUIRES(mMutex) {
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

  /// The link is alive: what was refused, the device has refused.
  void settleDoubted() KEL_DETAIL_REQUIRES(mMutex) {
    Finished finished;
    for (const CallRef& call : std::exchange(mDoubted, {})) {
      end(call, Error{Cause::refused, mRoad->codeOf(Sent::refused), call->task}, finished);
    }
  }

  void runJobs(bool isConnected) KEL_DETAIL_REQUIRES(mMutex) {
    while (!mJobs.empty()) {
      const std::function<void(bool)> job = std::move(mJobs.front());
      mJobs.pop_front();
      mMutex.unlock();
      job(isConnected);
      mMutex.lock();
    }
  }

  /// Ends a connection: tells what was under way, and disconnects.
  void takeDown(bool isRenewal, const std::string& why) KEL_DETAIL_REQUIRES(mMutex) {
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
    for (Entry& entry : mEntries) {
      if (entry.isTaken) release(entry);
    }
    mReturnedCount = 0;
    mIsRenewing = false;
    mPresumedLost.reset();
  }

  bool hasCalls() const KEL_DETAIL_REQUIRES(mMutex) {
    return std::any_of(mEntries.begin(), mEntries.end(), [](const Entry& entry) { return entry.call != nullptr; });
  }

  /// What is under way ends with the connection; what waits to be sent goes on waiting for the next one.
  void endCalls(Finished& finished) KEL_DETAIL_REQUIRES(mMutex) {
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

  void endEverything(Cause cause, End streamEnd, Finished& finished) KEL_DETAIL_REQUIRES(mMutex) {
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

  void endBroadcasts() KEL_DETAIL_REQUIRES(mMutex) {
    for (const Subscriber& one : std::exchange(mSubscribers, {})) one.queue->finish(End::closed);
    mWantsBroadcasts.store(false);
  }

  Milliseconds jittered(Milliseconds pause) {
    std::uniform_real_distribution<double> share(0.75, 1.25);
    return Milliseconds(static_cast<Milliseconds::rep>(static_cast<double>(pause.count()) * share(mRandom)));
  }

  void joinOthers() KEL_DETAIL_REQUIRES(mJoinMutex) {
    if (mTimeThread.joinable()) mTimeThread.join();
    mCallbacks.end();
  }

  // Constant.
  const Options mOptions;
  const std::unique_ptr<Road> mRoad;
  const TaskTable mTable;

  // With locks of their own, or atomic.
  CallbackThread mCallbacks;
  std::atomic<bool> mWantsBroadcasts{false};
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
  std::array<Entry, kNumbers> mEntries KEL_DETAIL_GUARDED_BY(mMutex);
  std::array<std::uint32_t, kNumbers> mFree KEL_DETAIL_GUARDED_BY(mMutex);
  std::uint32_t mFreeCount KEL_DETAIL_GUARDED_BY(mMutex) = kNumbers;
  std::uint32_t mLive KEL_DETAIL_GUARDED_BY(mMutex) = 0;
  std::array<Clock::time_point, kNumbers> mReturned KEL_DETAIL_GUARDED_BY(mMutex);
  std::uint32_t mReturnedCount KEL_DETAIL_GUARDED_BY(mMutex) = 0;
  std::uint32_t mSenders KEL_DETAIL_GUARDED_BY(mMutex) = 0;  // requests that are just being sent
  std::deque<CallRef> mQueue KEL_DETAIL_GUARDED_BY(mMutex);
  std::deque<CallRef> mDoubted KEL_DETAIL_GUARDED_BY(mMutex);
  std::deque<std::function<void(bool)>> mJobs KEL_DETAIL_GUARDED_BY(mMutex);
  std::vector<Subscriber> mSubscribers KEL_DETAIL_GUARDED_BY(mMutex);
  Clock::time_point mNextDeadline KEL_DETAIL_GUARDED_BY(mMutex) = Clock::time_point::max();
  Clock::time_point mNumberlessUntil KEL_DETAIL_GUARDED_BY(mMutex);
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
