/* SPDX-License-Identifier: MIT */
// The devices that the console shows: the one that it was started for, or those of a site that pages have opened.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "Console.h"
#include "Fleet.h"

namespace kel::console {

/// Of a site so many devices are open at once. One that no request is about gives way to the next.
inline constexpr std::size_t kMostDevices = 32;

/// Every function may be called by any thread.
class Consoles {
 public:
  /// Shows the device of the settings.
  explicit Consoles(Device::Settings settings) : mSettings(std::move(settings)) {}
  /// Shows a site. The settings hold for each device, whose URI is put in.
  Consoles(Device::Settings settings, fleet::Site site, const std::string& uri);
  ~Consoles() { end(); }

  /// A device by its name in the site, which is connected to if it is the first time; a device without a site has the
  /// name "". Errors: their subjects tell why not.
  Result<std::shared_ptr<Console>> find(const std::string& name);

  /// Null without a site.
  Fleet* site() const { return mFleet.get(); }
  /// As the site does. What the console sends to the device from then on is sent under the reservation.
  Result<void> reserve(const std::string& name);
  bool release(const std::string& name);

  /// Closes all links and ends all that waits for events, for good.
  void end();

 private:
  struct Opened {
    std::shared_ptr<Console> console;
    std::uint64_t lastUse = 0;
  };

  std::shared_ptr<Console> giveWay();  // under mMutex
  void tellHolder(const std::string& name);

  const Device::Settings mSettings;
  const std::unique_ptr<Fleet> mFleet;

  std::mutex mMutex;
  // Guarded by mMutex.
  std::map<std::string, Opened> mOpened;
  std::uint64_t mUses = 0;
  bool mHasEnded = false;
};

}  // namespace kel::console
