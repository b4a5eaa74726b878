// SPDX-License-Identifier: MIT
// The thread that a client's user functions run on.
#pragma once

#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "kel/detail/sync.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

/// Something to run on the callback thread. To post it allocates nothing and so cannot fail.
class Job {
 public:
  virtual ~Job() = default;
  virtual void run() = 0;

 private:
  friend class CallbackThread;
  std::shared_ptr<Job> mNext;
};

class FunctionJob final : public Job {
 public:
  explicit FunctionJob(std::function<void()> function) : mFunction(std::move(function)) {}
  void run() override { mFunction(); }

 private:
  const std::function<void()> mFunction;
};

/// Runs jobs one after the other, with no lock held.
class CallbackThread {
 public:
  CallbackThread() = default;
  ~CallbackThread() { end(); }
  CallbackThread(const CallbackThread&) = delete;
  CallbackThread& operator=(const CallbackThread&) = delete;

  /// Starts the thread, if it is not there: to be called before the first job is posted. Throws std::system_error.
  void begin() {
    const Lock lock(mMutex);
    if (mId != std::thread::id() || mIsEnding) return;
    mThread = std::thread([this] { run(); });
    mId = mThread.get_id();
  }

  /// False if the thread has ended, or never began: then the job will not run. A job is not posted twice.
  bool post(std::shared_ptr<Job> job) {
    {
      const Lock lock(mMutex);
      if (mIsEnded || mId == std::thread::id()) return false;
      std::shared_ptr<Job>& place = mLast ? mLast->mNext : mFirst;
      mLast = job.get();
      place = std::move(job);
    }
    mChanged.notifyOne();
    return true;
  }

  bool isThisThread() const {
    const Lock lock(mMutex);
    return !mIsEnded && mId == std::this_thread::get_id();
  }

  /// Runs what was posted, and ends. Not to be called by a job, nor by two threads at once.
  void end() {
    {
      const Lock lock(mMutex);
      mIsEnding = true;
    }
    mChanged.notifyOne();
    if (mThread.joinable()) mThread.join();
  }

 private:
  void run() {
    Lock lock(mMutex);
    for (;;) {
      while (!mFirst && !mIsEnding) mChanged.wait(mMutex);
      if (!mFirst) break;
      std::shared_ptr<Job> job = std::move(mFirst);
      mFirst = std::move(job->mNext);
      if (!mFirst) mLast = nullptr;
      lock.unlock();
      job->run();
      job = nullptr;
      lock.lock();
    }
    mIsEnded = true;
  }

  mutable Mutex mMutex;
  Condition mChanged;
  std::shared_ptr<Job> mFirst KEL_DETAIL_GUARDED_BY(mMutex);
  Job* mLast KEL_DETAIL_GUARDED_BY(mMutex) = nullptr;
  bool mIsEnding KEL_DETAIL_GUARDED_BY(mMutex) = false;
  bool mIsEnded KEL_DETAIL_GUARDED_BY(mMutex) = false;
  std::thread::id mId KEL_DETAIL_GUARDED_BY(mMutex);
  std::thread mThread;  // of whoever begins and ends it
};

}  // namespace detail
}  // namespace v1
}  // namespace kel
