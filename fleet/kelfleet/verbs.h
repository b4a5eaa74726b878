/* SPDX-License-Identifier: MIT */
// What kelfleet does with a site. Each verb writes to standard output, and to standard error what goes wrong, and
// returns the exit status.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "kel/fleet_site.hpp"

namespace kel::fleet {

// As kelctl's.
inline constexpr int kDone = 0;
inline constexpr int kWrongUsage = 2;
inline constexpr int kNotReached = 4;  ///< No servers, no site, or no such device.
inline constexpr int kReserved = 6;    ///< Reserved by somebody else.

using Tags = std::map<std::string, std::string>;

struct SiteOptions {
  std::string uri;
  bool json = false;  ///< One object a line.
};

/// Lists the devices that have these tags, "model" among them.
int listDevices(const SiteOptions& options, const Tags& tags);

/// Lists the broadcasts of a device that were kept, since so long ago.
int listBroadcasts(const SiteOptions& options, const std::string& device, std::chrono::milliseconds ago);

/// Reserves a device and runs a command with it: KELHANDLER_DEVICE and KELHANDLER_RESERVATION in its environment are
/// the device's URI and the reservation. Releases it when the command has ended, and returns its status; a command
/// whose reservation is lost gets SIGTERM.
int reserve(const SiteOptions& options, ReserveOptions which, std::vector<std::string> command);

/// Connects, as the configuration of this user says.
Result<Site> openSite(const SiteOptions& options);

/// Says why something failed, and returns the exit status for that.
int tell(const Error& error);

}  // namespace kel::fleet
