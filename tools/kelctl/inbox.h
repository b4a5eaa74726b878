/* SPDX-License-Identifier: MIT */
// A queue from the threads that bring something to the one that prints it.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "clock.h"
#include "interrupt.h"

namespace kelctl {

/// It has no limit.
template <class Item>
class Inbox {
 public:
  void push(Item item) {
    {
      const std::lock_guard lock(mLock);
      mQueue.push_back(std::move(item));
    }
    mArrived.notify_one();
  }

  /// The next one; none at the deadline.
  std::optional<Item> next(Clock::time_point deadline) {
    std::unique_lock lock(mLock);
    if (!mArrived.wait_until(lock, deadline, [this] { return !mQueue.empty(); })) return std::nullopt;
    std::optional<Item> item(std::move(mQueue.front()));
    mQueue.pop_front();
    return item;
  }

  /// The next one; none at the deadline or at Ctrl-C where that is caught.
  std::optional<Item> nextUnlessInterrupted(Clock::time_point deadline) {
    while (!interrupted()) {
      const Clock::time_point look = std::min<Clock::time_point>(deadline, Clock::now() + kLook);
      if (std::optional<Item> item = next(look)) return item;
      if (look == deadline) break;
    }
    return std::nullopt;
  }

 private:
  std::mutex mLock;
  std::condition_variable mArrived;
  std::deque<Item> mQueue;  // guarded by mLock
};

}  // namespace kelctl
