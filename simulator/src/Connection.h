/* SPDX-License-Identifier: MIT */
// An L5 connection: the handlers of its owner and the thread that calls them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

#include "Series.h"
#include "adapter/SluiceHub.h"

namespace kel::sim {

struct Hub;

using Clock = std::chrono::steady_clock;

/// Counts deliveries that somebody waits for. Lives with the waiter, who stays until it is 0. Guarded by the hub's
/// lock.
struct Completion {
  std::uint32_t pending = 0;
};

/// One thing on its way to a handler.
struct Delivery {
  enum class Kind { kMessage, kEvent, kSeries, kLinkLoss };

  Kind kind = Kind::kMessage;
  Clock::time_point due;
  std::uint64_t order = 0;           ///< of posting
  std::uint32_t ID = 0;              ///< message ID, or the event
  std::uint32_t reason = 0;          ///< of an event
  std::uint32_t holdBack = 0;        ///< later responses that have to go out first
  Completion* completion = nullptr;  ///< notified when the handler has returned or the delivery is dropped
  Series series;
  std::vector<std::uint8_t> body;
};

/// Deliveries are posted under the hub's lock and handed to the handlers without it, one by one on the connection's own
/// thread. The thread sleeps on `wake` while nothing is due.
///
///   open     sends are taken                     until LoseLink or Close
///   lost     sends fail, events still come       until Close
///   closing  nothing comes but the last event    until the thread has ended
///
/// All members behind the constants, and all functions but Run, are guarded by the hub's lock.
class Connection {
 public:
  Connection(Hub& hub, std::uint32_t number, std::uint64_t value, L5MessagesHandler messages, L5EventHandler events,
             std::uint32_t* context)
      : mHub(hub), mNumber(number), mValue(value), mMessages(messages), mEvents(events), mContext(context) {}

  /// Starts the delivery thread, which keeps `self` until it ends. Throws if there are no threads left.
  void Start(const std::shared_ptr<Connection>& self);

  void Post(std::unique_ptr<Delivery> delivery);
  /// A posted delivery is due before the thread would wake by itself; `Wake` is then wanted, best after unlocking.
  bool WantsWaking() const { return !mQueue.empty() && mQueue.front()->due < mSleepsUntil; }
  void Wake() { mWake.notify_one(); }

  /// Drops what is on its way, and every send from now on fails. The event is the caller's to post.
  void LoseLink();
  /// The same, but what is on its way still comes, and then the event.
  void HangUp();
  /// Ends the streams of a task.
  void EndStreams(std::uint32_t TUI);

  /// Reports the disconnect that the owner asked for and ends the thread; no handler runs afterwards. On the delivery
  /// thread itself the report is made at once, and the thread ends when the handler that it is in has returned.
  void Close(std::unique_lock<std::mutex>& lock);

  std::uint32_t Number() const { return mNumber; }
  std::uint64_t Value() const { return mValue; }
  bool IsLost() const { return mLost; }
  bool IsIdle() const { return mQueue.empty() && mCurrent == nullptr; }
  bool OnOwnThread() const { return mThread.get_id() == std::this_thread::get_id(); }

  /// Adapter row of the owner, as it stated when it acquired its socket. It opens the body of each response.
  std::uint16_t row = kNoSocket;

 private:
  using Queue = std::vector<std::unique_ptr<Delivery>>;

  void Run();
  void DeliverNext(std::unique_lock<std::mutex>& lock);
  void Hand(const Delivery& delivery) const;
  void HandOwnDisconnect() const;
  void Record(const Delivery& delivery) const;
  void RecordEvent(std::uint32_t event, std::uint32_t reason) const;
  void Push(std::unique_ptr<Delivery> delivery);
  void CountTowardsHeld(std::uint64_t deliveredOrder);
  void DropAll();
  void Finish(std::unique_ptr<Delivery> delivery);

  Hub& mHub;
  const std::uint32_t mNumber;  ///< 1 for the first connection of the process
  const std::uint64_t mValue;
  const L5MessagesHandler mMessages;
  const L5EventHandler mEvents;
  std::uint32_t* const mContext;

  Queue mQueue;  ///< a heap, the next one in front
  Queue mHeld;
  std::uint64_t mLastOrder = 0;
  bool mLost = false;
  bool mClosing = false;
  bool mDisconnectReported = false;
  Delivery* mCurrent = nullptr;                               ///< what a handler has just now
  Clock::time_point mSleepsUntil = Clock::time_point::min();  ///< long ago while the thread is awake
  std::condition_variable mWake;
  std::thread mThread;
};

}  // namespace kel::sim
