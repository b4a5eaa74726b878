// SPDX-License-Identifier: MIT
// Devices of a site, and reservations of them.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>
#include <utility>

#include "directory/Bucket.h"
#include "directory/Leaseholder.h"
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
using Json = nlohmann::json;

constexpr milliseconds kShortestTimeToLive{1000};
/// How long a snapshot of the bucket may take.
constexpr milliseconds kSnapshotTime{3000};

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

template <class T>
T get(const Json& json, const char* key, T otherwise) {
  const auto place = json.find(key);
  if (place == json.end()) return otherwise;
  try {
    return place->get<T>();
  } catch (const Json::exception&) {
    return otherwise;
  }
}

Device deviceOf(const std::string& name, const std::string& text) {
  Device device;
  device.name = name;
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object()) return device;
  device.model = get<std::string>(json, "model", "");
  device.tags = get<std::map<std::string, std::string>>(json, "tags", {});
  device.tags["model"] = device.model;
  device.host = get<std::string>(json, "host", "");
  device.version = get<std::string>(json, "version", "");
  device.protocol = get<std::uint32_t>(json, "protocol", 0);
  device.state = get<std::string>(json, "state", "");
  device.inFlight = get<std::uint32_t>(json, "inFlight", 0);
  device.queued = get<std::uint32_t>(json, "queued", 0);
  device.tasks = get<std::uint64_t>(json, "tasks", 0);
  return device;
}

bool hasTags(const Device& device, const std::map<std::string, std::string>& tags) {
  return std::all_of(tags.begin(), tags.end(), [&](const auto& tag) {
    const auto place = device.tags.find(tag.first);
    return place != device.tags.end() && place->second == tag.second;
  });
}

/// The rest of a key behind its head, if it has that head.
std::optional<std::string> behind(const std::string& key, const std::string& head) {
  if (key.compare(0, head.size(), head) != 0) return std::nullopt;
  return key.substr(head.size());
}

}  // namespace

struct Site::Inside {
  std::vector<std::string> servers;
  std::string name;
  std::unique_ptr<Connection> connection;

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
  return Site(std::move(inside));
}

std::string Site::uriOf(const std::string& device) const {
  std::string hosts;
  for (const std::string& server : mInside->servers) hosts += (hosts.empty() ? "" : ",") + server;
  return "nats://" + hosts + "/" + mInside->name + "/" + device;
}

Result<std::vector<Device>> Site::devices() const {
  const Result<Bucket> bucket = mInside->bucket();
  if (!bucket) return bucket.error();
  std::optional<BucketWatch> watch = bucket->watch(">");
  if (!watch) return unreachable("the bucket of site " + mInside->name + " cannot be read");
  std::map<std::string, Device> devices;
  std::map<std::string, Lease> leases;
  const steady_clock::time_point until = steady_clock::now() + kSnapshotTime;
  for (;;) {
    BucketEntry entry;
    const BucketWatch::Next next = watch->next(milliseconds(500), entry);
    if (next == BucketWatch::Next::upToDate) break;
    if (next == BucketWatch::Next::failed || steady_clock::now() >= until) {
      return unreachable("the bucket of site " + mInside->name + " cannot be read");
    }
    if (next != BucketWatch::Next::entry || entry.value.empty()) continue;
    const auto age = system_clock::now() - entry.created;
    if (const std::optional<std::string> name = behind(entry.key, presenceKey(""))) {
      Device& device = devices[*name] = deviceOf(*name, entry.value);
      if (age > kPresenceLasts) device.state = "gone";
    } else if (const std::optional<std::string> leased = behind(entry.key, leaseKey(""))) {
      Lease lease = Lease::read(entry.value);
      if (age > lease.timeToLive) lease.holder.reset();
      leases[*leased] = std::move(lease);
    }
  }
  std::vector<Device> all;
  for (auto& [name, device] : devices) {
    const Lease& lease = leases[name];
    if (lease.holder) device.holder = lease.holder->name;
    if (lease.holder) device.heldSince = lease.holder->since;
    device.waiting = lease.line.size();
    all.push_back(std::move(device));
  }
  return all;
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
    switch (inside->holder.get(until)) {
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
  do {
    const Result<std::vector<Device>> all = devices();
    if (!all) return all.error();
    for (const Device& device : *all) {
      if (device.state != "connected" || !hasTags(device, options.tags)) continue;
      isAny = true;
      holder = device.holder;
      if (!device.holder.empty()) continue;
      Result<Reservation> reservation = reserveOne(device.name, steady_clock::now());
      if (reservation || reservation.cause() != Cause::reserved) return reservation;
    }
    if (steady_clock::now() >= deadline) break;
    // All are taken. One that is given back, or runs out, is seen at the next look.
    std::this_thread::sleep_for(std::min<steady_clock::duration>(milliseconds(200), deadline - steady_clock::now()));
  } while (true);
  if (!isAny) return unreachable("nobody offers a device with these tags");
  return Error{Cause::reserved, 0, holder};
}

}  // namespace kel::fleet
