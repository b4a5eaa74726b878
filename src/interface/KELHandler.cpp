// SPDX-License-Identifier: MIT
// The 15 exports, the table from a client's connection to an engine, and the library's entry point.
#include "KELHandler.h"

#include <cstdlib>

#include "adapter/Dorv.h"
#include "adapter/SluiceHub.h"
#include "engine/Brel.h"
#include "engine/Instances.h"
#include "logging/Trace.h"
#include "platform/handler_module.h"
#include "platform/platform.h"

// One trace of this layer. The line is that of the call, so this is a macro.
#define KEL_TRACE(level, function, ...) \
  Beacon_WriteTrace(kel::kTraceSource, level, L".\\KELHandler", function, __LINE__, __VA_ARGS__)

namespace {

using kel::kTraceEngineFailed;
using kel::kTraceProgress;
using kel::kTraceUnknownConnection;

constexpr std::uint32_t kRows = 16;

/// Held by each export for its whole call into the engine, waits included: such calls run one at a time over all
/// connections, by design.
kel::platform::CriticalSection gConnectionsLock;

// The connection table, row for row. A row is in use when its connection is not 0; its handle is never cleared.
std::uint64_t gL5Connections[kRows] GUARDED_BY(gConnectionsLock);
std::uint32_t gBrelHandles[kRows] GUARDED_BY(gConnectionsLock);

/// A connection as the traces' %x shows it.
std::uint32_t Traced(std::uint64_t conn) { return static_cast<std::uint32_t>(conn); }

/// Finds the engine of a connection. Every value is looked for, 0 too, which finds the first free row.
bool GetHandle(std::uint64_t conn, std::uint32_t* handleOut) REQUIRES(gConnectionsLock) {
  KEL_TRACE(kTraceProgress, L"GetHandle", L"GetHandle - started. Conn=%x", Traced(conn));
  for (std::uint32_t row = 0; row < kRows; ++row) {
    if (gL5Connections[row] != conn) continue;
    KEL_TRACE(kTraceProgress, L"GetHandle", L"returned handler %d", row);
    *handleOut = gBrelHandles[row];
    return true;
  }
  KEL_TRACE(kTraceUnknownConnection, L"GetHandle", L"No handler found for that L5Connection");
  return false;
}

void UpdateL5ConnectionTable(std::uint32_t brelHandle, std::uint64_t conn) REQUIRES(gConnectionsLock) {
  KEL_TRACE(kTraceProgress, L"UpdateL5ConnectionTable", L"UpdateL5ConnectionTable - started. Conn=%x", Traced(conn));
  for (std::uint32_t row = 0; row < kRows; ++row) {
    if (gL5Connections[row] != 0) continue;
    gL5Connections[row] = conn;
    gBrelHandles[row] = brelHandle;
    KEL_TRACE(kTraceProgress, L"UpdateL5ConnectionTable", L"L5 connection table - updated!");
    return;
  }
}

}  // namespace

extern "C" {

/// Called by the loader with the library's module. Always 1.
int DllMain(void* module, std::uint32_t reason, void* /*reserved*/);

int DllMain(void* module, std::uint32_t reason, void* /*reserved*/) {
  constexpr std::uint32_t kProcessDetach = 0;
  constexpr std::uint32_t kProcessAttach = 1;
  kel::gHandlerModule = module;
  if (reason == kProcessAttach) {
    kel::CreateSluiceHubLock();
    gConnectionsLock.init();
  } else if (reason == kProcessDetach) {
    kel::DeleteSluiceHubLock();
    gConnectionsLock.destroy();
  }
  return 1;
}

// ---------------------------------------------------------------------------------------------------------------------
// Straight to the pipe library
// ---------------------------------------------------------------------------------------------------------------------

std::uint32_t KEL_Init(void) { return SLUICE_HUB_Init(); }

std::uint32_t KEL_Finalize(void) { return SLUICE_HUB_Finalize(); }

std::uint32_t KEL_RegisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback callback) {
  KEL_TRACE(kTraceProgress, L"KEL_RegisterCtrlStatusUpdatesCB", L"KEL_RegisterCtrlStatusUpdatesCB - started");
  return SLUICE_HUB_RegisterCtrlStatusUpdatesCB(callback);
}

std::uint32_t KEL_UnregisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback callback) {
  KEL_TRACE(kTraceProgress, L"KEL_UnregisterCtrlStatusUpdatesCB", L"KEL_UnregisterCtrlStatusUpdatesCB - started");
  return SLUICE_HUB_UnregisterCtrlStatusUpdatesCB(callback);
}

std::uint32_t KEL_GetCtrlStatus(void) {
  KEL_TRACE(kTraceProgress, L"KEL_GetCtrlStatus", L"KEL_GetCtrlStatus - started");
  return SLUICE_HUB_GetCtrlStatus();
}

std::uint32_t KEL_SetConnParams(std::uint64_t params, std::uint32_t value) {
  KEL_TRACE(kTraceProgress, L"KEL_SetConnParams", L"KEL_SetConnParams - started");
  return SLUICE_HUB_SetConnParams(params, value);
}

VersionArray KEL_GetVersion(void) {
  KEL_TRACE(kTraceProgress, L"KEL_GetVersion", L"KEL_GetVersion finished");
  return {{4, 1, 0, 21, 0}};
}

// ---------------------------------------------------------------------------------------------------------------------
// Connections
// ---------------------------------------------------------------------------------------------------------------------

std::uint32_t KEL_Connect(const char* TUIsFilePath, KEL_BroadcastCallback broadcastCallback, std::uint64_t* conn) {
  return KEL_ConnectEx(TUIsFilePath, 0, 0, broadcastCallback, 0, conn);
}

std::uint32_t KEL_ConnectEx(const char* TUIsFilePath, std::uint32_t /*ignored1*/, std::uint64_t /*ignored2*/,
                            KEL_BroadcastCallback broadcastCallback, std::uint32_t /*ignored3*/, std::uint64_t* conn) {
  // A connection whose value nobody gets could never be closed.
  if (conn == nullptr) return KEL_E_CONNECTION;
  std::uint32_t brelHandle = 0;
  const kel::platform::InSection alone(gConnectionsLock);
  KEL_TRACE(kTraceProgress, L"KEL_ConnectEx", L"KEL_ConnectEx - started");
  const kel::Status status = kel::BrelInit(&brelHandle, TUIsFilePath, 0, nullptr, broadcastCallback, nullptr);
  if (status != kel::kStatusOk) {
    KEL_TRACE(kTraceEngineFailed, L"KEL_ConnectEx", L"Couldn't init Brel!! BrelInit returned %d", status);
    return KEL_E_CONNECTION;
  }
  *conn = kel::Dorv_GetL5Connection(kel::BrelGetDorvHandle(brelHandle));
  UpdateL5ConnectionTable(brelHandle, *conn);
  KEL_TRACE(kTraceProgress, L"KEL_ConnectEx", L"KEL_ConnectEx finished OK. Conn=%x", Traced(*conn));
  return KEL_OK;
}

std::uint32_t KEL_Disconnect(std::uint64_t conn) {
  KEL_TRACE(kTraceProgress, L"KEL_Disconnect", L"KEL_Disconnect - started. Conn=%x", Traced(conn));
  const kel::platform::InSection alone(gConnectionsLock);
  std::uint32_t handle = 0;
  if (!GetHandle(conn, &handle)) {
    KEL_TRACE(kTraceUnknownConnection, L"KEL_Disconnect", L"Could'nt find handle for the L5 connection");
    return KEL_E_CONNECTION;
  }
  const kel::Status status = kel::BrelFinalize(handle);
  if (status != kel::kStatusOk) {
    KEL_TRACE(kTraceProgress, L"KEL_Disconnect", L"BrelFinalize error. returned - %d ", status);
    return KEL_E_CONNECTION;
  }
  // The engine's row, not the one that was found: both tables take and lose rows together.
  gL5Connections[handle] = 0;
  KEL_TRACE(kTraceProgress, L"KEL_Disconnect", L"KEL_Disconnect finished OK. Conn=%x", Traced(conn));
  return KEL_OK;
}

// ---------------------------------------------------------------------------------------------------------------------
// Tasks
// ---------------------------------------------------------------------------------------------------------------------

std::uint32_t KEL_SendReceiveKEL(std::uint64_t conn, const char* taskName, std::uint32_t commandID,
                                 const void* inputBuffer, std::uint32_t inputBufferSize,
                                 void** expectedResultsTaskBuffer, std::uint32_t* expectedResultsTaskBufferSize,
                                 KEL_StreamCallback streamCallbackFunc) {
  std::uint32_t resultTaskType = 0;
  std::uint32_t resultParam4 = 0;
  return KEL_SendReceiveKELEx(conn, taskName, commandID, inputBuffer, inputBufferSize, 0, 1, &resultTaskType,
                              expectedResultsTaskBuffer, expectedResultsTaskBufferSize, &resultParam4,
                              streamCallbackFunc);
}

std::uint32_t KEL_SendReceiveKELEx(std::uint64_t conn, const char* taskName, std::uint32_t commandID,
                                   const void* inputBuffer, std::uint32_t inputBufferSize, std::uint32_t initialSeqTUI,
                                   std::uint32_t responseExpected, std::uint32_t* resultTaskType,
                                   void** expectedResultsTaskBuffer, std::uint32_t* expectedResultsTaskBufferSize,
                                   std::uint32_t* resultParam4, KEL_StreamCallback streamCallbackFunc) {
  KEL_TRACE(kTraceProgress, L"KEL_SendReceiveKELEx", L"KEL_SendReceiveKELEx - started");
  const kel::platform::InSection alone(gConnectionsLock);
  std::uint32_t handle = 0;
  if (!GetHandle(conn, &handle)) {
    KEL_TRACE(kTraceUnknownConnection, L"KEL_SendReceiveKELEx", L"Could'nt find handle for the L5 connection");
    return KEL_E_CONNECTION;
  }
  void* answer = nullptr;
  std::uint32_t answerSize = 0;
  const kel::Status status = kel::BrelInvokeTask(
      handle, taskName, commandID, inputBuffer, inputBufferSize, initialSeqTUI, responseExpected != 0 ? 1 : 0,
      resultTaskType, expectedResultsTaskBuffer != nullptr ? expectedResultsTaskBuffer : &answer,
      expectedResultsTaskBufferSize != nullptr ? expectedResultsTaskBufferSize : &answerSize, resultParam4,
      streamCallbackFunc);
  std::free(answer);  // which the client had no use for
  if (status != kel::kStatusOk) {
    KEL_TRACE(kTraceEngineFailed, L"KEL_SendReceiveKELEx", L"Brel invoke tast error. returned - %d", status);
    return KEL_E_TASK;
  }
  KEL_TRACE(kTraceProgress, L"KEL_SendReceiveKELEx", L"KEL_SendReceiveKELEx finished OK");
  return KEL_OK;
}

std::uint32_t KEL_SendReceiveAsyncKEL(std::uint64_t conn, const char* taskName, std::uint32_t commandID,
                                      const void* inputBuffer, std::uint32_t inputBufferSize, std::uint32_t* seqNum,
                                      KEL_AsyncCallback callbackFunc, KEL_StreamCallback streamCallbackFunc) {
  return KEL_SendReceiveAsyncKELEx(conn, taskName, commandID, inputBuffer, inputBufferSize, 0, 1, seqNum, callbackFunc,
                                   streamCallbackFunc);
}

std::uint32_t KEL_SendReceiveAsyncKELEx(std::uint64_t conn, const char* taskName, std::uint32_t commandID,
                                        const void* inputBuffer, std::uint32_t inputBufferSize,
                                        std::uint32_t initialSeqTUI, std::uint32_t responseExpected,
                                        std::uint32_t* seqNum, KEL_AsyncCallback callbackFunc,
                                        KEL_StreamCallback streamCallbackFunc) {
  KEL_TRACE(kTraceProgress, L"KEL_SendReceiveAsyncKELEx", L"KEL_SendReceiveAsyncKELEx - started");
  const kel::platform::InSection alone(gConnectionsLock);
  std::uint32_t handle = 0;
  if (!GetHandle(conn, &handle)) {
    KEL_TRACE(kTraceUnknownConnection, L"KEL_SendReceiveAsyncKELEx", L"Could'nt find handle for the L5 connection");
    return KEL_E_CONNECTION;
  }
  const kel::Status status =
      kel::BrelInvokeAsyncTask(handle, taskName, commandID, inputBuffer, inputBufferSize, initialSeqTUI,
                               responseExpected != 0 ? 1 : 0, seqNum, callbackFunc, streamCallbackFunc);
  if (status != kel::kStatusOk) {
    KEL_TRACE(kTraceEngineFailed, L"KEL_SendReceiveAsyncKELEx", L"KEL_SendReceiveAsyncKELEx error. returned - %d",
              status);
    return KEL_E_ASYNC_TASK;
  }
  KEL_TRACE(kTraceProgress, L"KEL_SendReceiveAsyncKELEx", L"KEL_SendReceiveAsyncKELEx finished OK");
  return KEL_OK;
}

std::uint32_t KEL_ValidateVersion(std::uint64_t conn, char* fileName, const void* fileBuffer, std::uint32_t fileLength,
                                  void* userVersion, const char* versionsVectorsPath) {
  KEL_TRACE(kTraceProgress, L"KEL_ValidateVersion", L"KEL_ValidateVersion - started");
  const kel::platform::InSection alone(gConnectionsLock);
  std::uint32_t handle = 0;
  if (!GetHandle(conn, &handle)) {
    KEL_TRACE(kTraceUnknownConnection, L"KEL_ValidateVersion", L"Could'nt find handle for the L5 connection");
    return KEL_E_CONNECTION;
  }
  const kel::Status status =
      kel::BrelValidateVersion(handle, fileName, fileBuffer, fileLength, userVersion, versionsVectorsPath);
  if (status != kel::kStatusOk) {
    KEL_TRACE(kTraceProgress, L"KEL_ValidateVersion", L"KEL_ValidateVersion error. returned - %d", status);
    return KEL_VERSION_INVALID;
  }
  KEL_TRACE(kTraceProgress, L"KEL_ValidateVersion", L"KEL_ValidateVersion finished OK");
  return KEL_VERSION_VALID;
}

}  // extern "C"
