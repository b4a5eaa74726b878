// SPDX-License-Identifier: MIT
#include "keld/LeaseGuard.h"

#include <utility>

#include "keld/Log.h"
#include "protocol/Subjects.h"

namespace kel::fleet {

namespace {

/// Without JetStream there are no reservations; it is looked for so often.
constexpr std::chrono::seconds kRetry{2};
/// The end of the guard is seen within this time.
constexpr std::chrono::milliseconds kLook{200};

}  // namespace

LeaseGuard::LeaseGuard(Connection& connection, std::string site, std::string device, int replicas,
                       std::function<void()> onReady)
    : mConnection(connection),
      mSite(std::move(site)),
      mDevice(std::move(device)),
      mReplicas(replicas),
      mOnReady(std::move(onReady)),
      mThread([this] { run(); }) {}

LeaseGuard::~LeaseGuard() {
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    mIsStopping = true;
  }
  mChanged.notify_all();
  mThread.join();
}

std::optional<std::string> LeaseGuard::heldAgainst(const std::string& id) const {
  const std::lock_guard<std::mutex> lock(mMutex);
  if (!mLease.holder || mLease.isHeldBy(id)) return std::nullopt;
  if (std::chrono::steady_clock::now() - mSeen > mLease.timeToLive) return std::nullopt;
  return mLease.holder->name;
}

bool LeaseGuard::awaitRevision(std::uint64_t revision, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mMutex);
  return mChanged.wait_for(lock, timeout, [&] { return mRevision >= revision || mIsStopping; }) && !mIsStopping;
}

void LeaseGuard::run() {
  std::string told;
  std::unique_lock<std::mutex> lock(mMutex);
  while (!mIsStopping) {
    lock.unlock();
    std::string why = "the watch ended";
    if (std::optional<Bucket> bucket = Bucket::open(mConnection, bucketOf(mSite), mReplicas, why)) {
      if (std::optional<BucketWatch> watch = bucket->watch(leaseKey(mDevice))) {
        told.clear();
        mOnReady();
        follow(*watch);
      }
    }
    lock.lock();
    if (mIsStopping) return;
    if (told != why) logLine("warning", "no presence and no reservations: JetStream cannot be used", {{"reason", why}});
    told = why;
    mChanged.wait_for(lock, kRetry, [this] { return mIsStopping; });
  }
}

void LeaseGuard::follow(BucketWatch& watch) {
  for (;;) {
    BucketEntry entry;
    const BucketWatch::Next next = watch.next(kLook, entry);
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mIsStopping || next == BucketWatch::Next::failed) return;
    if (next != BucketWatch::Next::entry) continue;
    mLease = Lease::read(entry.value);
    mRevision = entry.revision;
    mSeen = std::chrono::steady_clock::now();
    mChanged.notify_all();
  }
}

}  // namespace kel::fleet
