// SPDX-License-Identifier: MIT
#include "Versions.h"

#include <algorithm>
#include <mutex>

#include "Export.h"
#include "Results.h"
#include "adapter/SluiceHub.h"

namespace kel::sim {
namespace {

constexpr VersionArray kOwnVersion{{4, 1, 0, 21, 0}};

std::mutex gVersionMutex;
VersionArray gVersion = kOwnVersion;

}  // namespace

void ResetVersions() { SluiceHubSim_SetVersion(kOwnVersion.number); }

}  // namespace kel::sim

extern "C" {

SLUICE_HUB_EXPORT VersionArray SLUICE_HUB_GetVersion(void) {
  using namespace kel::sim;
  EnterFunction(SLUICEHUBSIM_GET_VERSION);
  const std::lock_guard lock(gVersionMutex);
  return gVersion;
}

SLUICE_HUB_EXPORT std::uint32_t IsVersionValidationEnabled(void) {
  return kel::sim::EnterFunction(SLUICEHUBSIM_IS_VERSION_VALIDATION_ENABLED).value_or(1);
}

SLUICE_HUB_EXPORT std::uint32_t ValidateVersion(const wchar_t* /*userName*/, VersionArray ofLibrary,
                                                VersionArray ofUser) {
  if (const auto forced = kel::sim::EnterFunction(SLUICEHUBSIM_VALIDATE_VERSION)) return *forced;
  if (std::equal(std::begin(ofLibrary.number), std::end(ofLibrary.number), ofUser.number)) return 0;
  return ofLibrary.number[0] == ofUser.number[0] ? 1 : 2;
}

SLUICE_HUB_EXPORT void SluiceHubSim_SetVersion(const uint32_t numbers[5]) {
  const std::lock_guard lock(kel::sim::gVersionMutex);
  std::copy_n(numbers, 5, kel::sim::gVersion.number);
}

}  // extern "C"
