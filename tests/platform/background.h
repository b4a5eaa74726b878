/* SPDX-License-Identifier: MIT */
// What the tests of waits share: threads, and how long is long.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace kel::platform {

/// Longer than any wait here lasts unless something is wrong.
inline constexpr std::uint32_t kLong = 30'000;
/// Long enough to see that a wait does not end.
inline constexpr std::uint32_t kShort = 100;

/// A handle that is closed with its scope.
class Owned {
 public:
  explicit Owned(Handle handle) : mHandle(handle) { EXPECT_NE(handle, nullptr); }
  ~Owned() { closeHandle(mHandle); }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  operator Handle() const { return mHandle; }

 private:
  const Handle mHandle;
};

/// Work on a thread that createThread() made, joined with its scope.
class Background {
 public:
  explicit Background(std::function<void()> work)
      : mWork(std::make_unique<std::function<void()>>(std::move(work))),
        mThread(createThread(run, mWork.get(), &mId)) {}
  ~Background() { join(); }
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  void join() { EXPECT_EQ(waitForOne(mThread, kLong), kWaitObject); }
  Handle handle() const { return mThread; }
  std::uint32_t id() const { return mId; }

 private:
  static std::uint32_t run(void* work) {
    (*static_cast<std::function<void()>*>(work))();
    return 0;
  }

  std::uint32_t mId = 0;
  const std::unique_ptr<std::function<void()>> mWork;
  const Owned mThread;
};

/// Threads that wait together. Nothing tells from outside that a thread has begun a wait; so each tells that it is
/// about to, and is then given the time to get there.
class Waiters {
 public:
  using Wait = std::function<std::uint32_t()>;

  Waiters(std::size_t count, const Wait& wait) : mResults(count) {
    for (std::size_t i = 0; i < count; ++i) add(i, wait);
  }

  /// Their results, once all have ended.
  const std::vector<std::uint32_t>& results() {
    mThreads.clear();
    return mResults;
  }

 private:
  void add(std::size_t index, const Wait& wait) {
    const Owned ready(createEvent(false, false));
    mThreads.push_back(std::make_unique<Background>([this, index, wait, &ready] {
      setEvent(ready);
      mResults[index] = wait();
    }));
    EXPECT_EQ(waitForOne(ready, kLong), kWaitObject);
    sleepFor(kShort / 2);
  }

  std::vector<std::uint32_t> mResults;
  std::vector<std::unique_ptr<Background>> mThreads;
};

}  // namespace kel::platform
