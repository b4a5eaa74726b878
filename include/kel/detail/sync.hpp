// SPDX-License-Identifier: MIT
// The locks of the client layer, known to Clang's thread-safety analysis.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define KEL_DETAIL_ATTRIBUTE(x) __attribute__((x))
#else
#define KEL_DETAIL_ATTRIBUTE(x)
#endif
#define KEL_DETAIL_GUARDED_BY(x) KEL_DETAIL_ATTRIBUTE(guarded_by(x))
#define KEL_DETAIL_REQUIRES(x) KEL_DETAIL_ATTRIBUTE(requires_capability(x))
#define KEL_DETAIL_EXCLUDES(x) KEL_DETAIL_ATTRIBUTE(locks_excluded(x))

namespace kel {
inline namespace v1 {

/// The clock of all deadlines. It is never set.
using Clock = std::chrono::steady_clock;

namespace detail {

// Programs may have macros min and max.
constexpr Clock::time_point kNever = (Clock::time_point::max)();
constexpr Clock::duration kForever = (Clock::duration::max)();

class KEL_DETAIL_ATTRIBUTE(capability("mutex")) Mutex {
 public:
  void lock() KEL_DETAIL_ATTRIBUTE(acquire_capability()) { mMutex.lock(); }
  void unlock() KEL_DETAIL_ATTRIBUTE(release_capability()) { mMutex.unlock(); }

 private:
  friend class Condition;
  std::mutex mMutex;
};

/// Holds a mutex for a scope, and may give it up in between.
class KEL_DETAIL_ATTRIBUTE(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex& mutex) KEL_DETAIL_ATTRIBUTE(acquire_capability(mutex)) : mMutex(mutex) { mMutex.lock(); }
  ~Lock() KEL_DETAIL_ATTRIBUTE(release_capability()) {
    if (mHolds) mMutex.unlock();
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void unlock() KEL_DETAIL_ATTRIBUTE(release_capability()) {
    mHolds = false;
    mMutex.unlock();
  }
  void lock() KEL_DETAIL_ATTRIBUTE(acquire_capability()) {
    mMutex.lock();
    mHolds = true;
  }

 private:
  Mutex& mMutex;
  bool mHolds = true;
};

/// What threads wait for under a mutex. May wake for no reason: the caller looks again.
class Condition {
 public:
  void wait(Mutex& mutex) KEL_DETAIL_REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mMutex, std::adopt_lock);
    mCondition.wait(lock);
    lock.release();
  }

  /// Waits until `deadline` at most; kNever stands for no deadline.
  void waitUntil(Mutex& mutex, Clock::time_point deadline) KEL_DETAIL_REQUIRES(mutex) {
    if (deadline == kNever) return wait(mutex);
    std::unique_lock<std::mutex> lock(mutex.mMutex, std::adopt_lock);
    mCondition.wait_until(lock, deadline);
    lock.release();
  }

  void notifyOne() { mCondition.notify_one(); }
  void notifyAll() { mCondition.notify_all(); }

 private:
  std::condition_variable mCondition;
};

/// So long after a moment; kNever if that is beyond the end of time.
inline Clock::time_point at(Clock::time_point moment, Clock::duration time) {
  return time >= kNever - moment ? kNever : moment + time;
}

inline Clock::time_point after(Clock::duration time) { return at(Clock::now(), time); }

}  // namespace detail
}  // namespace v1
}  // namespace kel
