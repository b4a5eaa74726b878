/* SPDX-License-Identifier: MIT */
// Follows keys of a site's bucket on a thread of its own, also beyond a loss of the servers: then all begins anew.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "directory/Bucket.h"

namespace kel::fleet {

class Follower {
 public:
  /// All are called on the follower's thread.
  struct Handlers {
    std::function<void()> onOpen;  ///< The bucket could be had: what it holds comes now.
    std::function<void(const BucketEntry& entry)> onEntry;
    std::function<void()> onUpToDate;                          ///< That was all; what comes now are changes.
    std::function<void(const std::string& why)> onOutOfReach;  ///< Tried again until the end.
  };

  /// With `replicas` the bucket is made if there is none. The connection must outlive the follower.
  Follower(Connection& connection, std::string bucket, std::string keys, std::optional<int> replicas,
           Handlers handlers);
  /// Waits until the last handler has returned.
  ~Follower();

 private:
  void run();
  void follow(BucketWatch& watch);

  Connection& mConnection;
  const std::string mBucket;
  const std::string mKeys;
  const std::optional<int> mReplicas;
  const Handlers mHandlers;

  std::mutex mMutex;
  std::condition_variable mChanged;
  bool mIsStopping = false;
  BucketWatch* mWatch = nullptr;  // while it is followed

  std::thread mThread;
};

}  // namespace kel::fleet
