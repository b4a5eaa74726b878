// SPDX-License-Identifier: MIT
#include "Fleet.h"

#include <chrono>
#include <iterator>
#include <utility>

namespace kel::console {
namespace {

constexpr std::chrono::seconds kBetweenLooks{1};

Json presenceOf(const fleet::Device& device, bool isMine) {
  return {{"name", device.name},
          {"model", device.model},
          {"tags", device.tags},
          {"host", device.host},
          {"version", device.version},
          {"state", device.state},
          {"inFlight", device.inFlight},
          {"queued", device.queued},
          {"tasks", device.tasks},
          {"holder", device.holder},
          {"heldSince", device.heldSince},
          {"waiting", device.waiting},
          {"isMine", isMine}};
}

}  // namespace

Fleet::Fleet(fleet::Site site, std::string uri)
    : mSite(std::move(site)), mUri(std::move(uri)), mState({{"state", "connecting"}, {"reason", ""}}) {
  mWatcher = std::thread([this] { watch(); });
}

Fleet::~Fleet() {
  {
    const std::lock_guard lock(mMutex);
    mIsEnding = true;
  }
  mChanged.notify_all();
  mWatcher.join();
}

std::shared_ptr<void> Fleet::look() {
  {
    const std::lock_guard lock(mMutex);
    ++mLooking;
  }
  lookAgain();
  return {nullptr, [this](void*) {
            const std::lock_guard lock(mMutex);
            --mLooking;
          }};
}

Json Fleet::json() const {
  const std::lock_guard lock(mMutex);
  Json devices = Json::array();
  for (const auto& [name, device] : mDevices) devices.push_back(device);
  return {{"uri", mUri}, {"site", mState}, {"devices", devices}};
}

Result<void> Fleet::reserve(const std::string& device) {
  fleet::ReserveOptions options;
  options.device = device;
  Result<fleet::Reservation> reservation = mSite.reserve(options);
  if (!reservation) return reservation.error();
  {
    const std::lock_guard lock(mMutex);
    mReservations.insert_or_assign(device, std::move(*reservation));
  }
  lookAgain();
  return {};
}

bool Fleet::release(const std::string& device) {
  std::map<std::string, fleet::Reservation>::node_type released;
  {
    const std::lock_guard lock(mMutex);
    released = mReservations.extract(device);
  }
  if (released.empty()) return false;
  released = {};  // gives it back
  lookAgain();
  return true;
}

std::string Fleet::holderOf(const std::string& device) const {
  const std::lock_guard lock(mMutex);
  return isMine(device) ? mReservations.at(device).id() : "";
}

bool Fleet::isMine(const std::string& device) const {
  const auto reservation = mReservations.find(device);
  return reservation != mReservations.end() && reservation->second.isHeld();
}

void Fleet::lookAgain() {
  {
    const std::lock_guard lock(mMutex);
    mIsStale = true;
  }
  mChanged.notify_all();
}

void Fleet::watch() {
  std::unique_lock lock(mMutex);
  for (;;) {
    mChanged.wait(lock, [this] { return mIsEnding || mLooking != 0; });
    if (mIsEnding) return;
    mIsStale = false;
    lock.unlock();
    const auto devices = mSite.devices();
    lock.lock();
    take(devices);
    mChanged.wait_for(lock, kBetweenLooks, [this] { return mIsEnding || mIsStale; });
  }
}

void Fleet::take(const Result<std::vector<fleet::Device>>& devices) {
  if (!devices) return setSite("lost", devices.error().subject);
  std::map<std::string, Json> now;
  for (const fleet::Device& device : *devices) now.emplace(device.name, presenceOf(device, isMine(device.name)));
  for (const auto& [name, device] : now) {
    const auto before = mDevices.find(name);
    if (before != mDevices.end() && before->second == device) continue;
    journal.add(textOf({{"kind", "device"}, {"device", device}}));
  }
  for (const auto& [name, device] : mDevices) {
    if (now.count(name) == 0) journal.add(textOf({{"kind", "withdrawn"}, {"name", name}}));
  }
  mDevices = std::move(now);
  setSite("connected", "");
}

void Fleet::setSite(const char* state, const std::string& reason) {
  Json site{{"state", state}, {"reason", reason}};
  if (site == mState) return;
  mState = std::move(site);
  journal.add(textOf({{"kind", "site"}, {"site", mState}}));
}

}  // namespace kel::console
