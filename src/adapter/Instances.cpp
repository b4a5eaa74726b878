// SPDX-License-Identifier: MIT
// Taking rows and giving them back.
#include "adapter/DorvInstances.h"
#include "adapter/L5Records.h"

namespace kel {

DorvInstance gDorvInstances[kDorvInstances];
std::atomic<tL5DispatcherFunctions*> gL5DispatcherFunctions{nullptr};

std::uint32_t Dorv_Init(BrelCallback brelCallback, BrelAlertsCallback brelAlertsCallback) {
  if (!WRAPPER_COMMON_LoadSluiceHub()) {
    ReportDorvError("Dorv_Init", "Failed to load SluiceHub.dll. \n");
    return kNoDorvHandle;
  }
  LogDorv(kInfo, "Dorv_Init", "Loaded SluiceHub.dll, getting dispatcher functions. \n");
  if (gL5DispatcherFunctions == nullptr) {
    // After a load that failed and was counted all the same, there is no function to ask.
    const GetServiceDispatcherFunctions getFunctions = gGetServiceDispatcherFunctions;
    gL5DispatcherFunctions = getFunctions != nullptr ? getFunctions() : nullptr;
    if (gL5DispatcherFunctions == nullptr) {
      ReportDorvError("Dorv_Init", "Got NULL pointer for tL5DispatcherFunctions. \n");
      return kNoDorvHandle;
    }
  }
  LogDorv(kInfo, "Dorv_Init", "Got dispatcher functions. \n");

  std::uint32_t handle = 0;
  while (handle < kDorvInstances && Load(gDorvInstances[handle].inUse) != 0) ++handle;
  if (handle == kDorvInstances) return kNoDorvHandle;  // not met: there are never more than 15 engines
  DorvInstance& row = gDorvInstances[handle];
  Store(row.handle, handle);
  Store(row.inUse, 1u);
  Store(row.L5Connection, std::uint64_t{0});
  Store(row.socketID, kNoSocket);
  Store(row.disconnecting, 0u);
  Store(row.brelCallback, brelCallback);
  Store(row.brelAlertsCallback, brelAlertsCallback);
  LogRow(kInfo, handle, "Dorv_Init", "Success. \n");
  return handle;
}

std::uint32_t Dorv_Finalize(std::uint32_t handle) {
  LogRow(kInfo, handle, "Dorv_Finalize", "Start. \n");
  if (gL5DispatcherFunctions == nullptr) return DORV_FAILED;
  DorvInstance& row = gDorvInstances[handle];
  // First of all, so that nothing reaches the engine from here on.
  Store<BrelCallback>(row.brelCallback, nullptr);
  Store<BrelAlertsCallback>(row.brelAlertsCallback, nullptr);
  if (Load(row.L5Connection) != 0) {
    LogRow(kInfo, handle, "Dorv_Finalize", "Calling Dorv_Disconnect...\n");
    if (Dorv_Disconnect(handle) != DORV_OK) return DORV_FAILED;
  }
  LogRow(kInfo, handle, "Dorv_Finalize", "Calling WRAPPER_COMMON_UnloadSluiceHub...\n");
  WRAPPER_COMMON_UnloadSluiceHub();
  Store(row.inUse, 0u);
  LogRow(kInfo, handle, "Dorv_Finalize", "Success. \n");
  return DORV_OK;
}

std::uint64_t Dorv_GetL5Connection(std::uint32_t handle) { return Load(gDorvInstances[handle].L5Connection); }

}  // namespace kel
