// The L5 functions and the table that hands them out.
#include <algorithm>
#include <cstring>
#include <exception>
#include <thread>

#include "Agents.h"
#include "Export.h"
#include "Hub.h"
#include "Results.h"

namespace kel::sim {
namespace {

void Unused() {}

/// The n-th connection's value: odd numbers multiply to a different value for each n, and only 0 to 0.
std::uint64_t ConnectionValue(std::uint64_t n) { return n * 0x9E3779B97F4A7C15; }

std::uint32_t L5Connect(void* /*null*/, L5MessagesHandler messages, L5EventHandler events, std::uint32_t* context,
                        std::uint32_t /*zero*/, std::uint64_t* value) {
  const auto forced = EnterFunction(SLUICEHUBSIM_L5_CONNECT);
  if (value == nullptr) return SLUICEHUBSIM_STATUS_BAD_ARGUMENT;
  *value = 0;
  if (forced) return *forced;
  try {
    Hub& hub = TheHub();
    const std::lock_guard lock(hub.mutex);
    auto connection =
        std::make_shared<Connection>(hub, ConnectionValue(hub.createdConnections + 1), messages, events, context);
    hub.connections.reserve(hub.connections.size() + 1);
    connection->Start(connection);
    ++hub.createdConnections;
    *value = connection->Value();
    hub.connections.push_back(std::move(connection));
    return SLUICEHUBSIM_STATUS_OK;
  } catch (const std::exception&) {
    return SLUICEHUBSIM_STATUS_NO_RESOURCES;
  }
}

std::uint32_t L5Disconnect(std::uint64_t value) {
  if (const auto forced = EnterFunction(SLUICEHUBSIM_L5_DISCONNECT)) return *forced;
  Hub& hub = TheHub();
  std::unique_lock lock(hub.mutex);
  const auto connection = hub.Find(value);
  if (connection == nullptr) return SLUICEHUBSIM_STATUS_NO_CONNECTION;
  std::erase(hub.connections, connection);
  hub.FreeSocketsOf(value);
  connection->Close(lock);
  return SLUICEHUBSIM_STATUS_OK;
}

Reply AskAgent(Hub& hub, Connection& connection, const Message& message, Completion* beforeReply) {
  if (message.agent == L5_AGENT_L4MSGPROXY) return AskL4msgProxy(hub, connection, message, beforeReply);
  if (message.agent == L5_AGENT_KELPROXY) return AskKelProxyAgent(hub, connection, message);
  Reply reply;
  reply.status = SLUICEHUBSIM_STATUS_NO_AGENT;
  return reply;
}

Reply Exchange(std::uint64_t value, const Message& message) {
  Hub& hub = TheHub();
  Reply reply;
  std::unique_lock lock(hub.mutex);
  const auto connection = hub.Find(value);
  if (connection == nullptr || connection->IsLost()) {
    reply.status = connection == nullptr ? SLUICEHUBSIM_STATUS_NO_CONNECTION : SLUICEHUBSIM_STATUS_LINK_LOST;
    return reply;
  }
  hub.Log(value, message);
  Completion beforeReply;
  reply = AskAgent(hub, *connection, message, connection->OnOwnThread() ? nullptr : &beforeReply);
  if (beforeReply.pending != 0) {
    connection->Wake();
    hub.WaitUntil(lock, [&] { return beforeReply.pending == 0; });
  }
  // Woken under the lock, the delivery thread would only go to sleep on it.
  const bool wants = connection->WantsWaking();
  lock.unlock();
  if (wants) connection->Wake();
  return reply;
}

std::uint32_t SendReceiveMessage(std::uint64_t connection, std::uint32_t agent, std::uint32_t messageID,
                                 const void* buffer, std::uint32_t bufferSize, std::uint32_t* replyMessageID,
                                 void* replyBuffer, std::uint32_t* replySize) {
  if (const auto forced = EnterFunction(SLUICEHUBSIM_SEND_RECEIVE)) return *forced;
  std::span<const std::uint8_t> body;
  if (buffer != nullptr) body = {static_cast<const std::uint8_t*>(buffer), bufferSize};
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

/// Stops delivery when the process ends with connections open, so that no handler is called in a program whose own
/// objects are gone. It takes no lock that it could wait for and gives up soon: on some systems the other threads have
/// been ended wherever they were by the time this runs.
struct HaltAtExit {
  ~HaltAtExit() {
    Hub& hub = TheHub();
    bool ended = false;
    for (int attempt = 0; attempt < 100 && !ended; ++attempt) {
      if (const std::unique_lock lock(hub.mutex, std::try_to_lock); lock.owns_lock()) {
        if (hub.connections.empty()) return;
        hub.halted = true;
        for (const auto& connection : hub.connections) connection->Wake();
        ended = hub.runningThreads == 0;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
};

const HaltAtExit gHaltAtExit;

}  // namespace
}  // namespace kel::sim

extern "C" SLUICE_HUB_EXPORT kel::tL5DispatcherFunctions* SLUICE_HUB_GetServiceDispatcherFunctions(void) {
  using namespace kel::sim;
  return EnterFunction(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS) ? nullptr : &gDispatcherFunctions;
}
