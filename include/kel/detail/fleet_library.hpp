// SPDX-License-Identifier: MIT
// The library that reaches devices of other hosts, loaded at need: a program that stays on this host needs nothing of
// it.
#pragma once

#ifndef _WIN32
#include <dlfcn.h>
#endif

#include <memory>
#include <string>
#include <utility>

#include "kel/detail/process_road.hpp"
#include "kel/detail/road.hpp"
#include "kel/result.hpp"
#include "kel/version.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

/// Where it lies, seen from the folder of libKELHandler, the one function that it is loaded for, and the version of
/// this interface, which changes with Road and Sink.
constexpr char kFleetLibrary[] = "kelhandler/fleet.so";
constexpr char kOpenFleetRoad[] = "KELHandler_fleet_openRoad";
constexpr int kLayerVersion =
    (KEL_CLIENT_VERSION_MAJOR * 1000 + KEL_CLIENT_VERSION_MINOR) * 1000 + KEL_CLIENT_VERSION_PATCH;

/// Does not connect. Null, with the reason, if the URI leads nowhere or the caller is of another version; without a
/// reason for a name that leads to the device of this host.
using OpenFleetRoad = Road*(int layerVersion, const std::string& uri, const std::string& holder, std::string& reason);

/// Without the URI: somebody may have put a secret into it.
inline Error notReached(std::string why) { return {Cause::notConnected, 0, std::move(why)}; }

#ifndef _WIN32
/// Null, and then dlerror() tells why. It stays loaded.
inline void* loadFleetLibrary() {
  void* const base = dlopen("libKELHandler.so.4", RTLD_NOW);
  void* const anything = base != nullptr ? dlsym(base, "KEL_GetVersion") : nullptr;
  Dl_info info{};
  if (anything == nullptr || dladdr(anything, &info) == 0) return nullptr;
  const std::string file = info.dli_fname;
  return dlopen((file.substr(0, file.rfind('/') + 1) + kFleetLibrary).c_str(), RTLD_NOW);
}
#endif

inline Result<std::unique_ptr<Road>> roadTo(const std::string& uri, const std::string& holder) {
  if (uri == "kel:") return std::unique_ptr<Road>(std::make_unique<ProcessRoad>());
#ifdef _WIN32
  (void)holder;
  return notReached("devices of other hosts are reached from Linux only");
#else
  void* const library = loadFleetLibrary();
  if (library == nullptr) {
    return notReached(std::string("devices of other hosts need the package kelhandler-fleet (") + dlerror() + ")");
  }
  const auto open = reinterpret_cast<OpenFleetRoad*>(dlsym(library, kOpenFleetRoad));
  if (open == nullptr) return notReached(std::string(kFleetLibrary) + " is of another version");
  std::string reason;
  std::unique_ptr<Road> road(open(kLayerVersion, uri, holder, reason));
  if (!road && !reason.empty()) return notReached(reason);
  if (!road) road = std::make_unique<ProcessRoad>();
  return road;
#endif
}

}  // namespace detail
}  // namespace v1
}  // namespace kel
