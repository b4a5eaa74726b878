// SPDX-License-Identifier: MIT
// The road of a task that a client sends and waits for, and the one door to the adapter.
#include <algorithm>

#include "adapter/Dorv.h"
#include "engine/BrelEngine.h"
#include "engine/DorvBinding.h"
#include "engine/Instances.h"
#include "platform/memory.h"

namespace kel {
namespace {

constexpr const char* kIssue = "IssueCommandBase";

}  // namespace

Status BrelEngine::InvokeTask(const char* taskName, std::uint32_t commandID, const void* inputBuffer,
                              std::uint32_t inputBufferSize, std::uint32_t initialSeqTUI,
                              std::uint8_t responseExpected, void** expectedResultsTaskBuffer,
                              std::uint32_t* expectedResultsTaskBufferSize, std::uint32_t* /*resultParam4*/,
                              OpaqueCallback streamCallbackFunc) {
  std::uint32_t TUI = 0;
  if (!mTUIsList.FindTuiByName("InvokeTask", taskName != nullptr ? taskName : "", &TUI)) return kStatusFailed;
  mDebugPrint("\nTUI = %d\n", static_cast<int>(TUI));

  ScopedBlock<BrelTaskRecordCapacity> block(mKeptBlocks, RequestBlockSize(inputBuffer, inputBufferSize));
  task* const record =
      BuildRequest(block.get(), TUI, responseExpected, initialSeqTUI, inputBuffer, inputBufferSize);
  task* responseRecord = nullptr;
  std::uint32_t responseSize = 0;
  const Status status =
      IssueCommandBase(BREL_INVOKE_TASK, commandID, record, &responseRecord, &responseSize, streamCallbackFunc);
  const auto wholeResponse = mKeptBlocks.hold(responseRecord);
  if (status == kStatusOk && responseRecord != nullptr) {
    *expectedResultsTaskBufferSize = responseRecord->payloadSize;
    *expectedResultsTaskBuffer = CopyBlock(PayloadOf(responseRecord), responseRecord->payloadSize);
  } else {
    *expectedResultsTaskBuffer = nullptr;
    *expectedResultsTaskBufferSize = 0;
  }
  return status;
}

Status BrelEngine::IssueCommand(std::uint32_t commandID, task* record, task** responseRecord,
                                std::uint32_t* responseSize, OpaqueCallback streamCallbackFunc) {
  return IssueCommandBase(BREL_ISSUE_COMMAND, commandID, record, responseRecord, responseSize, streamCallbackFunc);
}

/// The record capacity, or what a payload beyond it needs.
std::size_t BrelEngine::RequestBlockSize(const void* inputBuffer, std::uint32_t inputBufferSize) {
  const std::size_t payloadSize = inputBuffer != nullptr ? inputBufferSize : 0;
  return std::max<std::size_t>(sizeof(task) + payloadSize, BrelTaskRecordCapacity);
}

/// Lays a request out in a block of that size.
task* BrelEngine::BuildRequest(void* block, std::uint32_t TUI, std::uint8_t responseExpected,
                               std::uint32_t initialSeqTUI, const void* inputBuffer, std::uint32_t inputBufferSize) {
  auto* record = static_cast<task*>(block);
  record->TUI = TUI;
  record->responseExpected = responseExpected;
  record->seqTUI = initialSeqTUI;
  if (inputBuffer != nullptr && inputBufferSize != 0) {
    record->payloadSize = inputBufferSize;
    std::memcpy(PayloadOf(record), inputBuffer, inputBufferSize);
  } else {
    record->payloadSize = GetTuiType(TUI) == kTypeRef ? 0 : kValPayloadSize;
    std::memset(PayloadOf(record), 0, record->payloadSize);
  }
  return record;
}

Status BrelEngine::IssueCommandBase(ApiType apiType, std::uint32_t commandID, task* record, task** responseRecord,
                                    std::uint32_t* responseSize, OpaqueCallback streamCallbackFunc) {
  const std::uint32_t recordSize = record->payloadSize + std::uint32_t{sizeof(task)};
  const std::uint32_t TUI = record->TUI;
  const bool waits = record->responseExpected == 1;
  const bool isStream = streamCallbackFunc != nullptr;

  std::uint32_t seqNum = 0, streamSeqNum = 0, streamEndSeqNum = 0;
  platform::Handle syncDataEvent = nullptr, aSyncDataEvent = nullptr, seqStopEvent = nullptr;
  if (waits || isStream) {
    if (mTasksSequencer.AssignSequence(apiType, commandID, &seqNum, TUI, &syncDataEvent, &aSyncDataEvent, &seqStopEvent,
                                       nullptr, streamCallbackFunc, &streamSeqNum, &streamEndSeqNum, false,
                                       isStream) != SEQ_ASSIGN_OK) {
      report(kError, kIssue, "could not assign sequence number \n");
      return kStatusFailed;
    }
    report(kInfo, kIssue, "assigned sequence number ", seqNum, " \n");
    record->seqTUI = MakeSeqTUI(TUI, static_cast<std::uint8_t>(seqNum));
    if (isStream && !GenerateAsyncThread(seqNum, aSyncDataEvent, seqStopEvent, true)) {
      report(kError, kIssue, "could not generate stream thread for stream sequence number ", streamSeqNum, " \n");
      FreeSequenceElementOnly(seqNum);
      return kStatusFailed;
    }
  }

  const std::uint32_t dorvCode = SendToDorv(kIssue, record, recordSize);
  if (dorvCode != DORV_OK) {
    // If no sequence was opened this acts on number 0: it frees it even if another task has it, and logs that it cannot
    // if nobody has.
    if (isStream) {
      DisposeAsyncThread(seqNum);
    } else {
      FreeSequenceElementOnly(seqNum);
    }
    return TranslateDorvStatus(dorvCode);
  }

  *responseSize = 0;
  task* response = nullptr;
  if (waits) {
    response = GetRxMsgBuf(kIssue, seqNum, syncDataEvent);
    if (response == nullptr) return kStatusFailed;
    *responseSize = response->payloadSize + std::uint32_t{sizeof(task)};
  }
  *responseRecord = response;
  report(kInfo, kIssue, "response received from Dorv \n");
  return kStatusOk;
}

std::uint32_t BrelEngine::SendToDorv(const char* callerName, const task* record, std::uint32_t recordSize) {
  std::uint32_t thisDorvHandle = kNoDorvHandle;
  GetDorvHandle(mHandle, &thisDorvHandle);
  if (thisDorvHandle == kNoDorvHandle) return DORV_FAILED;

  const auto mark = [&](const char* text, const char* consoleFormat) {
    mLogger.log(kInfo, "SendToDorv", kLogFlags) << text;
    mDebugPrint("AAAAAAAAA\n");
    mDebugPrint(consoleFormat, static_cast<int>(mHandle), static_cast<int>(thisDorvHandle));
    mDebugPrint("AAAAAAAAA\n");
  };
  mark("Send START \n", "SendToDorv - Send START - current handle = %d, DorvHandle = %d\n");
  mSendLock.enter();
  const std::uint32_t dorvCode = gDorv.Send(thisDorvHandle, record, recordSize);
  mSendLock.leave();
  mark("Send END \n", "SendToDorv - Send END - current handle = %d, DorvHandle = %d\n");
  if (dorvCode != DORV_OK) {
    report(kError, callerName, "Dorv_Send FAILED - command not sent \n");
  } else {
    report(kInfo, callerName, "Dorv_Send SUCCESS - command sent \n");
    DumpRequestBuffer(record, recordSize);
  }
  return dorvCode;
}

bool BrelEngine::WaitForRx(const char* callerName, platform::Handle dataEvent) {
  const auto reportWait = [&](std::uint32_t level, const char* text) {
    mLogger.log(level, callerName, kLogFlags) << text;
    mDebugPrint("%s %s", callerName, text);
  };
  const platform::Handle events[] = {dataEvent, mGeneralStopEvent};
  switch (platform::waitForAny(2, events, mRxWaitTimeout)) {
    case 0: reportWait(kInfo, "- WaitForRx - dataEvent was signaled. \n"); return true;
    case 1: reportWait(kInfo, "- WaitForRx - generalStopEvent was signaled. \n"); return false;
    case platform::kWaitTimeout:
      reportWait(kError, "- WaitForRx - WAIT_TIMEOUT exceeded while waiting for Rx from Dorv. \n");
      return false;
    default: reportWait(kError, "- WaitForRx - Unknown Error on wait for Rx from Dorv. \n"); return false;
  }
}

/// Waits for the answer of a sequence and takes it: a block that is the caller's, or null with the reason in the log.
/// After a failed wait the sequence stays open and keeps its number, so that a late answer cannot reach another task.
task* BrelEngine::GetRxMsgBuf(const char* callerName, std::uint32_t seqNum, platform::Handle dataEvent) {
  if (!WaitForRx(callerName, dataEvent)) return nullptr;

  const auto failed = [&](const char* text, const char* consoleFormat) {
    mLogger.log(kError, callerName, kLogFlags) << text << seqNum << ", event handle " << dataEvent << " \n";
    mDebugPrint(consoleFormat, callerName, static_cast<int>(seqNum), HandleNumber(dataEvent));
    return nullptr;
  };
  std::uint32_t TUI = 0;
  std::uint8_t* tmpBuffer = nullptr;
  std::uint32_t tmpBufferSize = 0;
  bool isStream = false;
  if (mTasksSequencer.RetrieveDataBySeqNum(seqNum, &TUI, &tmpBuffer, &tmpBufferSize, &isStream) != SEQ_RETRIEVE_OK) {
    return failed("- GetRxMsgBuf - could not find data for sequence number ",
                  "%s - GetRxMsgBuf - could not find data for sequence number %d, event handle %d \n");
  }
  if (tmpBuffer == nullptr) {
    return failed("- GetRxMsgBuf - data was NULL for sequence number ",
                  "%s - GetRxMsgBuf - data was NULL for for sequence number %d, event handle %d \n");
  }
  auto response = mKeptBlocks.hold(reinterpret_cast<task*>(tmpBuffer));
  if (tmpBufferSize == 0) {
    return failed("- GetRxMsgBuf - data size was 0 for sequence number ",
                  "%s - GetRxMsgBuf - data size was 0 for sequence number %d, event handle %d \n");
  }
  if (isStream) {
    if (mTasksSequencer.InsertAckBySeqNum(seqNum) != SEQ_INSERT_OK) {
      mLogger.log(kError, callerName, kLogFlags)
          << "- GetRxMsgBuf - could not insert ack related to sequence number " << seqNum << " \n";
      mDebugPrint("%s - GetRxMsgBuf - could not insert ack related to sequence number %d \n", callerName,
                  static_cast<int>(seqNum));
      return nullptr;
    }
  } else if (mTasksSequencer.FreeSequence(seqNum) != SEQ_FREE_OK) {
    return failed("- GetRxMsgBuf - could not free sequence number ",
                  "%s - GetRxMsgBuf - could not free sequence number %d, event handle %d \n");
  }
  DumpResponseBuffer(response.get(), tmpBufferSize);
  return response.release();
}

}  // namespace kel
