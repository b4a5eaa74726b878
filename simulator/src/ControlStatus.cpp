// SPDX-License-Identifier: MIT
#include "ControlStatus.h"

#include <algorithm>
#include <mutex>
#include <thread>
#include <vector>

#include "Export.h"
#include "Results.h"
#include "adapter/SluiceHub.h"

namespace kel::sim {
namespace {

struct ControlStatus {
  std::mutex mutex;
  std::uint32_t status = 0;
  std::vector<KEL_CtrlStatusCallback> callbacks;
  std::uint64_t params = 0;
  std::uint32_t paramsValue = 0;
};

/// Never destroyed, so that a call at the end of the process still finds it.
ControlStatus& Control() {
  static auto* control = new ControlStatus;
  return *control;
}

}  // namespace

void ResetControlStatus() {
  ControlStatus& control = Control();
  const std::lock_guard lock(control.mutex);
  control.status = 0;
  control.callbacks.clear();
  control.params = 0;
  control.paramsValue = 0;
}

}  // namespace kel::sim

using kel::sim::Control;
using kel::sim::EnterFunction;

extern "C" {

SLUICE_HUB_EXPORT std::uint32_t SLUICE_HUB_Init(void) { return EnterFunction(SLUICEHUBSIM_INIT).value_or(0); }

SLUICE_HUB_EXPORT std::uint32_t SLUICE_HUB_Finalize(void) { return EnterFunction(SLUICEHUBSIM_FINALIZE).value_or(0); }

SLUICE_HUB_EXPORT std::uint32_t SLUICE_HUB_RegisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback callback) {
  if (const auto forced = EnterFunction(SLUICEHUBSIM_REGISTER_CTRL_STATUS)) return *forced;
  if (callback == nullptr) return SLUICEHUBSIM_STATUS_BAD_ARGUMENT;
  auto& control = Control();
  const std::lock_guard lock(control.mutex);
  auto& callbacks = control.callbacks;
  if (std::find(callbacks.begin(), callbacks.end(), callback) == callbacks.end()) callbacks.push_back(callback);
  return 0;
}

SLUICE_HUB_EXPORT std::uint32_t SLUICE_HUB_UnregisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback callback) {
  if (const auto forced = EnterFunction(SLUICEHUBSIM_UNREGISTER_CTRL_STATUS)) return *forced;
  auto& control = Control();
  const std::lock_guard lock(control.mutex);
  return std::erase(control.callbacks, callback) != 0 ? 0 : SLUICEHUBSIM_STATUS_BAD_ARGUMENT;
}

SLUICE_HUB_EXPORT std::uint32_t SLUICE_HUB_GetCtrlStatus(void) {
  if (const auto forced = EnterFunction(SLUICEHUBSIM_GET_CTRL_STATUS)) return *forced;
  auto& control = Control();
  const std::lock_guard lock(control.mutex);
  return control.status;
}

SLUICE_HUB_EXPORT std::uint32_t SLUICE_HUB_SetConnParams(std::uint64_t params, std::uint32_t value) {
  if (const auto forced = EnterFunction(SLUICEHUBSIM_SET_CONN_PARAMS)) return *forced;
  auto& control = Control();
  const std::lock_guard lock(control.mutex);
  control.params = params;
  control.paramsValue = value;
  return 0;
}

SLUICE_HUB_EXPORT void SluiceHubSim_SetCtrlStatus(uint32_t status) {
  auto& control = Control();
  std::vector<KEL_CtrlStatusCallback> callbacks;
  {
    const std::lock_guard lock(control.mutex);
    control.status = status;
    callbacks = control.callbacks;
  }
  if (callbacks.empty()) return;
  // Outside of the lock, since a callback may take itself off the list.
  std::thread([&] {
    for (const KEL_CtrlStatusCallback callback : callbacks) {
      reinterpret_cast<SluiceHubSimCtrlStatusCallback>(callback)(status);
    }
  }).join();
}

SLUICE_HUB_EXPORT void SluiceHubSim_GetConnParams(uint64_t* params, uint32_t* value) {
  auto& control = Control();
  const std::lock_guard lock(control.mutex);
  if (params != nullptr) *params = control.params;
  if (value != nullptr) *value = control.paramsValue;
}

}  // extern "C"
