/* SPDX-License-Identifier: MIT */
// The kernel's wait on a word, and the plain lock built on it.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>

#include "platform/thread_annotations.h"

namespace kel::platform::posix {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t), "the kernel reads the word itself");

/// That time from now, on the monotonic clock.
inline timespec after(std::uint32_t milliseconds) {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  time.tv_sec += milliseconds / 1000;
  time.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
  if (time.tv_nsec >= 1'000'000'000) {
    ++time.tv_sec;
    time.tv_nsec -= 1'000'000'000;
  }
  return time;
}

/// Sleeps while `word` holds `expected`, at most until `deadline` on the monotonic clock (null: for good). May return
/// early. False only if the deadline has passed.
inline bool sleepWhile(const std::atomic<std::uint32_t>& word, std::uint32_t expected, const timespec* deadline) {
  return syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, expected, deadline, nullptr, FUTEX_BITSET_MATCH_ANY) ==
             0 ||
         errno != ETIMEDOUT;
}

/// Wakes one sleeper on `word`. The word may be gone already: then nobody wakes, or somebody for no reason.
inline void wakeOne(const std::atomic<std::uint32_t>& word) {
  syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

/// A lock of one word: 0 is free, 1 is taken, 2 is taken with others asleep on it, or once so.
inline void lockWord(std::atomic<std::uint32_t>& word) {
  std::uint32_t seen = 0;
  if (word.compare_exchange_strong(seen, 1, std::memory_order_acquire, std::memory_order_relaxed)) return;
  // The word says 2 from here on, also once this thread has the lock: others may still sleep on it.
  while (word.exchange(2, std::memory_order_acquire) != 0) sleepWhile(word, 2, nullptr);
}

inline void unlockWord(std::atomic<std::uint32_t>& word) {
  if (word.exchange(0, std::memory_order_release) == 2) wakeOne(word);
}

/// Such a lock without code at its start or end, so that it serves as a static until the very last thread.
class CAPABILITY("lock") FutexLock {
 public:
  void lock() ACQUIRE() { lockWord(mWord); }
  void unlock() RELEASE() { unlockWord(mWord); }

 private:
  std::atomic<std::uint32_t> mWord{0};
};

}  // namespace kel::platform::posix
