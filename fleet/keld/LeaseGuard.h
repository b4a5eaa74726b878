/* SPDX-License-Identifier: MIT */
// Knows who may use a device: follows its lease in the site's bucket.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "directory/Follower.h"
#include "directory/Lease.h"

namespace kel::fleet {

class LeaseGuard {
 public:
  /// `onReady` is called, on a thread of the guard's own, each time that the bucket could be had.
  LeaseGuard(Connection& connection, const std::string& site, const std::string& device, int replicas,
             std::function<void()> onReady);

  /// Whose name the device is reserved under, if it is not for `id`. A lease that was not renewed in time binds nobody.
  std::optional<std::string> heldAgainst(const std::string& id) const;
  /// Waits until that revision of the lease, or a later one, has been seen.
  bool awaitRevision(std::uint64_t revision, std::chrono::milliseconds timeout) const;

 private:
  mutable std::mutex mMutex;
  mutable std::condition_variable mChanged;
  std::uint64_t mRevision = 0;
  Lease mLease;
  std::chrono::steady_clock::time_point mSeen;
  std::string mTold;  // the last reason that was logged; the follower's thread's

  Follower mFollower;  // last: it ends first
};

}  // namespace kel::fleet
