// SPDX-License-Identifier: MIT
// The L5 connection of a row, and its socket ID from KelProxyAgent.
#include "adapter/DorvInstances.h"
#include "adapter/L5Records.h"

namespace kel {
namespace {

/// Drops the connection and forgets it; no log.
void Dorv_CloseL5Connection(std::uint32_t handle) {
  DorvInstance& row = gDorvInstances[handle];
  const tL5DispatcherFunctions* functions = gL5DispatcherFunctions;
  if (functions == nullptr || Load(row.L5Connection) == 0) return;
  functions->L5Disconnect(Load(row.L5Connection));
  Store(row.L5Connection, std::uint64_t{0});
}

/// Closes the L5 connection alone.
void Dorv_DisconnectL5(std::uint32_t handle) {
  LogRow(kInfo, handle, "Dorv_DisconnectL5", "Start. \n");
  DorvInstance& row = gDorvInstances[handle];
  if (gL5DispatcherFunctions == nullptr || Load(row.L5Connection) == 0 || Load(row.inUse) == 0) return;
  // Ahead of the closing, whose event is no loss of the link.
  Store(row.disconnecting, 1u);
  Dorv_CloseL5Connection(handle);
  Store(row.L5Connection, std::uint64_t{0});
  LogRow(kInfo, handle, "Dorv_DisconnectL5", "Success. \n");
}

}  // namespace

std::uint32_t Dorv_Connect(std::uint32_t handle, const char* /*peerAddress*/, std::uint16_t /*peerPort*/) {
  LogRow(kInfo, handle, "Dorv_Connect", "Start. \n");
  const tL5DispatcherFunctions* functions = gL5DispatcherFunctions;
  if (functions == nullptr) return DORV_FAILED;
  DorvInstance& row = gDorvInstances[handle];
  Store(row.disconnecting, 0u);
  const std::uint32_t connectStatus = functions->L5Connect(nullptr, Dorv_MessagesHandler, Dorv_EventHandler,
                                                           &row.handle, 0, &row.L5Connection);
  if (connectStatus != 0 || Load(row.L5Connection) == 0) {
    ReportRowError(handle, "Dorv_Connect", "Failed to connect L5. \n");
    return DORV_FAILED;
  }
  LogRow(kInfo, handle, "Dorv_Connect", "L5 connected. \n");

  const auto L5sndBuffer = static_cast<std::uint8_t>(handle);
  std::uint8_t L5rcvBuffer = kNoSocket;
  const std::uint32_t L5sndBufferSize = 1;
  std::uint32_t L5rcvMsgID = 0;
  std::uint32_t L5rcvBufferSize = 1;
  const std::uint32_t status = functions->SendReceiveMessage(
      Load(row.L5Connection), L5_AGENT_KELPROXY, KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID, &L5sndBuffer, L5sndBufferSize,
      &L5rcvMsgID, &L5rcvBuffer, &L5rcvBufferSize);
  if (status != 0) {
    Dorv_DisconnectL5(handle);
    ReportRowError(handle, "Dorv_Connect", "Failed to send ACQUIRE_SOCKET_ID L5 request to KelProxyAgent. \n");
    return DORV_FAILED;
  }
  if (L5rcvMsgID != KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID_RESPONSE || L5rcvBufferSize != 1 ||
      L5rcvBuffer == kNoSocket) {
    Dorv_DisconnectL5(handle);
    ReportRowError(handle, "Dorv_Connect", "Failed to acquire SocketID from KelProxyAgent. \n");
    return DORV_FAILED;
  }
  Store(row.socketID, L5rcvBuffer);
  LogRow(kInfo, handle, "Dorv_Connect", "SocketID = ", L5rcvBuffer, " acquired. \n");
  LogRow(kInfo, handle, "Dorv_Connect", "Success. \n");
  return DORV_OK;
}

std::uint32_t Dorv_Disconnect(std::uint32_t handle) {
  LogRow(kInfo, handle, "Dorv_Disconnect", "Start. \n");
  const tL5DispatcherFunctions* functions = gL5DispatcherFunctions;
  if (functions == nullptr) return DORV_FAILED;
  DorvInstance& row = gDorvInstances[handle];
  if (Load(row.L5Connection) == 0 || Load(row.inUse) == 0) return DORV_OK;
  // Before anything goes over the link.
  Store(row.disconnecting, 1u);
  const std::uint32_t status = functions->SendReceiveMessage(
      Load(row.L5Connection), L5_AGENT_KELPROXY, KEL_PROXY_L5_MSG_ID_RELEASE_SOCKET_ID_INDICATION, &row.socketID, 1,
      nullptr, nullptr, nullptr);
  if (status != 0) {
    ReportRowError(handle, "Dorv_Disconnect",
                   "Failed to send RELEASE_SOCKET_ID_INDICATION L5 request to KelProxyAgent. \n");
  }
  LogRow(kInfo, handle, "Dorv_Disconnect", "SocketID = ", Load(row.socketID), " released. \n");
  Store(row.socketID, kNoSocket);
  Dorv_DisconnectL5(handle);
  LogRow(kInfo, handle, "Dorv_Disconnect", "L5 disconnected. \n");
  Store(row.L5Connection, std::uint64_t{0});
  LogRow(kInfo, handle, "Dorv_Disconnect", "Success. \n");
  return DORV_OK;
}

}  // namespace kel
