// SPDX-License-Identifier: MIT
// Messages on their way from the connection to a reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "kel/detail/sync.hpp"
#include "kel/options.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

/// A queue with a limit and an end. Messages that came before the end are still read after it.
template <class Item>
class MessageQueue {
 public:
  MessageQueue(std::size_t limit, WhenFull whenFull) : mLimit(limit == 0 ? 1 : limit), mWhenFull(whenFull) {}

  /// Has `ready` called, by the thread that brings it, for the first message or the end that a reader who found
  /// nothing has not been told of yet. It must not block.
  void tellWhenReady(std::function<void()> ready) {
    std::function<void()> tell;
    {
      const Lock lock(mMutex);
      mReady = std::move(ready);
      mIsTold = false;
      if (!mItems.empty() || mEnd != End::none) tell = claimTelling();
    }
    if (tell) tell();
  }

  /// Returns how many messages were dropped for it. May block with WhenFull::wait.
  std::size_t push(Item item) {
    std::size_t dropped = 0;
    std::function<void()> tell;
    {
      Lock lock(mMutex);
      while (mWhenFull == WhenFull::wait && mItems.size() >= mLimit && mEnd == End::none) mTaken.wait(mMutex);
      if (mEnd != End::none) return 0;
      if (mItems.size() >= mLimit) {
        mItems.pop_front();
        ++dropped;
      }
      mItems.push_back(std::move(item));
      mDropped += dropped;
      mCameLast = Clock::now();
      tell = claimTelling();
    }
    mArrived.notifyOne();
    if (tell) tell();
    return dropped;
  }

  /// So many were lost before they came here.
  void countDropped(std::uint64_t count) {
    const Lock lock(mMutex);
    mDropped += count;
  }

  /// The first end counts.
  void finish(End end) {
    std::function<void()> tell;
    {
      const Lock lock(mMutex);
      if (mEnd != End::none) return;
      mEnd = end;
      tell = claimTelling();
    }
    mArrived.notifyAll();
    mTaken.notifyAll();
    if (tell) tell();
  }

  /// The next message; none at the end or the deadline.
  std::optional<Item> pop(Clock::time_point deadline) {
    std::optional<Item> item;
    {
      Lock lock(mMutex);
      while (mItems.empty() && mEnd == End::none) {
        if (deadline != kNever && Clock::now() >= deadline) return item;
        mArrived.waitUntil(mMutex, deadline);
      }
      if (mItems.empty()) return item;
      item.emplace(std::move(mItems.front()));
      mItems.pop_front();
    }
    if (mWhenFull == WhenFull::wait) mTaken.notifyOne();
    return item;
  }

  std::deque<Item> popAll() { return popBatch(mLimit); }

  /// What is there, without waiting, but not more than so many. With nothing there, and no end, the next one is told
  /// of.
  std::deque<Item> popBatch(std::size_t most) {
    std::deque<Item> items;
    {
      const Lock lock(mMutex);
      if (mItems.size() <= most) {
        items.swap(mItems);
      } else {
        const auto end = mItems.begin() + static_cast<std::ptrdiff_t>(most);
        items.assign(std::make_move_iterator(mItems.begin()), std::make_move_iterator(end));
        mItems.erase(mItems.begin(), end);
      }
      if (items.empty() && mEnd == End::none) mIsTold = false;
    }
    if (mWhenFull == WhenFull::wait) mTaken.notifyAll();
    return items;
  }

  /// Why no more come; none while there is something to read.
  End end() const {
    const Lock lock(mMutex);
    return mItems.empty() ? mEnd : End::none;
  }

  bool isStopped() const {
    const Lock lock(mMutex);
    return mEnd == End::stopped;
  }

  std::uint64_t dropped() const {
    const Lock lock(mMutex);
    return mDropped;
  }

  Clock::time_point cameLast() const {
    const Lock lock(mMutex);
    return mCameLast;
  }

 private:
  std::function<void()> claimTelling() KEL_DETAIL_REQUIRES(mMutex) {
    if (!mReady || mIsTold) return {};
    mIsTold = true;
    return mReady;
  }

  const std::size_t mLimit;
  const WhenFull mWhenFull;

  mutable Mutex mMutex;
  Condition mArrived;
  Condition mTaken;
  std::deque<Item> mItems KEL_DETAIL_GUARDED_BY(mMutex);
  End mEnd KEL_DETAIL_GUARDED_BY(mMutex) = End::none;
  std::uint64_t mDropped KEL_DETAIL_GUARDED_BY(mMutex) = 0;
  Clock::time_point mCameLast KEL_DETAIL_GUARDED_BY(mMutex) = Clock::now();
  std::function<void()> mReady KEL_DETAIL_GUARDED_BY(mMutex);
  bool mIsTold KEL_DETAIL_GUARDED_BY(mMutex) = false;  // mReady was called, and the reader has not found nothing since
};

}  // namespace detail
}  // namespace v1
}  // namespace kel
