// SPDX-License-Identifier: MIT
#include "callbacks.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <utility>

#include "interrupt.h"

namespace kelctl {
namespace {

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

  std::optional<Item> next(Clock::time_point deadline) {
    std::unique_lock lock(mLock);
    for (;;) {
      if (interrupted()) return std::nullopt;
      if (!mQueue.empty()) break;
      const Clock::time_point now = Clock::now();
      if (now >= deadline) return std::nullopt;
      mArrived.wait_until(lock, std::min<Clock::time_point>(deadline, now + kLook));
    }
    Item item = std::move(mQueue.front());
    mQueue.pop_front();
    return item;
  }

 private:
  std::mutex mLock;
  std::condition_variable mArrived;
  std::deque<Item> mQueue;  // guarded by mLock
};

Inbox<Broadcast> gBroadcasts;
Inbox<StreamMessage> gStreamMessages;
Inbox<Answer> gAnswers;

Bytes copied(const void* data, std::uint32_t size) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  return {bytes, bytes + size};
}

}  // namespace

void queueBroadcast(char* name, std::uint32_t isRef, void* payload, std::uint32_t size, std::uint32_t /*seqTui*/) {
  gBroadcasts.push({name, isRef != 0, copied(payload, size), Clock::now()});
  // Both blocks are this side's from now on.
  std::free(name);
  std::free(payload);
}

// A stream's messages all come with error 0: it has no time-out.
void queueStreamMessage(std::uint32_t /*errorCode*/, std::uint32_t /*commandID*/, std::uint32_t /*sequenceByte*/,
                        std::uint32_t streamEnd, std::uint32_t isRef, void* data, std::uint32_t size,
                        std::uint32_t /*seqTui*/) {
  gStreamMessages.push({streamEnd != 0, isRef != 0, copied(data, size)});
}

void queueAnswer(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t /*sequenceByte*/, std::uint32_t isRef,
                 void* data, std::uint32_t size, std::uint32_t /*seqTui*/) {
  gAnswers.push({commandID, errorCode, isRef != 0, copied(data, size), Clock::now()});
}

std::optional<Broadcast> nextBroadcast(Clock::time_point deadline) { return gBroadcasts.next(deadline); }
std::optional<StreamMessage> nextStreamMessage(Clock::time_point deadline) { return gStreamMessages.next(deadline); }
std::optional<Answer> nextAnswer(Clock::time_point deadline) { return gAnswers.next(deadline); }

}  // namespace kelctl
