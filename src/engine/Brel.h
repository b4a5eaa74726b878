/* SPDX-License-Identifier: MIT */
// The front interface: the engine's operations as plain functions by instance handle. The exports stand on it, and
// in-process users of the static library may.
//
// Every function returns an engine status (Status.h): 2 is success, and 1 also stands for a handle without an engine
// and for an exhausted heap. None throws. What an operation does, and who owns what it gives out, stands with the
// member of BrelEngine that it calls. Nothing here takes the exports' lock: several tasks may run at once, from several
// threads.
#pragma once

#include <cstdint>

#include "engine/BrelEngine.h"
#include "engine/Status.h"

namespace kel {

/// Makes an engine and brings it up. `*handle` gets its handle. 2, or 1 with no engine in the table; what may be left
/// of it all the same is told with AddBrelInst() and BrelEngine::init().
Status BrelInit(std::uint32_t* handle, const char* TUIsFilePath, std::uint8_t activateVersionControl,
                const char* versionsVectorsPath, KEL_BroadcastCallback broadcastCallback,
                AlertsCallback alertsCallback);

/// Takes an engine down and destroys it. If the first fails, 1, and it stays in the table half torn down.
Status BrelFinalize(std::uint32_t handle);

/// 2 also for an unknown name, which leaves `*TUI` at 0.
Status BrelFindTuiByName(std::uint32_t handle, const char* taskName, std::uint32_t* TUI);
Status BrelGetStatusString(std::uint32_t handle, std::uint32_t code, char** text);
Status BrelGetCallbackStatusString(std::uint32_t handle, std::uint32_t code, char** text);

Status BrelValidateVersion(std::uint32_t handle, char* fileName, const void* fileBuffer, std::uint32_t fileLength,
                           void* userVersion, const char* versionsVectorsPath);

Status BrelGetTraceFilePath(std::uint32_t handle, char** filePath);
Status BrelSetTraceFilePath(std::uint32_t handle, const char* filePath);
Status BrelGetTraceSeverityMultiple(std::uint32_t handle, std::uint8_t** buffer, std::uint32_t* size);
Status BrelSetTraceSeverityMultiple(std::uint32_t handle, const std::uint8_t* severityArray);
Status BrelGetAllStatistics(std::uint32_t handle, std::uint8_t** buffer, std::uint32_t* size);
Status BrelGetAllStatisticsSize(std::uint32_t handle, std::uint32_t* size);
Status BrelResetStatisticsBuffer(std::uint32_t handle);

Status BrelIssueCommand(std::uint32_t handle, std::uint32_t commandID, task* record, task** responseRecord,
                        std::uint32_t* responseSize, OpaqueCallback streamCallbackFunc);
Status BrelIssueAsyncCommand(std::uint32_t handle, std::uint32_t commandID, task* record, std::uint32_t* seqNum,
                             OpaqueCallback callbackFunc, OpaqueCallback streamCallbackFunc);
Status BrelInvokeTask(std::uint32_t handle, const char* taskName, std::uint32_t commandID, const void* inputBuffer,
                      std::uint32_t inputBufferSize, std::uint32_t initialSeqTUI, std::uint8_t responseExpected,
                      std::uint32_t* ignored, void** expectedResultsTaskBuffer,
                      std::uint32_t* expectedResultsTaskBufferSize, std::uint32_t* resultParam4,
                      KEL_StreamCallback streamCallbackFunc);
Status BrelInvokeAsyncTask(std::uint32_t handle, const char* taskName, std::uint32_t commandID,
                           const void* inputBuffer, std::uint32_t inputBufferSize, std::uint32_t initialSeqTUI,
                           std::uint8_t responseExpected, std::uint32_t* seqNum, KEL_AsyncCallback callbackFunc,
                           KEL_StreamCallback streamCallbackFunc);

}  // namespace kel
