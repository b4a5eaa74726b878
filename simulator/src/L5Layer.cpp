// SPDX-License-Identifier: MIT
// The L5 functions and the table that hands them out.
#include <algorithm>
#include <cstring>
#include <exception>
#include <thread>

#include "Agents.h"
#include "ControlStatus.h"
#include "Export.h"
#include "Hub.h"
#include "Results.h"
#include "platform/process.h"

namespace kel::sim {
namespace {

void Unused() {}

/// The n-th connection's value: odd numbers multiply to a different value for each n, and only 0 to 0.
std::uint64_t ConnectionValue(std::uint64_t n) { return n * 0x9E3779B97F4A7C15; }

/// For an open connection; else 0.
std::uint32_t NumberOf(const std::shared_ptr<Connection>& connection) {
  return connection != nullptr ? connection->Number() : 0;
}

/// Opens a connection; gives none if there are no resources.
std::shared_ptr<Connection> Open(Hub& hub, L5MessagesHandler messages, L5EventHandler events, std::uint32_t* context) {
  try {
    const std::uint64_t n = hub.createdConnections + 1;
    auto connection =
        std::make_shared<Connection>(hub, static_cast<std::uint32_t>(n), ConnectionValue(n), messages, events, context);
    hub.connections.reserve(hub.connections.size() + 1);
    connection->Start(connection);
    hub.connections.push_back(connection);
    hub.createdConnections = n;
    return connection;
  } catch (const std::exception&) {
    return nullptr;
  }
}

std::uint32_t L5Connect(void* /*null*/, L5MessagesHandler messages, L5EventHandler events, std::uint32_t* context,
                        std::uint32_t /*zero*/, std::uint64_t* value) try {
  const auto forced = EnterFunction(SLUICEHUBSIM_L5_CONNECT);
  if (value == nullptr) return SLUICEHUBSIM_STATUS_BAD_ARGUMENT;
  *value = 0;
  TheScenario();  // reads it, if it is still to be read, while nobody waits
  Hub& hub = TheHub();
  const std::lock_guard lock(hub.mutex);
  hub.process = platform::processNumber();
  hub.capture.StartFromEnvironment();
  const bool isPlanned = hub.scenario.Begin(hub);
  const auto connection = forced || !isPlanned ? nullptr : Open(hub, messages, events, context);
  const std::uint32_t failure = isPlanned ? SLUICEHUBSIM_STATUS_NO_RESOURCES : SLUICEHUBSIM_STATUS_BAD_SCENARIO;
  const std::uint32_t status = connection != nullptr ? SLUICEHUBSIM_STATUS_OK : forced.value_or(failure);
  if (connection != nullptr) {
    *value = connection->Value();
    hub.capture.StartWriting();
  }
  hub.capture.Add({.kind = CaptureKind::kConnect, .connection = NumberOf(connection), .status = status});
  return status;
} catch (const std::exception&) {  // no memory for the scenario
  return SLUICEHUBSIM_STATUS_NO_RESOURCES;
}

/// Has all that was captured written once there is no connection.
void WriteCapture(Hub& hub) {
  std::unique_lock lock(hub.mutex);
  if (!hub.capture.IsOn() || !hub.connections.empty()) return;
  std::thread writer = hub.capture.StopWriting();
  lock.unlock();
  if (writer.joinable()) writer.join();
  hub.capture.WriteQueued();
}

std::uint32_t L5Disconnect(std::uint64_t value) {
  const auto forced = EnterFunction(SLUICEHUBSIM_L5_DISCONNECT);
  Hub& hub = TheHub();
  std::unique_lock lock(hub.mutex);
  const auto connection = hub.Find(value);
  const std::uint32_t status = connection != nullptr ? SLUICEHUBSIM_STATUS_OK : SLUICEHUBSIM_STATUS_NO_CONNECTION;
  hub.capture.Add(
      {.kind = CaptureKind::kDisconnect, .connection = NumberOf(connection), .status = forced.value_or(status)});
  if (forced) return *forced;
  if (connection == nullptr) return status;
  std::erase(hub.connections, connection);
  hub.FreeSocketsOf(value);
  connection->Close(lock);
  WriteCapture(hub);
  return status;
}

Reply AskAgent(Hub& hub, Connection& connection, const Message& message, Completion* beforeReply) {
  if (message.agent == L5_AGENT_L4MSGPROXY) return AskL4msgProxy(hub, connection, message, beforeReply);
  if (message.agent == L5_AGENT_KELPROXY) return AskKelProxyAgent(hub, connection, message);
  Reply reply;
  reply.status = SLUICEHUBSIM_STATUS_NO_AGENT;
  return reply;
}

/// Captures a request. Returns the number that its reply is to name.
std::uint32_t RecordRequest(Hub& hub, std::uint32_t connection, const Message& message) {
  const std::uint32_t exchange = hub.capture.NewExchange();
  hub.capture.Add({.kind = CaptureKind::kRequest,
                   .connection = connection,
                   .agent = message.agent,
                   .ID = message.ID,
                   .exchange = exchange,
                   .body = message.body});
  return exchange;
}

void RecordReply(Hub& hub, std::uint32_t connection, std::uint32_t agent, std::uint32_t exchange, const Reply& reply) {
  std::span<const std::uint8_t> body;
  if (reply.status == 0) body = std::span(reply.bytes).first(std::min<std::size_t>(reply.size, reply.bytes.size()));
  hub.capture.Add({.kind = CaptureKind::kReply,
                   .connection = connection,
                   .agent = agent,
                   .ID = reply.ID,
                   .status = reply.status,
                   .exchange = exchange,
                   .body = body,
                   .toldSize = reply.status == 0 ? reply.size : 0,
                   .comment = reply.comment});
}

Reply Exchange(std::uint64_t value, const Message& message) {
  Hub& hub = TheHub();
  Reply reply;
  std::unique_lock lock(hub.mutex);
  const auto connection = hub.Find(value);
  const bool isCaptured = hub.capture.IsOn();
  const std::uint32_t exchange = isCaptured ? RecordRequest(hub, NumberOf(connection), message) : 0;
  if (connection == nullptr) {
    reply.status = SLUICEHUBSIM_STATUS_NO_CONNECTION;
  } else if (connection->IsLost()) {
    reply.status = SLUICEHUBSIM_STATUS_LINK_LOST;
  } else {
    hub.Log(value, message);
    Completion beforeReply;
    reply = AskAgent(hub, *connection, message, connection->OnOwnThread() ? nullptr : &beforeReply);
    if (beforeReply.pending != 0) {
      connection->Wake();
      hub.WaitUntil(lock, [&] { return beforeReply.pending == 0; });
    }
  }
  if (isCaptured) RecordReply(hub, NumberOf(connection), message.agent, exchange, reply);
  // Woken under the lock, the delivery thread would only go to sleep on it.
  const bool wants = connection != nullptr && connection->WantsWaking();
  lock.unlock();
  if (wants) connection->Wake();
  return reply;
}

/// A send whose result was forced: the agents get nothing.
void RecordForced(std::uint64_t value, const Message& message, std::uint32_t status) {
  Hub& hub = TheHub();
  const std::lock_guard lock(hub.mutex);
  if (!hub.capture.IsOn()) return;
  const std::uint32_t connection = NumberOf(hub.Find(value));
  Reply reply;
  reply.status = status;
  reply.comment = "forced result";
  RecordReply(hub, connection, message.agent, RecordRequest(hub, connection, message), reply);
}

std::uint32_t SendReceiveMessage(std::uint64_t connection, std::uint32_t agent, std::uint32_t messageID,
                                 const void* buffer, std::uint32_t bufferSize, std::uint32_t* replyMessageID,
                                 void* replyBuffer, std::uint32_t* replySize) {
  const auto forced = EnterFunction(SLUICEHUBSIM_SEND_RECEIVE);
  std::span<const std::uint8_t> body;
  if (buffer != nullptr) body = {static_cast<const std::uint8_t*>(buffer), bufferSize};
  if (forced) {
    RecordForced(connection, {agent, messageID, body}, *forced);
    return *forced;
  }
  Reply reply;
  try {
    reply = Exchange(connection, {agent, messageID, body});
  } catch (const std::exception&) {
    return SLUICEHUBSIM_STATUS_NO_RESOURCES;
  }
  if (reply.status != 0) return reply.status;
  if (replyMessageID != nullptr) *replyMessageID = reply.ID;
  if (replySize != nullptr) {
    const std::size_t size = std::min({std::size_t{*replySize}, std::size_t{reply.size}, reply.bytes.size()});
    if (replyBuffer != nullptr) std::memcpy(replyBuffer, reply.bytes.data(), size);
    *replySize = reply.size;
  }
  return SLUICEHUBSIM_STATUS_OK;
}

tL5DispatcherFunctions gDispatcherFunctions = {Unused, L5Connect, L5Disconnect, SendReceiveMessage};

/// Ends the capture, and stops delivery if connections are open when the process ends, so that no handler is called in
/// a program whose own objects are gone. It takes no lock that it could wait for and gives up soon: on some systems the
/// other threads have been ended wherever they were by the time this runs. A copy of the process has no delivery, and
/// leaves the capture to the process that began it.
struct HaltAtExit {
  ~HaltAtExit() {
    HaltControlStatus();
    Hub& hub = TheHub();
    if (hub.process != platform::processNumber()) return;
    bool ended = false;
    for (int attempt = 0; attempt < 100 && !ended; ++attempt) {
      if (attempt != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      if (const std::unique_lock lock(hub.mutex, std::try_to_lock); lock.owns_lock()) ended = Halt(hub);
    }
    const std::unique_lock lock(hub.mutex, std::try_to_lock);
    hub.capture.EndWithProcess();
  }

 private:
  /// True if nothing is delivered any more.
  static bool Halt(Hub& hub) {
    if (hub.connections.empty()) return true;
    hub.halted = true;
    for (const auto& connection : hub.connections) connection->Wake();
    return hub.runningThreads == 0;
  }
};

const HaltAtExit gHaltAtExit;

}  // namespace
}  // namespace kel::sim

extern "C" SLUICE_HUB_EXPORT kel::tL5DispatcherFunctions* SLUICE_HUB_GetServiceDispatcherFunctions(void) {
  using namespace kel::sim;
  return EnterFunction(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS) ? nullptr : &gDispatcherFunctions;
}
