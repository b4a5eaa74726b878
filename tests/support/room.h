/* SPDX-License-Identifier: MIT */
// A place for so many at once. Not std::counting_semaphore, which can miss a wake in the C++ runtime for Windows.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace kel::test {

class Room {
 public:
  explicit Room(std::uint32_t places) : mFree(places) {}

  /// Waits for a free place.
  void acquire() {
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [this] { return mFree > 0; });
    --mFree;
  }
  void release() {
    const std::lock_guard lock(mMutex);
    ++mFree;
    mChanged.notify_one();
  }

 private:
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::uint32_t mFree;
};

}  // namespace kel::test
