// SPDX-License-Identifier: MIT
#include "directory/SiteView.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "protocol/Subjects.h"

namespace kel::fleet {

namespace {

using Json = nlohmann::json;

/// How long the bucket is waited for.
constexpr std::chrono::seconds kSnapshotTime{3};

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

/// The rest of a key behind its head, if it has that head.
std::optional<std::string> behind(const std::string& key, const std::string& head) {
  if (key.compare(0, head.size(), head) != 0) return std::nullopt;
  return key.substr(head.size());
}

}  // namespace

SiteView::SiteView(Connection& connection, const std::string& site)
    : mFollower(connection, bucketOf(site), ">", std::nullopt,
                {[this] { begin(); }, [this](const BucketEntry& entry) { take(entry); }, [this] { finish(); },
                 [this](const std::string& why) {
                   const std::lock_guard<std::mutex> lock(mMutex);
                   mWhy = why;
                   mIsUpToDate = false;
                 }}) {}

void SiteView::begin() {
  const std::lock_guard<std::mutex> lock(mMutex);
  mIsUpToDate = false;
  mDevices.clear();
  mLeases.clear();
}

void SiteView::take(const BucketEntry& entry) {
  const std::lock_guard<std::mutex> lock(mMutex);
  const Clock::time_point now = Clock::now();
  if (const std::optional<std::string> name = behind(entry.key, presenceKey(""))) {
    if (entry.value.empty()) {
      mDevices.erase(*name);
    } else {
      mDevices[*name] = {deviceOf(*name, entry.value), now, entry.created};
    }
  } else if (const std::optional<std::string> leased = behind(entry.key, leaseKey(""))) {
    mLeases[*leased] = {Lease::read(entry.value), {entry.revision, now}};
  }
  ++mChange;
  mChanged.notify_all();
}

void SiteView::finish() {
  const std::lock_guard<std::mutex> lock(mMutex);
  std::chrono::system_clock::time_point newest{};
  for (const auto& [name, one] : mDevices) newest = std::max(newest, one.written);
  for (auto& [name, one] : mDevices) one.seen -= newest - one.written;
  mIsUpToDate = true;
  ++mChange;
  mChanged.notify_all();
}

std::optional<SiteView::Snapshot> SiteView::snapshot(std::string& why) const {
  std::unique_lock<std::mutex> lock(mMutex);
  if (!mChanged.wait_for(lock, kSnapshotTime, [this] { return mIsUpToDate; })) {
    why = mWhy;
    return std::nullopt;
  }
  const Clock::time_point now = Clock::now();
  Snapshot snapshot;
  snapshot.change = mChange;
  for (const auto& [name, one] : mDevices) {
    Device device = one.device;
    if (now - one.seen > kPresenceLasts) device.state = "gone";
    if (const auto place = mLeases.find(name); place != mLeases.end()) {
      const Lease& lease = place->second.lease;
      device.waiting = lease.line.size();
      const Clock::time_point end = place->second.sighting.when + lease.timeToLive;
      if (lease.holder && now <= end) {
        device.holder = lease.holder->name;
        device.heldSince = lease.holder->since;
        snapshot.nextEnd = std::min(snapshot.nextEnd.value_or(end), end);
      }
    }
    snapshot.devices.push_back(std::move(device));
  }
  return snapshot;
}

void SiteView::awaitChange(const Snapshot& since, Clock::time_point until) const {
  std::unique_lock<std::mutex> lock(mMutex);
  mChanged.wait_until(lock, until, [&] { return mChange != since.change; });
}

Leaseholder::Sighting SiteView::sightingOf(const std::string& device) const {
  const std::lock_guard<std::mutex> lock(mMutex);
  const auto place = mLeases.find(device);
  return place == mLeases.end() ? Leaseholder::Sighting{} : place->second.sighting;
}

}  // namespace kel::fleet
