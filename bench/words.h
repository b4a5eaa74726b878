/* SPDX-License-Identifier: MIT */
// Threads that wait for one another on single words, by the kernel's wait alone: what bare limits are made of, and how
// a round waits for callbacks.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>
#include <utility>

#include "platform/posix/futex.h"

namespace bench {

/// Counts down to 0, and wakes the one who waits for that.
class Countdown {
 public:
  void start(std::uint32_t count) { mLeft.store(count, std::memory_order_relaxed); }

  void done() {
    if (mLeft.fetch_sub(1, std::memory_order_acq_rel) == 1) kel::platform::posix::wakeOne(mLeft);
  }

  void wait() const {
    while (const std::uint32_t left = mLeft.load(std::memory_order_acquire)) {
      kel::platform::posix::sleepWhile(mLeft, left, nullptr);
    }
  }

 private:
  std::atomic<std::uint32_t> mLeft{0};
};

/// A thread that sleeps until it is told to do its work once more.
class ParkedThread {
 public:
  explicit ParkedThread(std::function<void()> work) : mWork(std::move(work)), mThread([this] { run(); }) {}
  ~ParkedThread() {
    set(kEnd);
    mThread.join();
  }
  ParkedThread(const ParkedThread&) = delete;
  ParkedThread& operator=(const ParkedThread&) = delete;

  /// Not to be called again before the work is done, which the work has to tell by itself.
  void wake() { set(kWork); }

 private:
  enum : std::uint32_t { kParked, kWork, kEnd };

  void set(std::uint32_t value) {
    mWord.store(value, std::memory_order_release);
    kel::platform::posix::wakeOne(mWord);
  }

  void run() {
    for (;;) {
      while (mWord.load(std::memory_order_acquire) == kParked) {
        kel::platform::posix::sleepWhile(mWord, kParked, nullptr);
      }
      if (mWord.exchange(kParked, std::memory_order_acquire) == kEnd) return;
      mWork();
    }
  }

  const std::function<void()> mWork;
  std::atomic<std::uint32_t> mWord{kParked};
  std::thread mThread;
};

}  // namespace bench
