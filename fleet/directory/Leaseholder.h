/* SPDX-License-Identifier: MIT */
// Getting, keeping and giving back one lease. Each step is a compare-and-set; see Lease.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "directory/Bucket.h"
#include "directory/Lease.h"

namespace kel::fleet {

/// For one thread at a time.
class Leaseholder {
 public:
  using Clock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::milliseconds;

  enum class Outcome : std::uint8_t { held, taken, unreachable };

  Leaseholder(const Bucket& bucket, std::string key, Party self, Milliseconds timeToLive)
      : mBucket(bucket), mKey(std::move(key)), mSelf(std::move(self)), mTimeToLive(timeToLive) {}

  /// That a revision of the lease was there, and not yet another one. None: 0.
  struct Sighting {
    std::uint64_t revision = 0;
    Clock::time_point when;
  };

  /// Tries until the deadline, in the line of the device if it is not past at once. A lease that was sighted before
  /// runs out so much the sooner.
  Outcome get(Clock::time_point deadline, const Sighting& sighting);
  /// Has it held for another time to live. With `taken` it is somebody else's, with `unreachable` it may still be ours.
  Outcome renew();
  /// Hands it to the next in line. False if that could not be done: then it runs out.
  bool giveBack();

  /// With get() that says `taken`: whose it is.
  const std::string& holder() const { return mHolder; }
  /// Of our last write.
  std::uint64_t revision() const { return mRevision; }

 private:
  /// What is known of the lease.
  struct View {
    Lease lease;
    std::uint64_t revision = 0;
    Clock::time_point seen;
  };

  /// Writes the lease with ourselves as its holder.
  Swap take(View view);
  Swap joinLine(View view);
  void leaveLine();
  /// From when on the lease may be ours: handed over, free, or run out.
  Clock::time_point mineFrom(const View& view) const;
  /// Our last write's lease if nobody wrote meanwhile, else what is read.
  bool look(View& view) const;

  const Bucket& mBucket;
  const std::string mKey;
  Party mSelf;
  const Milliseconds mTimeToLive;
  std::string mHolder;
  std::uint64_t mRevision = 0;
};

}  // namespace kel::fleet
