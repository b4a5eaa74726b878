// SPDX-License-Identifier: MIT
#include "Consoles.h"

#include <algorithm>
#include <utility>

#include "kel/fleet.hpp"

namespace kel::console {
namespace {

Error notOpened(std::string why) { return {Cause::notConnected, 0, std::move(why)}; }

}  // namespace

Consoles::Consoles(Device::Settings settings, fleet::Site site, const std::string& uri)
    : mSettings(std::move(settings)), mFleet(std::make_unique<Fleet>(std::move(site), uri)) {}

Result<std::shared_ptr<Console>> Consoles::find(const std::string& name) {
  std::shared_ptr<Console> old;  // its link is closed once the lock is given back
  const std::lock_guard lock(mMutex);
  const auto place = mOpened.find(name);
  if (place != mOpened.end()) {
    place->second.lastUse = ++mUses;
    return place->second.console;
  }
  if (!mFleet && !name.empty()) return notOpened("this console shows one device only, which goes without a name");
  if (mFleet && name.empty()) return notOpened("the request names no device of the site");
  if (mHasEnded) return notOpened("the console ends");
  Device::Settings settings = mSettings;
  if (mFleet) settings.uri = mFleet->uriOf(name);
  if (const auto address = fleet::addressOf(settings.uri); !address) return address.error();
  if (mOpened.size() >= kMostDevices && !(old = giveWay())) return notOpened("too many devices are open");
  auto console = std::make_shared<Console>(std::move(settings));
  if (mFleet) console->device.setHolder(mFleet->holderOf(name));
  console->device.connect();
  mOpened[name] = {console, ++mUses};
  return console;
}

std::shared_ptr<Console> Consoles::giveWay() {
  auto oldest = mOpened.end();
  for (auto place = mOpened.begin(); place != mOpened.end(); ++place) {
    const bool isUsed = place->second.console.use_count() > 1;
    if (!isUsed && (oldest == mOpened.end() || place->second.lastUse < oldest->second.lastUse)) oldest = place;
  }
  if (oldest == mOpened.end()) return nullptr;
  return std::move(mOpened.extract(oldest).mapped().console);
}

Result<void> Consoles::reserve(const std::string& name) {
  const auto reserved = mFleet->reserve(name);
  if (reserved) tellHolder(name);
  return reserved;
}

bool Consoles::release(const std::string& name) {
  const bool wasReserved = mFleet->release(name);
  if (wasReserved) tellHolder(name);
  return wasReserved;
}

void Consoles::tellHolder(const std::string& name) {
  std::shared_ptr<Console> console;
  {
    const std::lock_guard lock(mMutex);
    const auto place = mOpened.find(name);
    if (place == mOpened.end()) return;
    console = place->second.console;
  }
  console->device.setHolder(mFleet->holderOf(name));
}

void Consoles::end() {
  std::map<std::string, Opened> opened;
  {
    const std::lock_guard lock(mMutex);
    mHasEnded = true;
    opened = mOpened;
  }
  for (const auto& [name, one] : opened) {
    one.console->device.disconnect();
    one.console->journal.close();
  }
  if (mFleet) mFleet->journal.close();
}

}  // namespace kel::console
