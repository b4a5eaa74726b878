/* SPDX-License-Identifier: MIT */
// The devices of a site: which there are and how they are, for the pages that look, and those that this console
// reserves.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Journal.h"
#include "Json.h"
#include "kel/fleet_site.hpp"

namespace kel::console {

/// While somebody looks, the site is asked once a second, and what has changed goes to the journal:
///
///   {"kind": "site", "site": {"state", "reason"}}
///   {"kind": "device", "device": {"name", "model", "tags", "host", "version", "state", "inFlight", "queued", "tasks",
///                                 "holder", "heldSince", "waiting", "isMine"}}
///   {"kind": "withdrawn", "name"}
///
/// Every function may be called by any thread.
class Fleet {
 public:
  Fleet(fleet::Site site, std::string uri);
  ~Fleet();

  /// The site is watched as long as one of these is kept.
  std::shared_ptr<void> look();

  const std::string& uri() const { return mUri; }
  std::string uriOf(const std::string& device) const { return mSite.uriOf(device); }
  /// {"uri", "site", "devices"}
  Json json() const;

  /// Reserves a device until release(), or the end of this.
  Result<void> reserve(const std::string& device);
  /// False if it was not reserved here.
  bool release(const std::string& device);
  /// The id of the reservation of this console; empty if it has none.
  std::string holderOf(const std::string& device) const;

  Journal journal;

 private:
  void watch();
  void take(const Result<std::vector<fleet::Device>>& devices);  // under mMutex
  void setSite(const char* state, const std::string& reason);    // under mMutex
  bool isMine(const std::string& device) const;                  // under mMutex
  void lookAgain();

  const fleet::Site mSite;
  const std::string mUri;

  mutable std::mutex mMutex;
  std::condition_variable mChanged;
  // Guarded by mMutex, under which the site is not called.
  Json mState;
  std::map<std::string, Json> mDevices;
  std::map<std::string, fleet::Reservation> mReservations;
  std::size_t mLooking = 0;
  bool mIsStale = false;
  bool mIsEnding = false;

  std::thread mWatcher;
};

}  // namespace kel::console
