// The thread that a client's user functions run on.
#pragma once

#include <deque>
#include <functional>
#include <thread>
#include <utility>

#include "kel/detail/sync.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

/// Runs jobs one after the other, with no lock held. The thread is there from the first job on.
class CallbackThread {
 public:
  CallbackThread() = default;
  ~CallbackThread() { end(); }
  CallbackThread(const CallbackThread&) = delete;
  CallbackThread& operator=(const CallbackThread&) = delete;

  /// False if the thread has ended: then the job will not run.
  bool post(std::function<void()> job) {
    {
      const Lock lock(mMutex);
      if (mIsEnded) return false;
      mJobs.push_back(std::move(job));
      if (!mIsStarted) {
        mThread = std::thread([this] { run(); });
        return mIsStarted = true;
      }
    }
    mChanged.notifyOne();
    return true;
  }

  bool isThisThread() const {
    const Lock lock(mMutex);
    return mThread.get_id() == std::this_thread::get_id();
  }

  /// Runs what was posted, and ends. Not to be called by a job.
  void end() {
    {
      const Lock lock(mMutex);
      mIsEnding = true;
      if (!mIsStarted) mIsEnded = true;
    }
    mChanged.notifyOne();
    if (mThread.joinable()) mThread.join();
  }

 private:
  void run() {
    Lock lock(mMutex);
    for (;;) {
      while (mJobs.empty() && !mIsEnding) mChanged.wait(mMutex);
      if (mJobs.empty()) break;
      const std::function<void()> job = std::move(mJobs.front());
      mJobs.pop_front();
      lock.unlock();
      job();
      lock.lock();
    }
    mIsEnded = true;
  }

  mutable Mutex mMutex;
  Condition mChanged;
  std::deque<std::function<void()>> mJobs KEL_DETAIL_GUARDED_BY(mMutex);
  bool mIsStarted KEL_DETAIL_GUARDED_BY(mMutex) = false;
  bool mIsEnding KEL_DETAIL_GUARDED_BY(mMutex) = false;
  bool mIsEnded KEL_DETAIL_GUARDED_BY(mMutex) = false;
  std::thread mThread;  // set once, under mMutex, before anybody can join it
};

}  // namespace detail
}  // namespace v1
}  // namespace kel
