// SPDX-License-Identifier: MIT
// The control interface, as far as it works on the hub.
#include <algorithm>

#include "ControlStatus.h"
#include "Export.h"
#include "Hub.h"
#include "Results.h"
#include "Traces.h"
#include "Versions.h"
#include "adapter/TaskRecord.h"
#include "platform/process.h"

namespace kel::sim {
namespace {

/// Posts what `make` makes for each connection chosen and waits for it if wanted. Returns the number of connections.
template <typename Make>
std::uint32_t PostTo(std::uint64_t value, bool wait, Make make) {
  Hub& hub = TheHub();
  Completion completion;
  std::unique_lock lock(hub.mutex);
  const auto connections = hub.Select(value);
  for (const auto& connection : connections) {
    std::unique_ptr<Delivery> delivery = make(hub, *connection);
    // A delivery thread cannot wait for itself.
    if (wait && !connection->OnOwnThread()) {
      ++completion.pending;
      delivery->completion = &completion;
    }
    connection->Post(std::move(delivery));
    connection->Wake();
  }
  if (completion.pending != 0) hub.WaitUntil(lock, [&] { return completion.pending == 0; });
  return static_cast<std::uint32_t>(connections.size());
}

std::unique_ptr<Delivery> MakeEvent(Hub& hub, std::uint32_t event, std::uint32_t reason) {
  auto delivery = hub.NewDelivery(Delivery::Kind::kEvent, event);
  delivery->reason = reason;
  return delivery;
}

}  // namespace
}  // namespace kel::sim

using kel::sim::Connection;
using kel::sim::Delivery;
using kel::sim::Hub;
using kel::sim::TheHub;

extern "C" {

SLUICE_HUB_EXPORT void SluiceHubSim_Reset(void) {
  Hub& hub = TheHub();
  {
    const std::lock_guard lock(hub.mutex);
    hub.Reset();
  }
  kel::sim::ResetResults();
  kel::sim::ResetVersions();
  kel::sim::ResetControlStatus();
  kel::sim::ResetTraces();
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_SetScenario(const char* fileName) {
  kel::sim::ScenarioOfProgram scenario = kel::sim::ReadScenarioOfProgram(fileName);
  const bool isGood = scenario.reading.mistakes.empty();
  {
    const std::lock_guard lock(TheHub().mutex);
    kel::sim::SetScenario(std::move(scenario));
  }
  SluiceHubSim_Reset();
  return isGood ? 1 : 0;
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_StartCapture(const char* fileName) {
  Hub& hub = TheHub();
  const std::lock_guard lock(hub.mutex);
  hub.process = kel::platform::processNumber();
  hub.capture.StartFromEnvironment();
  if (!hub.capture.Start(fileName)) return 0;
  if (!hub.connections.empty()) hub.capture.StartWriting();
  return 1;
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_AddRule(const SluiceHubSimRule* rule) {
  Hub& hub = TheHub();
  const std::lock_guard lock(hub.mutex);
  return hub.rules.Add(*rule);
}

SLUICE_HUB_EXPORT void SluiceHubSim_ClearRules(void) {
  Hub& hub = TheHub();
  const std::lock_guard lock(hub.mutex);
  hub.rules.Clear();
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_RuleUses(uint32_t rule) {
  Hub& hub = TheHub();
  const std::lock_guard lock(hub.mutex);
  return hub.rules.Uses(rule);
}

SLUICE_HUB_EXPORT void SluiceHubSim_SetSocketReply(const SluiceHubSimSocketReply* reply) {
  Hub& hub = TheHub();
  const std::lock_guard lock(hub.mutex);
  hub.socketReply.reset();
  if (reply != nullptr) hub.socketReply = *reply;
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_DeliverMessage(uint64_t connection, uint32_t messageID, const void* body,
                                                       uint32_t size, uint32_t wait) {
  return kel::sim::PostTo(connection, wait != 0, [&](Hub& hub, Connection&) {
    auto delivery = hub.NewDelivery(Delivery::Kind::kMessage, messageID);
    const auto* bytes = static_cast<const std::uint8_t*>(body);
    delivery->body.assign(bytes, bytes + size);
    return delivery;
  });
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_DeliverRecord(uint64_t connection, uint32_t word, uint32_t errorCode,
                                                      uint32_t seqTUI, const void* payload, uint32_t size,
                                                      uint32_t wait) {
  return kel::sim::PostTo(connection, wait != 0, [&](Hub& hub, Connection& receiver) {
    auto delivery = hub.NewDelivery(Delivery::Kind::kMessage, kel::KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION);
    kel::WireTask head{word, size, seqTUI, {0}};
    head.errorCode = errorCode;
    const auto* bytes = static_cast<const std::uint8_t*>(payload);
    std::copy_n(bytes, size, kel::sim::LayOutResponse(delivery->body, receiver.row, head));
    return delivery;
  });
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_Broadcast(uint64_t connection, uint32_t tui, uint32_t seqTUI,
                                                  const void* payload, uint32_t size, uint32_t wait) {
  return SluiceHubSim_DeliverRecord(connection, kel::sim::BroadcastWord(tui), 0, seqTUI, payload, size, wait);
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_DeliverEvent(uint64_t connection, uint32_t event, uint32_t reason,
                                                     uint32_t wait) {
  return kel::sim::PostTo(connection, wait != 0,
                          [&](Hub& hub, Connection&) { return kel::sim::MakeEvent(hub, event, reason); });
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_LoseLink(uint64_t connection, uint32_t reason, uint32_t wait) {
  return kel::sim::PostTo(connection, wait != 0, [&](Hub& hub, Connection& loser) {
    loser.LoseLink();
    return kel::sim::MakeEvent(hub, kel::L5_EVENT_DISCONNECTED, reason);
  });
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_GetConnections(uint64_t* values, uint32_t room) {
  Hub& hub = TheHub();
  const std::lock_guard lock(hub.mutex);
  const auto count = static_cast<uint32_t>(hub.connections.size());
  for (uint32_t i = 0; i < std::min(room, count); ++i) values[i] = hub.connections[i]->Value();
  return count;
}

SLUICE_HUB_EXPORT void SluiceHubSim_GetCounts(SluiceHubSimCounts* counts) {
  Hub& hub = TheHub();
  const std::lock_guard lock(hub.mutex);
  *counts = hub.counts;
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_GetRequest(uint64_t index, SluiceHubSimRequest* request, void* body,
                                                   uint32_t room) {
  Hub& hub = TheHub();
  const std::lock_guard lock(hub.mutex);
  return hub.GetLogged(index, request, {static_cast<std::uint8_t*>(body), room}) ? 1 : 0;
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_WaitForRequests(uint64_t count, uint32_t timeoutMs) {
  Hub& hub = TheHub();
  std::unique_lock lock(hub.mutex);
  return hub.WaitFor(lock, timeoutMs, [&] { return hub.counts.requests >= count; }) ? 1 : 0;
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_WaitIdle(uint32_t timeoutMs) {
  Hub& hub = TheHub();
  std::unique_lock lock(hub.mutex);
  const auto idle = [&] {
    return std::all_of(hub.connections.begin(), hub.connections.end(),
                       [](const auto& connection) { return connection->IsIdle(); });
  };
  return hub.WaitFor(lock, timeoutMs, idle) ? 1 : 0;
}

}  // extern "C"
