// SPDX-License-Identifier: MIT
#include "directory/Follower.h"

#include <algorithm>
#include <utility>

namespace kel::fleet {

namespace {

using std::chrono::milliseconds;

/// Without JetStream, or before somebody has made the bucket, it is looked for after pauses that grow.
constexpr milliseconds kFirstPause{100};
constexpr milliseconds kLongestPause{2000};
/// A watch ends its wait by a change or by stop(); this is only what its interface asks for.
constexpr std::chrono::hours kLongWait{1};

}  // namespace

Follower::Follower(Connection& connection, std::string bucket, std::string keys, std::optional<int> replicas,
                   Handlers handlers)
    : mConnection(connection),
      mBucket(std::move(bucket)),
      mKeys(std::move(keys)),
      mReplicas(replicas),
      mHandlers(std::move(handlers)),
      mThread([this] { run(); }) {}

Follower::~Follower() {
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    mIsStopping = true;
    if (mWatch != nullptr) mWatch->stop();
  }
  mChanged.notify_all();
  mThread.join();
}

void Follower::run() {
  milliseconds pause = kFirstPause;
  for (;;) {
    std::string why = "the watch ended";
    if (std::optional<Bucket> bucket = Bucket::open(mConnection, mBucket, mReplicas, why)) {
      if (std::optional<BucketWatch> watch = bucket->watch(mKeys)) {
        pause = kFirstPause;
        follow(*watch);
      }
    }
    std::unique_lock<std::mutex> lock(mMutex);
    if (mIsStopping) return;
    lock.unlock();
    mHandlers.onOutOfReach(why);
    lock.lock();
    if (mChanged.wait_for(lock, pause, [this] { return mIsStopping; })) return;
    pause = std::min(pause * 2, kLongestPause);
  }
}

void Follower::follow(BucketWatch& watch) {
  std::unique_lock<std::mutex> lock(mMutex);
  if (mIsStopping) return;
  mWatch = &watch;
  lock.unlock();
  mHandlers.onOpen();
  for (bool goesOn = true; goesOn;) {
    BucketEntry entry;
    switch (watch.next(kLongWait, entry)) {
      case BucketWatch::Next::entry:
        mHandlers.onEntry(entry);
        break;
      case BucketWatch::Next::upToDate:
        mHandlers.onUpToDate();
        break;
      case BucketWatch::Next::nothing:
        break;
      case BucketWatch::Next::failed:
        goesOn = false;
        break;
    }
  }
  lock.lock();
  mWatch = nullptr;
}

}  // namespace kel::fleet
