/* SPDX-License-Identifier: MIT */
// The locked first-in first-out of buffers between the thread that received them and the one that hands them on.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>

#include "platform/kept_blocks.h"
#include "platform/platform.h"

namespace kel {

/// One queued buffer.
struct queue_element_struct {
  std::uint8_t* buffer;
  std::uint32_t bufferSize;
};

/// Results of the queue's operations. Nothing returns QUEUE_EXTRACT_FAILED; those who extract test for it all the same.
enum QueueResult : std::uint32_t {
  QUEUE_INIT_OK = 1,
  QUEUE_SHUTDOWN_OK = 3,
  QUEUE_INSERT_OK = 5,
  QUEUE_EXTRACT_FAILED = 6,
  QUEUE_EMPTY = 7,
  QUEUE_EXTRACT_OK = 8,
};

/// Moves pointers and sizes, with no limit on their number; it copies no data and signals nobody.
///
/// A buffer belongs to the queue from insert() on and to the taker from extract() on. The queue frees none: its owner
/// drains it before its end. Threads: any number may insert and extract at once, also while the owner shuts the queue
/// down or initialises it again. The lock is a leaf and is held for the container's operation only.
class SafeQueue {
 public:
  SafeQueue() { init(); }
  ~SafeQueue() { shutdown(); }
  SafeQueue(const SafeQueue&) = delete;
  SafeQueue& operator=(const SafeQueue&) = delete;

  /// Initialises the lock. Owners call it once more than the constructor does, and test the result.
  QueueResult init();
  /// Ends the owner's use of the lock and leaves the buffers. Owners may call it ahead of the destructor.
  QueueResult shutdown();

  QueueResult insert(std::uint8_t* buffer, std::uint32_t bufferSize);
  /// QUEUE_EXTRACT_OK, or QUEUE_EMPTY with null and 0.
  QueueResult extract(std::uint8_t** buffer, std::uint32_t* bufferSize);
  /// Leaves all that is queued, without the lock, which may be held for good: nobody else may use the queue any more.
  void leave(const KeptBlocks& keptBlocks) NO_THREAD_SAFETY_ANALYSIS;

 private:
  bool empty() const REQUIRES(mLock) { return mFirstCount == 0 && !mQueue; }
  queue_element_struct takeFront() REQUIRES(mLock);

  // A plain task has one answer: the heap is needed only for what is queued behind the first few buffers, and no longer
  // than there is any.
  static constexpr std::uint32_t kFirst = 4;
  std::array<queue_element_struct, kFirst> mFirst GUARDED_BY(mLock);  ///< in a ring
  std::uint32_t mFirstFront GUARDED_BY(mLock) = 0;
  std::uint32_t mFirstCount GUARDED_BY(mLock) = 0;
  std::optional<std::deque<queue_element_struct>> mQueue GUARDED_BY(mLock);  ///< never empty
  platform::CriticalSection mLock;
};

}  // namespace kel
