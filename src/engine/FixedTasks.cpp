// SPDX-License-Identifier: MIT
// The engine's own tasks for the driver's trace and statistics services. A caller asks for a path or a block and knows
// nothing of tasks. After a failed send or wait the sequence stays open and keeps its number until the engine ends, so
// that a late answer cannot reach another task.
#include <algorithm>
#include <cstring>

#include "adapter/Dorv.h"
#include "engine/BrelEngine.h"
#include "platform/memory.h"

namespace kel {
namespace {

constexpr std::uint32_t kTypeVal = 0;
constexpr std::uint8_t kThreeZeros[kValPayloadSize] = {};

/// Bytes of a severity array, always.
constexpr std::uint32_t kSeverityArraySize = 256;
constexpr std::uint32_t OSAL_ADAPTER_AIFAL_MAX_PAYLOAD = BREL_MAX_TASK_PAYLOAD;

/// The first value of a VAL payload; one that is not there counts as 0.
std::uint32_t FirstValue(const task* record) {
  std::uint32_t value = 0;
  std::memcpy(&value, PayloadOf(record), std::min<std::uint32_t>(record->payloadSize, sizeof value));
  return value;
}

}  // namespace

/// One of the operations: its name, its task, what it sends, and the type that the answer must have.
struct BrelEngine::FixedTask {
  const char* operation;
  const char* taskName;
  const void* payload;
  std::uint32_t payloadSize;
  std::uint32_t answerType;
  bool printsFoundTUI = false;  ///< the others print their line before the look-up, with a TUI of 0
};

// ---------------------------------------------------------------------------------------------------------------------
// The road that all of them take
// ---------------------------------------------------------------------------------------------------------------------

Status BrelEngine::sendFixedTask(const FixedTask& fixed, std::uint32_t* seqNum, platform::Handle* syncDataEvent) {
  std::uint32_t TUI = 0;
  if (!fixed.printsFoundTUI) mDebugPrint("\nTUI = %d\n", 0);
  if (!mTUIsList.FindTuiByName(fixed.operation, fixed.taskName, &TUI)) return kStatusFailed;
  if (fixed.printsFoundTUI) mDebugPrint("\nTUI = %d\n", static_cast<int>(TUI));

  platform::Handle aSyncDataEvent = nullptr, seqStopEvent = nullptr;
  std::uint32_t streamSeqNum = 0, streamEndSeqNum = 0;
  if (mTasksSequencer.AssignSequence(BREL_FIXED_TASK, 0, seqNum, TUI, syncDataEvent, &aSyncDataEvent, &seqStopEvent,
                                     nullptr, nullptr, &streamSeqNum, &streamEndSeqNum, false,
                                     false) != SEQ_ASSIGN_OK) {
    report(kError, fixed.operation, "could not assign sequence number \n");
    return kStatusFailed;
  }
  task* record = BuildRequest(AllocateBlock(RequestBlockSize(fixed.payload, fixed.payloadSize)), TUI, 1,
                              MakeSeqTUI(TUI, static_cast<std::uint8_t>(*seqNum)), fixed.payload, fixed.payloadSize);
  const std::uint32_t dorvCode = SendToDorv(fixed.operation, record, record->payloadSize + std::uint32_t{sizeof(task)});
  std::free(record);
  return dorvCode == DORV_OK ? kStatusOk : TranslateDorvStatus(dorvCode);
}

Status BrelEngine::awaitFixedTask(const FixedTask& fixed, std::uint32_t seqNum, platform::Handle syncDataEvent,
                                  task** response) {
  *response = GetRxMsgBuf(fixed.operation, seqNum, syncDataEvent);
  if (*response == nullptr) return kStatusFailed;
  if (GetTuiType((*response)->TUI) == fixed.answerType) return kStatusOk;
  report(kError, fixed.operation, "wrong TYPE of ResponsBuffer received from Dorv \n");
  std::free(*response);
  return kStatusWrongType;
}

Status BrelEngine::runFixedTask(const FixedTask& fixed, task** response) {
  std::uint32_t seqNum = 0;
  platform::Handle syncDataEvent = nullptr;
  const Status status = sendFixedTask(fixed, &seqNum, &syncDataEvent);
  return status == kStatusOk ? awaitFixedTask(fixed, seqNum, syncDataEvent, response) : status;
}

/// The end of the operations that read: the answer's payload in a block.
Status BrelEngine::readByFixedTask(const FixedTask& fixed, std::uint8_t** block, std::uint32_t* size) {
  task* response = nullptr;
  const Status status = runFixedTask(fixed, &response);
  if (status != kStatusOk) return status;
  const std::uint32_t payloadSize = response->payloadSize;
  // A zero byte follows the payload, since one operation gives it out as a text, which the device need not have ended.
  *block = static_cast<std::uint8_t*>(AllocateBlock(std::size_t{payloadSize} + 1));
  std::memcpy(*block, PayloadOf(response), payloadSize);
  (*block)[payloadSize] = 0;
  *size = payloadSize;
  std::free(response);
  report(kInfo, fixed.operation, "response received from Dorv \n");
  return kStatusOk;
}

/// The end of the operations that write: the answer's first value says whether it went well.
Status BrelEngine::judgeAnswer(const FixedTask& fixed, task* response) {
  const std::uint32_t value = FirstValue(response);
  std::free(response);
  report(kInfo, fixed.operation, "response received from Dorv \n");
  return value == 0 ? kStatusOk : kStatusFailed;
}

// ---------------------------------------------------------------------------------------------------------------------
// The operations
// ---------------------------------------------------------------------------------------------------------------------

Status BrelEngine::GetTraceFilePath(char** filePath) {
  const FixedTask fixed{
      "GetTraceFilePath", "TASK_ID_TRACE_UTIL_PATH_GET", kThreeZeros, kValPayloadSize, kTypeRef, true};
  std::uint8_t* block = nullptr;
  std::uint32_t size = 0;
  const Status status = readByFixedTask(fixed, &block, &size);
  if (status != kStatusOk) return status;
  *filePath = reinterpret_cast<char*>(block);
  report(kInfo, fixed.operation, "filePath received from driver is: ", static_cast<const char*>(*filePath), " \n");
  return kStatusOk;
}

Status BrelEngine::SetTraceFilePath(const char* filePath) {
  constexpr const char* kOperation = "SetTraceFilePath";
  if (filePath == nullptr) {
    report(kError, kOperation, "an empty filePath was input \n");
    return kStatusFailed;
  }
  const FixedTask fixed{kOperation, "TASK_ID_TRACE_UTIL_PATH_SET", filePath,
                        static_cast<std::uint32_t>(std::strlen(filePath) + 1), kTypeVal};
  std::uint32_t seqNum = 0;
  platform::Handle syncDataEvent = nullptr;
  if (const Status status = sendFixedTask(fixed, &seqNum, &syncDataEvent); status != kStatusOk) return status;
  report(kInfo, kOperation, "filePath sent to driver is: ", filePath, " \n");
  task* response = nullptr;
  const Status status = awaitFixedTask(fixed, seqNum, syncDataEvent, &response);
  return status == kStatusOk ? judgeAnswer(fixed, response) : status;
}

Status BrelEngine::GetTraceSeverityMultiple(std::uint8_t** buffer, std::uint32_t* size) {
  return readByFixedTask(
      {"GetTraceSeverityMultiple", "TASK_ID_TRACE_UTIL_SEVERITY_MULTIPLE_GET", kThreeZeros, kValPayloadSize, kTypeRef},
      buffer, size);
}

Status BrelEngine::SetTraceSeverityMultiple(const std::uint8_t* severityArray) {
  constexpr const char* kOperation = "SetTraceSeverityMultiple";
  // Status 13, for an array beyond the payload's limit, is never given.
  static_assert(kSeverityArraySize <= OSAL_ADAPTER_AIFAL_MAX_PAYLOAD);
  if (severityArray == nullptr) {
    report(kError, kOperation, "an empty severityArray was input \n");
    return kStatusFailed;
  }
  const FixedTask fixed{kOperation, "TASK_ID_TRACE_UTIL_SEVERITY_MULTIPLE_SET", severityArray, kSeverityArraySize,
                        kTypeVal};
  task* response = nullptr;
  const Status status = runFixedTask(fixed, &response);
  return status == kStatusOk ? judgeAnswer(fixed, response) : status;
}

Status BrelEngine::GetAllStatistics(std::uint8_t** buffer, std::uint32_t* size) {
  return readByFixedTask(
      {"GetAllStatistics", "TASK_ID_STAT_VIEWER_GET_COMMAND", kThreeZeros, kValPayloadSize, kTypeRef}, buffer, size);
}

Status BrelEngine::ResetStatisticsBuffer() {
  const FixedTask fixed{"ResetStatisticsBuffer", "TASK_ID_STAT_VIEWER_RESET_COMMAND", kThreeZeros, kValPayloadSize,
                        kTypeVal};
  task* response = nullptr;
  const Status status = runFixedTask(fixed, &response);
  return status == kStatusOk ? judgeAnswer(fixed, response) : status;
}

}  // namespace kel
