// SPDX-License-Identifier: MIT
// Loading, counting and freeing the pipe library.
#include "adapter/DorvInstances.h"
#include "platform/platform.h"

namespace kel {
namespace {

constexpr const char* kLoad = "WRAPPER_COMMON_LoadSluiceHub";

platform::CriticalSection gSluiceHubLock;
std::atomic<platform::Module> gSluiceHubModule{nullptr};
std::atomic<GetSluiceHubVersion> gGetVersion{nullptr};  ///< never cleared
std::atomic<std::uint32_t> gSluiceHubRefCount{0};

/// Without a destructor: the pipe library's threads may still log while the process ends.
union KeptLogger {
  constexpr KeptLogger() : logger() {}
  ~KeptLogger() {}
  ALogger logger;
};
constinit KeptLogger gKeptLogger;

}  // namespace

std::atomic<GetServiceDispatcherFunctions> gGetServiceDispatcherFunctions{nullptr};
ALogger& gDorvLogger = gKeptLogger.logger;

void CreateSluiceHubLock() { gSluiceHubLock.init(); }
void DeleteSluiceHubLock() { gSluiceHubLock.destroy(); }

bool WRAPPER_COMMON_LoadSluiceHub() NO_THREAD_SAFETY_ANALYSIS {
  gSluiceHubLock.enter();
  // No failure below takes the count back: a later call then finds it above 1 and takes the load for done.
  if (++gSluiceHubRefCount > 1) {
    gSluiceHubLock.leave();
    return true;
  }
  gDorvLogger.setRegistryKey(kLoggerRegistryKey);
  gDorvLogger.setFileName("DorvL5.logs");
  gDorvLogger.setModuleName("DorvL5");

  gSluiceHubModule = platform::loadLibrary("SluiceHub");
  if (gSluiceHubModule == nullptr) {
    const std::uint32_t lastErr = platform::lastError();
    ReportDorvError(kLoad, "LoadLibrary returned NULL on loading of SluiceHub.dll. (lastErr=", lastErr, ") \n");
    gSluiceHubLock.leave();
    return false;
  }
  gGetServiceDispatcherFunctions = reinterpret_cast<GetServiceDispatcherFunctions>(
      platform::findSymbol(gSluiceHubModule, "SLUICE_HUB_GetServiceDispatcherFunctions"));
  if (gGetServiceDispatcherFunctions == nullptr) {
    ReportDorvError(kLoad, "LoadLibrary returned NULL for SLUICE_HUB_GetServiceDispatcherFunctions. \n");
    gSluiceHubLock.leave();
    return false;
  }
  // A library without this function is not refused here; it counts as one of version 0.
  gGetVersion =
      reinterpret_cast<GetSluiceHubVersion>(platform::findSymbol(gSluiceHubModule, "SLUICE_HUB_GetVersion"));

  if (IsVersionValidationEnabled() == 0) {
    gSluiceHubLock.leave();
    return true;
  }
  const VersionArray appsrvVer{{4, 1, 0, 21, 0}};
  const GetSluiceHubVersion getVersion = gGetVersion;
  const VersionArray ver = getVersion != nullptr ? getVersion() : VersionArray{};
  const std::uint32_t result = ValidateVersion(L"KELHandler", ver, appsrvVer);
  if (result > 1) return false;  // this thread keeps the lock, so that no other one loads the library
  gSluiceHubLock.leave();
  return true;
}

void WRAPPER_COMMON_UnloadSluiceHub() {
  if (--gSluiceHubRefCount != 0) return;
  platform::freeLibrary(gSluiceHubModule);
  gSluiceHubModule = nullptr;
  gGetServiceDispatcherFunctions = nullptr;
}

}  // namespace kel
