// SPDX-License-Identifier: MIT
#include "keld/LeaseGuard.h"

#include <utility>

#include "keld/Log.h"
#include "protocol/Subjects.h"

namespace kel::fleet {

LeaseGuard::LeaseGuard(Connection& connection, const std::string& site, const std::string& device, int replicas,
                       std::function<void()> onReady)
    : mFollower(connection, bucketOf(site), leaseKey(device), replicas,
                {[this, onReady = std::move(onReady)] {
                   mTold.clear();
                   onReady();
                 },
                 [this](const BucketEntry& entry) {
                   const std::lock_guard<std::mutex> lock(mMutex);
                   mLease = Lease::read(entry.value);
                   mRevision = entry.revision;
                   mSeen = std::chrono::steady_clock::now();
                   mChanged.notify_all();
                 },
                 [] {},
                 [this](const std::string& why) {
                   if (mTold == why) return;
                   mTold = why;
                   logLine("warning", "no presence and no reservations: JetStream cannot be used", {{"reason", why}});
                 }}) {}

std::optional<std::string> LeaseGuard::heldAgainst(const std::string& id) const {
  const std::lock_guard<std::mutex> lock(mMutex);
  if (!mLease.holder || mLease.isHeldBy(id)) return std::nullopt;
  if (std::chrono::steady_clock::now() - mSeen > mLease.timeToLive) return std::nullopt;
  return mLease.holder->name;
}

bool LeaseGuard::awaitRevision(std::uint64_t revision, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mMutex);
  return mChanged.wait_for(lock, timeout, [&] { return mRevision >= revision; });
}

}  // namespace kel::fleet
