/* SPDX-License-Identifier: MIT */
// The devices of a site and their reservations, as one reader sees them.
//
// No clock is compared with another. A reader counts by its own monotonic clock from when it saw a word of a device:
// one that says none for so long is gone, and a lease that was not renewed has run out. What lies in the bucket when a
// reader comes is as old, against the newest word in it, as the servers' one clock says.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "directory/Follower.h"
#include "directory/Leaseholder.h"
#include "kel/fleet_site.hpp"

namespace kel::fleet {

/// Any thread.
class SiteView {
 public:
  using Clock = std::chrono::steady_clock;

  struct Snapshot {
    std::vector<Device> devices;
    std::uint64_t change = 0;                    ///< For awaitChange().
    std::optional<Clock::time_point> nextEnd{};  ///< When the next of the leases runs out, if nobody renews it.
  };

  SiteView(Connection& connection, const std::string& site);

  /// Waits for the bucket. Null, with the reason in `why`, if it cannot be had.
  std::optional<Snapshot> snapshot(std::string& why) const;
  /// Waits until something has changed since that snapshot, or until then.
  void awaitChange(const Snapshot& since, Clock::time_point until) const;
  /// When a device's lease was seen as it is now.
  Leaseholder::Sighting sightingOf(const std::string& device) const;

 private:
  struct Presence {
    Device device;
    Clock::time_point seen;
    std::chrono::system_clock::time_point written;  // by the servers' clock
  };
  struct LeaseSeen {
    Lease lease;
    Leaseholder::Sighting sighting;
  };

  void begin();
  void take(const BucketEntry& entry);
  void finish();

  mutable std::mutex mMutex;
  mutable std::condition_variable mChanged;
  std::uint64_t mChange = 0;
  bool mIsUpToDate = false;
  std::string mWhy = "no answer";
  std::map<std::string, Presence> mDevices;
  std::map<std::string, LeaseSeen> mLeases;

  Follower mFollower;  // last: it ends first
};

}  // namespace kel::fleet
