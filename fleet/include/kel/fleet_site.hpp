// SPDX-License-Identifier: MIT
/**
 * @file
 * A site as a whole: which devices there are, and reservations of them.
 *
 *     kel::fleet::Site site = kel::fleet::Site::open("nats://server1,server2/lab").value();
 *     for (const kel::fleet::Device& device : site.devices().value()) std::cout << device.name << '\n';
 *
 *     kel::fleet::ReserveOptions options;
 *     options.tags = {{"model", "x"}};
 *     kel::fleet::Reservation mine = site.reserve(options).value();
 *     kel::Client device = kel::fleet::connect(site.uriOf(mine.device()), {}, {access, mine.id()}).value();
 *
 * A reservation guards against mistakes among those who may use a device: who may at all is for the servers'
 * permissions.
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kel/fleet_access.hpp"
#include "kel/payload.hpp"
#include "kel/result.hpp"

namespace kel::fleet {

/** Without a word of it for so long a device counts as gone. It says one every five seconds. */
inline constexpr std::chrono::seconds kPresenceLasts{15};

/** A device as its keld tells of it. */
struct Device {
  std::string name;
  std::string model;
  std::map<std::string, std::string> tags;
  std::string host;
  std::string version;  ///< Of its keld.
  std::uint32_t protocol = 0;
  std::string state;  ///< Of its link: "connected", "lost", "connecting"; "gone" if its keld is.
  std::uint32_t inFlight = 0;
  std::uint32_t queued = 0;
  std::uint64_t tasks = 0;
  std::string holder;          ///< Whom it is reserved for; empty for nobody.
  std::int64_t heldSince = 0;  ///< Milliseconds since 1970, by the holder's clock.
  std::size_t waiting = 0;     ///< How many wait for it.
};

/** A broadcast that was kept; see Site::keptBroadcasts. */
struct KeptBroadcast : Broadcast {
  std::chrono::system_clock::time_point time;  ///< When it came, by the servers' clock.
  std::uint64_t number = 0;                    ///< The running number of its keld. A gap is a loss.
};

struct ReserveOptions {
  std::string device;  ///< Empty: any that has these tags, "model" among them.
  std::map<std::string, std::string> tags;
  std::string holder;                           ///< For people: who it is. Empty: the user's name.
  std::chrono::milliseconds timeToLive{15000};  ///< The reservation outlives a holder that died by this. 1 s at least.
  std::chrono::milliseconds wait{0};            ///< How long to wait for it in the device's line.
  /** Called once, on a thread of the reservation's own, if it could not be renewed in time or was taken. */
  std::function<void()> onLost;
};

/** Holds a device, and renews that until its end. */
class Reservation {
 public:
  Reservation(Reservation&&) noexcept;
  Reservation& operator=(Reservation&&) noexcept;
  ~Reservation();

  const std::string& device() const;
  /** What a client's tasks are sent under; see Identity::holder. */
  const std::string& id() const;
  /** False from the moment that it may be somebody else's. */
  bool isHeld() const;
  /** Gives the device to the next in line. May be called again. */
  void release();

 private:
  friend class Site;
  struct Inside;
  explicit Reservation(std::unique_ptr<Inside> inside);
  std::unique_ptr<Inside> mInside;
};

/** A connection to a site. Any thread. Reservations outlive it. */
class Site {
 public:
  /** "nats://HOST[:PORT][,HOST...]/SITE". Errors: notConnected, with the reason as the subject. */
  static Result<Site> open(const std::string& uri, Access access = {});
  Site(Site&&) noexcept;
  Site& operator=(Site&&) noexcept;
  ~Site();

  /** Those that there are, and those that are gone. Errors: notConnected if JetStream cannot be asked. */
  Result<std::vector<Device>> devices() const;

  /**
   * Reserves a device. Errors: reserved, with the holder's name as the subject, if it is somebody else's until the wait
   * is over; notConnected if JetStream cannot be asked or nobody offers such a device.
   */
  Result<Reservation> reserve(const ReserveOptions& options) const;

  /**
   * The broadcasts of a device since some time ago, the oldest first, where its keld was started to have them kept.
   * Errors: notConnected, with the reason as the subject, if they are not kept or JetStream cannot be asked.
   */
  Result<std::vector<KeptBroadcast>> keptBroadcasts(const std::string& device, std::chrono::milliseconds ago) const;

  std::string uriOf(const std::string& device) const;

 private:
  friend class Reservation;
  struct Inside;
  explicit Site(std::shared_ptr<Inside> inside);
  std::shared_ptr<Inside> mInside;
};

}  // namespace kel::fleet
