// SPDX-License-Identifier: MIT
#include "engine/Brel.h"

#include <cstdlib>
#include <exception>

#include "engine/Instances.h"

namespace kel {
namespace {

/// Calls a member of the engine with that handle; 1 if there is none, and for an exception: none goes on to a client.
template <class... Parameters, class... Arguments>
Status Call(std::uint32_t handle, Status (BrelEngine::*member)(Parameters...), Arguments... arguments) try {
  const platform::MutexScope lookUps;
  const std::shared_ptr<BrelEngine> engine = GetBrelInst(handle);
  return engine != nullptr ? ((*engine).*member)(arguments...) : kStatusFailed;
} catch (const std::exception&) {
  return kStatusFailed;
}

/// The same for a member of which only success passes through.
template <class... Parameters, class... Arguments>
Status CallForSuccess(std::uint32_t handle, Status (BrelEngine::*member)(Parameters...), Arguments... arguments) {
  return Call(handle, member, arguments...) == kStatusOk ? kStatusOk : kStatusFailed;
}

template <class Callback>
OpaqueCallback Opaque(Callback callback) {
  return reinterpret_cast<OpaqueCallback>(callback);
}

}  // namespace

Status BrelInit(std::uint32_t* handle, const char* TUIsFilePath, std::uint8_t activateVersionControl,
                const char* versionsVectorsPath, KEL_BroadcastCallback broadcastCallback,
                AlertsCallback alertsCallback) try {
  *handle = kNoBrelHandle;
  std::shared_ptr<BrelEngine> engine = AddBrelInst(handle);
  if (engine == nullptr) return kStatusFailed;
  // Ahead of init(), which starts the listeners by them.
  engine->mBroadcastCallback = broadcastCallback;
  engine->mAlertsCallback = alertsCallback;
  if (engine->init(TUIsFilePath, activateVersionControl != 0, versionsVectorsPath) == kStatusOk) return kStatusOk;
  engine.reset();  // it ends with its row
  RemoveBrelInst(*handle);
  return kStatusFailed;
} catch (const std::exception&) {  // of AddBrelInst, which keeps the table's lock then
  return kStatusFailed;
}

Status BrelFinalize(std::uint32_t handle) {
  if (CallForSuccess(handle, &BrelEngine::Finalize) != kStatusOk) return kStatusFailed;
  RemoveBrelInst(handle);
  return kStatusOk;
}

Status BrelFindTuiByName(std::uint32_t handle, const char* taskName, std::uint32_t* TUI) {
  return CallForSuccess(handle, &BrelEngine::BrelFindTuiByName, taskName, TUI);
}

Status BrelGetStatusString(std::uint32_t handle, std::uint32_t code, char** text) {
  return CallForSuccess(handle, &BrelEngine::GetStatusString, code, text);
}

Status BrelGetCallbackStatusString(std::uint32_t handle, std::uint32_t code, char** text) {
  return CallForSuccess(handle, &BrelEngine::GetCallbackStatusString, code, text);
}

Status BrelValidateVersion(std::uint32_t handle, char* fileName, const void* fileBuffer, std::uint32_t fileLength,
                           void* userVersion, const char* versionsVectorsPath) {
  return Call(handle, &BrelEngine::ValidateVersion, fileName, fileBuffer, fileLength, userVersion, versionsVectorsPath);
}

Status BrelGetTraceFilePath(std::uint32_t handle, char** filePath) {
  return Call(handle, &BrelEngine::GetTraceFilePath, filePath);
}

Status BrelSetTraceFilePath(std::uint32_t handle, const char* filePath) {
  return Call(handle, &BrelEngine::SetTraceFilePath, filePath);
}

Status BrelGetTraceSeverityMultiple(std::uint32_t handle, std::uint8_t** buffer, std::uint32_t* size) {
  return Call(handle, &BrelEngine::GetTraceSeverityMultiple, buffer, size);
}

Status BrelSetTraceSeverityMultiple(std::uint32_t handle, const std::uint8_t* severityArray) {
  return Call(handle, &BrelEngine::SetTraceSeverityMultiple, severityArray);
}

Status BrelGetAllStatistics(std::uint32_t handle, std::uint8_t** buffer, std::uint32_t* size) {
  return Call(handle, &BrelEngine::GetAllStatistics, buffer, size);
}

Status BrelGetAllStatisticsSize(std::uint32_t handle, std::uint32_t* size) {
  std::uint8_t* buffer = nullptr;
  const Status status = BrelGetAllStatistics(handle, &buffer, size);
  std::free(buffer);
  return status;
}

Status BrelResetStatisticsBuffer(std::uint32_t handle) { return Call(handle, &BrelEngine::ResetStatisticsBuffer); }

Status BrelIssueCommand(std::uint32_t handle, std::uint32_t commandID, task* record, task** responseRecord,
                        std::uint32_t* responseSize, OpaqueCallback streamCallbackFunc) {
  return Call(handle, &BrelEngine::IssueCommand, commandID, record, responseRecord, responseSize, streamCallbackFunc);
}

Status BrelIssueAsyncCommand(std::uint32_t handle, std::uint32_t commandID, task* record, std::uint32_t* seqNum,
                             OpaqueCallback callbackFunc, OpaqueCallback streamCallbackFunc) {
  return Call(handle, &BrelEngine::IssueAsyncCommand, commandID, record, seqNum, callbackFunc, streamCallbackFunc);
}

Status BrelInvokeTask(std::uint32_t handle, const char* taskName, std::uint32_t commandID, const void* inputBuffer,
                      std::uint32_t inputBufferSize, std::uint32_t initialSeqTUI, std::uint8_t responseExpected,
                      std::uint32_t* /*ignored*/, void** expectedResultsTaskBuffer,
                      std::uint32_t* expectedResultsTaskBufferSize, std::uint32_t* resultParam4,
                      KEL_StreamCallback streamCallbackFunc) {
  return Call(handle, &BrelEngine::InvokeTask, taskName, commandID, inputBuffer, inputBufferSize, initialSeqTUI,
              responseExpected, expectedResultsTaskBuffer, expectedResultsTaskBufferSize, resultParam4,
              Opaque(streamCallbackFunc));
}

Status BrelInvokeAsyncTask(std::uint32_t handle, const char* taskName, std::uint32_t commandID, const void* inputBuffer,
                           std::uint32_t inputBufferSize, std::uint32_t initialSeqTUI, std::uint8_t responseExpected,
                           std::uint32_t* seqNum, KEL_AsyncCallback callbackFunc,
                           KEL_StreamCallback streamCallbackFunc) {
  return Call(handle, &BrelEngine::InvokeAsyncTask, taskName, commandID, inputBuffer, inputBufferSize, initialSeqTUI,
              responseExpected, seqNum, Opaque(callbackFunc), Opaque(streamCallbackFunc));
}

}  // namespace kel
