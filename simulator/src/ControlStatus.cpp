// SPDX-License-Identifier: MIT
#include "ControlStatus.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "Export.h"
#include "Hub.h"
#include "Results.h"
#include "adapter/SluiceHub.h"

namespace kel::sim {
namespace {

using Callbacks = std::vector<KEL_CtrlStatusCallback>;

struct ControlStatus {
  std::mutex mutex;
  std::condition_variable changed;  ///< the callbacks or the plan
  std::uint32_t status = 0;
  Callbacks callbacks;
  std::uint64_t params = 0;
  std::uint32_t paramsValue = 0;

  bool hasPlan = false;  ///< the scenario has been asked for it
  std::vector<PlannedControlStatus> plan;
  std::size_t next = 0;  ///< of the plan
  Clock::time_point start;
  bool isTelling = false;  ///< a thread keeps to the plan, since somebody is to be told

  Clock::time_point DueAt() const { return start + std::chrono::milliseconds(plan[next].atMs); }
  bool HasMore() const { return next != plan.size(); }

  /// Where no thread does it.
  void KeepToPlan() {
    if (isTelling) return;
    for (const auto now = Clock::now(); HasMore() && DueAt() <= now; ++next) status = plan[next].status;
  }
};

/// Never destroyed, so that a call at the end of the process still finds it.
ControlStatus& Control() {
  static auto* control = new ControlStatus;
  return *control;
}

void Tell(const Callbacks& callbacks, std::uint32_t status) {
  for (const KEL_CtrlStatusCallback callback : callbacks) {
    reinterpret_cast<SluiceHubSimCtrlStatusCallback>(callback)(status);
  }
}

/// Keeps to the plan for as long as somebody is to be told.
void TellInTime(ControlStatus& control) {
  std::unique_lock lock(control.mutex);
  while (!control.callbacks.empty() && control.HasMore()) {
    if (Clock::now() < control.DueAt()) {
      control.changed.wait_until(lock, control.DueAt());
      continue;
    }
    control.status = control.plan[control.next++].status;
    const Callbacks callbacks = control.callbacks;
    const std::uint32_t status = control.status;
    // Outside of the lock, since a callback may take itself off the list.
    lock.unlock();
    Tell(callbacks, status);
    lock.lock();
  }
  control.isTelling = false;
}

/// Its lock, with the scenario's plan begun.
std::unique_lock<std::mutex> Planned(ControlStatus& control) {
  std::unique_lock lock(control.mutex);
  if (control.hasPlan) return lock;
  lock.unlock();
  std::vector<PlannedControlStatus> plan;
  {
    Hub& hub = TheHub();
    const std::lock_guard hubLock(hub.mutex);
    if (const Scenario* const scenario = hub.scenario.Good()) plan = scenario->controlStatus;
  }
  lock.lock();
  if (!control.hasPlan) {
    control.hasPlan = true;
    control.start = Clock::now();
    control.plan = std::move(plan);
  }
  return lock;
}

}  // namespace

void HaltControlStatus() {
  ControlStatus& control = Control();
  // Not for ever: in a copy of the process the lock, or the thread, may be that of one that is not there.
  for (int attempt = 0; attempt < 100; ++attempt) {
    if (const std::unique_lock lock(control.mutex, std::try_to_lock); lock.owns_lock()) {
      control.callbacks.clear();
      control.changed.notify_all();
      if (!control.isTelling) return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void ResetControlStatus() {
  ControlStatus& control = Control();
  const std::lock_guard lock(control.mutex);
  control.status = 0;
  control.callbacks.clear();
  control.params = 0;
  control.paramsValue = 0;
  control.hasPlan = false;
  control.plan.clear();
  control.next = 0;
  control.changed.notify_all();
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
  try {
    const auto lock = Planned(control);
    control.KeepToPlan();
    if (!control.isTelling && control.HasMore()) {
      // It looks at the callbacks when it gets the lock.
      std::thread([&control] { TellInTime(control); }).detach();
      control.isTelling = true;
    }
    auto& callbacks = control.callbacks;
    if (std::find(callbacks.begin(), callbacks.end(), callback) == callbacks.end()) callbacks.push_back(callback);
    return 0;
  } catch (const std::exception&) {  // no memory, or no thread
    return SLUICEHUBSIM_STATUS_NO_RESOURCES;
  }
}

SLUICE_HUB_EXPORT std::uint32_t SLUICE_HUB_UnregisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback callback) {
  if (const auto forced = EnterFunction(SLUICEHUBSIM_UNREGISTER_CTRL_STATUS)) return *forced;
  auto& control = Control();
  const std::lock_guard lock(control.mutex);
  const bool isFound = std::erase(control.callbacks, callback) != 0;
  control.changed.notify_all();
  return isFound ? 0 : SLUICEHUBSIM_STATUS_BAD_ARGUMENT;
}

SLUICE_HUB_EXPORT std::uint32_t SLUICE_HUB_GetCtrlStatus(void) {
  if (const auto forced = EnterFunction(SLUICEHUBSIM_GET_CTRL_STATUS)) return *forced;
  auto& control = Control();
  const auto lock = Planned(control);
  control.KeepToPlan();
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
  kel::sim::Callbacks callbacks;
  {
    const std::lock_guard lock(control.mutex);
    control.KeepToPlan();
    control.status = status;
    callbacks = control.callbacks;
  }
  // Outside of the lock, since a callback may take itself off the list.
  if (!callbacks.empty()) std::thread([&] { kel::sim::Tell(callbacks, status); }).join();
}

SLUICE_HUB_EXPORT void SluiceHubSim_GetConnParams(uint64_t* params, uint32_t* value) {
  auto& control = Control();
  const std::lock_guard lock(control.mutex);
  if (params != nullptr) *params = control.params;
  if (value != nullptr) *value = control.paramsValue;
}

}  // extern "C"
