/* SPDX-License-Identifier: MIT */
// A queue that fails. It has no way to, and those who use it look at its results all the same. A program that uses this
// links test_failing_queue, which puts its own functions in front of the queue's.
#pragma once

#include <cstdint>

namespace kel::test {

enum class QueueCall { kNone, kInit, kShutdown, kInsert, kExtract };

/// While one lives, that operation of every queue gives QUEUE_EXTRACT_FAILED, the only number that tells of a failure.
/// Nothing is queued then, and nothing taken. One at a time.
class FailingQueue {
 public:
  explicit FailingQueue(QueueCall call);
  ~FailingQueue();
  FailingQueue(const FailingQueue&) = delete;
  FailingQueue& operator=(const FailingQueue&) = delete;

  /// The buffer that was not queued last.
  std::uint8_t* refused() const;
};

}  // namespace kel::test
