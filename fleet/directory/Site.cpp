// SPDX-License-Identifier: MIT
// Devices of a site, and reservations of them.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>
#include <utility>

#include "directory/Bucket.h"
#include "directory/KeptBroadcasts.h"
#include "directory/Leaseholder.h"
#include "directory/SiteView.h"
#include "kel/fleet.hpp"
#include "kel/fleet_site.hpp"
#include "nats/Nats.h"
#include "protocol/Subjects.h"
#include "protocol/Wire.h"

namespace kel::fleet {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

constexpr milliseconds kShortestTimeToLive{1000};

Error unreachable(std::string why) { return {Cause::notConnected, 0, std::move(why)}; }

std::string randomId() {
  std::random_device random;
  std::string id;
  for (int i = 0; i < 4; ++i) id += std::to_string(random()) + "-";
  id.pop_back();
  return id;
}

std::string ownName() {
  const char* const user = std::getenv("USER");
  return user != nullptr ? user : "somebody";
}

bool hasTags(const Device& device, const std::map<std::string, std::string>& tags) {
  return std::all_of(tags.begin(), tags.end(), [&](const auto& tag) {
    const auto place = device.tags.find(tag.first);
    return place != device.tags.end() && place->second == tag.second;
  });
}

}  // namespace

struct Site::Inside {
  std::vector<std::string> servers;
  std::string name;
  std::unique_ptr<Connection> connection;
  std::unique_ptr<SiteView> view;

  Result<SiteView::Snapshot> look() const {
    if (!connection->isConnected()) return unreachable("no server of site " + name + " can be reached");
    std::string why;
    std::optional<SiteView::Snapshot> snapshot = view->snapshot(why);
    if (!snapshot) return unreachable("the bucket of site " + name + ": " + why);
    return std::move(*snapshot);
  }

  Result<Bucket> bucket() const {
    std::string why;
    std::optional<Bucket> bucket = Bucket::open(*connection, bucketOf(name), std::nullopt, why);
    if (!bucket) return unreachable("the bucket of site " + name + ": " + why);
    return std::move(*bucket);
  }
};

// ---- Reservations ----

struct Reservation::Inside {
  std::shared_ptr<Site::Inside> site;
  std::string device;
  Party self;
  Bucket bucket;
  Leaseholder holder;
  milliseconds timeToLive;
  std::function<void()> onLost;

  std::mutex mutex;
  std::condition_variable changed;
  bool isStopping = false;
  std::atomic<bool> isHeld{true};
  std::thread thread;

  Inside(std::shared_ptr<Site::Inside> site_, std::string device_, Party self_, Bucket bucket_, milliseconds time,
         std::function<void()> lost)
      : site(std::move(site_)),
        device(std::move(device_)),
        self(std::move(self_)),
        bucket(std::move(bucket_)),
        holder(bucket, leaseKey(device), self, time),
        timeToLive(time),
        onLost(std::move(lost)) {}

  ~Inside() { release(); }

  void renew() {
    steady_clock::time_point until = steady_clock::now() + timeToLive;
    std::unique_lock<std::mutex> lock(mutex);
    while (!changed.wait_for(lock, timeToLive / 3, [this] { return isStopping; })) {
      lock.unlock();
      // The time counts from before the write, so that others never count shorter.
      const steady_clock::time_point begin = steady_clock::now();
      const Leaseholder::Outcome outcome = holder.renew();
      if (outcome == Leaseholder::Outcome::held) until = begin + timeToLive;
      if (outcome == Leaseholder::Outcome::taken || steady_clock::now() >= until) {
        isHeld.store(false);
        if (onLost) onLost();
        return;
      }
      lock.lock();
    }
  }

  void release() {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      isStopping = true;
    }
    changed.notify_all();
    if (thread.joinable()) thread.join();
    if (isHeld.exchange(false)) holder.giveBack();
  }
};

Reservation::Reservation(std::unique_ptr<Inside> inside) : mInside(std::move(inside)) {}
Reservation::Reservation(Reservation&&) noexcept = default;
Reservation& Reservation::operator=(Reservation&&) noexcept = default;
Reservation::~Reservation() = default;
const std::string& Reservation::device() const { return mInside->device; }
const std::string& Reservation::id() const { return mInside->self.id; }
bool Reservation::isHeld() const { return mInside->isHeld.load(); }
void Reservation::release() { mInside->release(); }

// ---- Sites ----

Site::Site(std::shared_ptr<Inside> inside) : mInside(std::move(inside)) {}
Site::Site(Site&&) noexcept = default;
Site& Site::operator=(Site&&) noexcept = default;
Site::~Site() = default;

Result<Site> Site::open(const std::string& uri, Access access) {
  // A site's URI is a device's without the device.
  const Result<Address> address = addressOf(uri + "/any");
  if (!address) return address.error();
  auto inside = std::make_shared<Inside>();
  inside->servers = address->servers;
  inside->name = address->site;
  access.servers.insert(access.servers.begin(), address->servers.begin(), address->servers.end());
  ConnectionOptions options;
  options.name = "kel site " + inside->name;
  options.reconnects = true;
  std::string why;
  inside->connection = Connection::open(access, std::move(options), why);
  if (!inside->connection) return unreachable(std::move(why));
  inside->view = std::make_unique<SiteView>(*inside->connection, inside->name);
  return Site(std::move(inside));
}

std::string Site::uriOf(const std::string& device) const {
  std::string hosts;
  for (const std::string& server : mInside->servers) hosts += (hosts.empty() ? "" : ",") + server;
  return "nats://" + hosts + "/" + mInside->name + "/" + device;
}

Result<std::vector<Device>> Site::devices() const {
  Result<SiteView::Snapshot> snapshot = mInside->look();
  if (!snapshot) return snapshot.error();
  return std::move(snapshot->devices);
}

Result<std::vector<KeptBroadcast>> Site::keptBroadcasts(const std::string& device, milliseconds ago) const {
  if (!isName(device)) return unreachable(device + " is no name of a device");
  std::vector<KeptBroadcast> kept;
  std::string why;
  const auto take = [&](natsMsg& message, system_clock::time_point time) {
    kept.push_back({{readPayload(message), header(message, headers::kTask).value_or("UNKNOWN_TASK")},
                    time,
                    numberIn(message, headers::kNumber).value_or(0)});
  };
  if (!readBroadcasts(*mInside->connection, {mInside->name, device}, system_clock::now() - ago, take, why)) {
    return unreachable("the broadcasts of " + device + ": " + why);
  }
  return kept;
}

Result<Reservation> Site::reserve(const ReserveOptions& options) const {
  const steady_clock::time_point deadline = steady_clock::now() + options.wait;
  Party self;
  self.id = randomId();
  self.name = options.holder.empty() ? ownName() : options.holder;
  const milliseconds timeToLive = std::max(options.timeToLive, kShortestTimeToLive);

  const auto reserveOne = [&](const std::string& device, steady_clock::time_point until) -> Result<Reservation> {
    Result<Bucket> bucket = mInside->bucket();
    if (!bucket) return bucket.error();
    self.since = std::chrono::duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    auto inside =
        std::make_unique<Reservation::Inside>(mInside, device, self, std::move(*bucket), timeToLive, options.onLost);
    inside->isHeld.store(false);
    switch (inside->holder.get(until, mInside->view->sightingOf(device))) {
      case Leaseholder::Outcome::taken:
        return Error{Cause::reserved, 0, inside->holder.holder()};
      case Leaseholder::Outcome::unreachable:
        return unreachable("the bucket of site " + mInside->name + " cannot be written");
      case Leaseholder::Outcome::held:
        break;
    }
    inside->isHeld.store(true);
    inside->thread = std::thread([raw = inside.get()] { raw->renew(); });
    // From its keld's answer on nobody else's tasks are taken. Without a keld there is nobody to take them.
    const MessagePtr told = makeMessage(Subjects({mInside->name, device}).lease(), {}, {});
    setHeader(*told, headers::kRevision, std::to_string(inside->holder.revision()));
    natsStatus status = NATS_OK;
    mInside->connection->request(*told, seconds(2), status);
    return Reservation(std::move(inside));
  };

  if (!options.device.empty()) {
    if (!isName(options.device)) return unreachable(options.device + " is no name of a device");
    return reserveOne(options.device, deadline);
  }
  std::string holder;
  bool isAny = false;
  for (;;) {
    const Result<SiteView::Snapshot> snapshot = mInside->look();
    if (!snapshot) return snapshot.error();
    for (const Device& device : snapshot->devices) {
      if (device.state != "connected" || !hasTags(device, options.tags)) continue;
      isAny = true;
      holder = device.holder;
      if (!device.holder.empty()) continue;
      Result<Reservation> reservation = reserveOne(device.name, steady_clock::now());
      if (reservation || reservation.cause() != Cause::reserved) return reservation;
    }
    if (steady_clock::now() >= deadline) break;
    // All are taken, until one is given back or runs out.
    mInside->view->awaitChange(*snapshot, std::min(deadline, snapshot->nextEnd.value_or(deadline)));
  }
  if (!isAny) return unreachable("nobody offers a device with these tags");
  return Error{Cause::reserved, 0, holder};
}

}  // namespace kel::fleet
