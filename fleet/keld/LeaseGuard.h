/* SPDX-License-Identifier: MIT */
// Knows who may use a device: follows its lease in the site's bucket, on a thread of its own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "directory/Bucket.h"
#include "directory/Lease.h"

namespace kel::fleet {

class LeaseGuard {
 public:
  /// `onReady` is called, on the guard's thread, each time that the bucket could be had.
  LeaseGuard(Connection& connection, std::string site, std::string device, int replicas, std::function<void()> onReady);
  ~LeaseGuard();

  /// Whose name the device is reserved under, if it is not for `id`. A lease that was not renewed in time binds nobody.
  std::optional<std::string> heldAgainst(const std::string& id) const;
  /// Waits until that revision of the lease, or a later one, has been seen.
  bool awaitRevision(std::uint64_t revision, std::chrono::milliseconds timeout) const;

 private:
  void run();
  void follow(BucketWatch& watch);

  Connection& mConnection;
  const std::string mSite;
  const std::string mDevice;
  const int mReplicas;
  const std::function<void()> mOnReady;

  mutable std::mutex mMutex;
  mutable std::condition_variable mChanged;
  bool mIsStopping = false;
  std::uint64_t mRevision = 0;
  Lease mLease;
  std::chrono::steady_clock::time_point mSeen;

  std::thread mThread;
};

}  // namespace kel::fleet
