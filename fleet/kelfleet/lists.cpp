// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <nlohmann/json.hpp>

#include "kel/fleet.hpp"
#include "kelfleet/verbs.h"

namespace kel::fleet {

namespace {

using nlohmann::json;

/// JSON, also if a name from the network is no UTF-8.
void print(const json& object) { std::cout << object.dump(-1, ' ', false, json::error_handler_t::replace) << '\n'; }

/// Text from the network, without what a terminal would take for a command.
std::string plain(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; }, '?');
  return text;
}

std::string timeText(std::int64_t milliseconds) {
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[32];
  std::strftime(text, sizeof text, "%F %T", &local);
  return text;
}

bool hasAll(const Device& device, const Tags& tags) {
  return std::all_of(tags.begin(), tags.end(), [&](const auto& tag) {
    if (tag.first == "model") return device.model == tag.second;
    const auto own = device.tags.find(tag.first);
    return own != device.tags.end() && own->second == tag.second;
  });
}

json toJson(const Device& device) {
  return {{"name", device.name},      {"model", device.model},       {"tags", device.tags},
          {"host", device.host},      {"version", device.version},   {"protocol", device.protocol},
          {"state", device.state},    {"inFlight", device.inFlight}, {"queued", device.queued},
          {"tasks", device.tasks},    {"holder", device.holder},     {"heldSince", device.heldSince},
          {"waiting", device.waiting}};
}

std::string hexOf(kel::Bytes bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02x", byte);
    text += pair;
  }
  return text;
}

}  // namespace

Result<Site> openSite(const SiteOptions& options) {
  const Result<Access> access = configuredAccess();
  return access ? Site::open(options.uri, *access) : Result<Site>(access.error());
}

int tell(const Error& error) {
  std::cerr << "kelfleet: " << plain(error.text()) << '\n';
  return error.cause == Cause::reserved ? kReserved : kNotReached;
}

int listDevices(const SiteOptions& options, const Tags& tags) {
  const Result<Site> site = openSite(options);
  if (!site) return tell(site.error());
  Result<std::vector<Device>> devices = site->devices();
  if (!devices) return tell(devices.error());
  devices->erase(
      std::remove_if(devices->begin(), devices->end(), [&](const Device& one) { return !hasAll(one, tags); }),
      devices->end());
  if (!options.json && !devices->empty()) {
    std::printf("%-24s %-12s %-16s %-11s %6s %9s  %s\n", "device", "model", "host", "link", "load", "tasks", "held by");
  }
  for (const Device& device : *devices) {
    if (options.json) {
      print(toJson(device));
      continue;
    }
    std::string holder = plain(device.holder);
    if (!holder.empty()) holder += " since " + timeText(device.heldSince);
    if (device.waiting != 0) holder += ", " + std::to_string(device.waiting) + " waiting";
    std::printf("%-24s %-12s %-16s %-11s %6u %9llu  %s\n", plain(device.name).c_str(), plain(device.model).c_str(),
                plain(device.host).c_str(), plain(device.state).c_str(), device.inFlight + device.queued,
                static_cast<unsigned long long>(device.tasks), holder.c_str());
  }
  if (devices->empty()) {
    std::cerr << "kelfleet: the site has no " << (tags.empty() ? "devices" : "device with these tags")
              << ". `keld run` offers one.\n";
  }
  return kDone;
}

int listBroadcasts(const SiteOptions& options, const std::string& device, std::chrono::milliseconds ago) {
  const Result<Site> site = openSite(options);
  if (!site) return tell(site.error());
  const Result<std::vector<KeptBroadcast>> kept = site->keptBroadcasts(device, ago);
  if (!kept) return tell(kept.error());
  for (const KeptBroadcast& broadcast : *kept) {
    const std::int64_t time =
        std::chrono::duration_cast<std::chrono::milliseconds>(broadcast.time.time_since_epoch()).count();
    const std::string bytes = hexOf(broadcast.bytes());
    if (options.json) {
      print({{"time", time},
             {"number", broadcast.number},
             {"task", broadcast.task},
             {"sequenceWord", broadcast.sequenceWord()},
             {"payload", bytes}});
    } else {
      std::printf("%s.%03d  %8llu  %-32s 0x%07x  %s\n", timeText(time).c_str(), static_cast<int>(time % 1000),
                  static_cast<unsigned long long>(broadcast.number), plain(broadcast.task).c_str(),
                  broadcast.sequenceWord(), bytes.c_str());
    }
  }
  return kDone;
}

}  // namespace kel::fleet
