// SPDX-License-Identifier: MIT
#include "engine/IncomingData.h"

#include <cstring>
#include <memory>
#include <new>

#include "adapter/Dorv.h"
#include "engine/BrelEngine.h"
#include "engine/Instances.h"
#include "platform/memory.h"

namespace kel {
namespace {

constexpr const char* kCallback = "BrelEngineCallback";
constexpr const char* kAlertsCallback = "BrelEngineAlertsCallback";

task HeadOf(const std::uint8_t* record) {
  task head;
  std::memcpy(&head, record, sizeof head);
  return head;
}

/// Whether the buffer holds the record that it announces. What it does not hold is never read.
bool IsWhole(const std::uint8_t* record, std::uint32_t size) {
  return record != nullptr && size >= sizeof(task) && HeadOf(record).payloadSize <= size - sizeof(task);
}

std::uint32_t Process(std::uint32_t engineHandle, bool (BrelEngine::*handle)(const std::uint8_t*, std::uint32_t),
                      const std::uint8_t* buffer, std::uint32_t bufferSize) {
  const std::shared_ptr<BrelEngine> engine = GetBrelInst(engineHandle);
  if (engine == nullptr) return 0;
  ((*engine).*handle)(buffer, bufferSize);
  return 1;
}

}  // namespace

std::uint32_t BrelEngineCallback(std::uint32_t dorvHandle, const std::uint8_t* buffer, std::uint32_t bufferSize) {
  const platform::MutexScope lookUps;
  const std::shared_ptr<BrelEngine> engine = GetBrelInstByDorvHandle(dorvHandle);
  return engine != nullptr ? engine->TakeRecord(buffer, bufferSize) : 0;
}

std::uint32_t BrelEngineAlertsCallback(std::uint32_t dorvHandle, std::uint32_t errorCode) {
  const std::shared_ptr<BrelEngine> engine = GetBrelInstByDorvHandle(dorvHandle);
  return engine != nullptr ? engine->TakeAlert(errorCode) : 0;
}

std::uint32_t ProcessAlertData(std::uint32_t engineHandle, const std::uint8_t* buffer, std::uint32_t bufferSize) {
  return Process(engineHandle, &BrelEngine::HandleAlertResponse, buffer, bufferSize);
}

std::uint32_t ProcessBroadcastData(std::uint32_t engineHandle, const std::uint8_t* buffer, std::uint32_t bufferSize) {
  return Process(engineHandle, &BrelEngine::HandleBroadcastResponse, buffer, bufferSize);
}

// ---------------------------------------------------------------------------------------------------------------------
// On the pipe library's threads
// ---------------------------------------------------------------------------------------------------------------------

std::uint32_t BrelEngine::TakeRecord(const std::uint8_t* record, std::uint32_t size) {
  if (!IsWhole(record, size)) {
    report(kError, kCallback, "callback - error - invalid buffer received \n");
    return 0;
  }
  report(kInfo, kCallback, "callback - callback received \n");
  const std::uint32_t word = HeadOf(record).TUI;
  return GetTuiTarget(word) == kTargetBroadcast ? takeBroadcast(record, size) : takeResponse(word, record, size);
}

std::uint32_t BrelEngine::takeBroadcast(const std::uint8_t* record, std::uint32_t size) {
  if (!mBroadcastListenerActive) {
    report(kInfo, kCallback, "callback - Broadcast arrived but no broadcast callback exists \n");
    return 1;
  }
  if (mBroadcastListener.recvData(record, size) != LISTENER_DATA_TAKEN) {
    report(kError, kCallback, "could not insert data to broadcastListener \n");
    return 0;
  }
  report(kInfo, kCallback, "callback - Broadcast buffer copied & event set \n");
  return 1;
}

std::uint32_t BrelEngine::takeResponse(std::uint32_t word, const std::uint8_t* record, std::uint32_t size) {
  const std::uint32_t coreSeqNum = GetCoreSeqNum(GetTuiSeqNum(word));
  const SeqNumType seqNumType = GetSeqNumType(GetTuiSeqNum(word));
  switch (seqNumType) {
    case SEQ_NUM_ACK: report(kInfo, kCallback, "Got callback with ACK for sequence number ", coreSeqNum, " \n"); break;
    case SEQ_NUM_STREAM_MESSAGE:
      report(kInfo, kCallback, "Got callback with Stream_MESSAGE for sequence number ", coreSeqNum, " \n");
      break;
    case SEQ_NUM_STREAM_END:
      report(kInfo, kCallback, "Got callback with Stream_END for sequence number ", coreSeqNum, " \n");
      break;
    case SEQ_NUM_UNKNOWN:  // goes on as the others do
      report(kError, kCallback, "Got callback with unknown sequence number type for sequence number ", coreSeqNum,
             " \n");
      break;
  }

  platform::Handle syncDataEvent = nullptr, aSyncDataEvent = nullptr;
  AsyncListener* asyncListenerInstance = nullptr;
  bool isAsync = false, isStream = false;
  if (mTasksSequencer.RetrieveSequenceTypeInfoBySeqNum(coreSeqNum, &syncDataEvent, &aSyncDataEvent, &isAsync,
                                                       &isStream) != SEQ_RETRIEVE_OK) {
    report(kError, kCallback, "could not retrieve sequence type info for sequence number ", coreSeqNum, " \n");
    return 0;
  }

  // The one answer that a waiting thread gets, or else one for the sequence's listener thread.
  const bool synchronous = !isAsync && (!isStream || seqNumType == SEQ_NUM_ACK);
  const auto insert =
      synchronous ? &BrelTasksSequencer::InsertDataBySeqNum : &BrelTasksSequencer::InsertAsyncDataBySeqNum;
  if ((mTasksSequencer.*insert)(coreSeqNum, record, size, &syncDataEvent, &aSyncDataEvent, &asyncListenerInstance,
                                &isAsync, &isStream) != SEQ_INSERT_OK) {
    report(kError, kCallback,
           synchronous ? "could not insert Sync data to sequence number "
                       : "could not insert Async data to sequence number ",
           coreSeqNum, " \n");
    return 0;
  }
  const platform::Handle dataEvent = synchronous ? syncDataEvent : aSyncDataEvent;
  if (!platform::setEvent(dataEvent)) {
    const char* text =
        synchronous ? "callback - problem setting syncDataEvent " : "callback - problem setting aSyncDataEvent ";
    mLogger.log(kError, kCallback, kLogFlags)
        << text << dataEvent << " for sequence number " << coreSeqNum << " \n";
    mDebugPrint("%s%d for sequence number %d \n", text, HandleNumber(dataEvent), static_cast<int>(coreSeqNum));
    return 0;
  }
  report(kInfo, kCallback, "callback - Sequence buffer copied & event set \n");
  return 1;
}

std::uint32_t BrelEngine::TakeAlert(std::uint32_t errorCode) {
  if (!mInitialized) return 0;  // read without mInitLock, which a client's callback may be holding
  mLogger.log(kError, kAlertsCallback, kLogFlags) << "callback - errorCode = " << errorCode << " \n";
  mDebugPrint("Alerts callback - errorCode = %d \n", static_cast<int>(errorCode));
  if (!mAlertsListenerActive) {
    report(kInfo, kAlertsCallback, "callback - Alert arrived but no alerts callback exists \n");
    return 1;
  }
  // The listener makes a copy of its own.
  auto alert = mKeptBlocks.hold<std::uint8_t>(nullptr);
  try {
    alert.reset(CopyBlock(&errorCode, sizeof errorCode));
  } catch (const std::bad_alloc&) {  // an alert that cannot be queued
  }
  if (alert == nullptr || mAlertsListener.recvData(alert.get(), sizeof errorCode) != LISTENER_DATA_TAKEN) {
    report(kError, kAlertsCallback, "could not insert data to alertsListener \n");
    return 0;
  }
  report(kInfo, kAlertsCallback, "callback - Alert buffer copied & event set \n");
  return 1;
}

// ---------------------------------------------------------------------------------------------------------------------
// On the listener threads
// ---------------------------------------------------------------------------------------------------------------------

bool BrelEngine::HandleAlertResponse(const std::uint8_t* buffer, std::uint32_t /*bufferSize*/) {
  constexpr const char* kHandle = "HandleAlertResponse";
  if (mAlertsCallback == nullptr) {
    report(kInfo, kHandle, "No Alerts callback to invoke \n");
    return true;
  }
  const std::uint32_t errorCode = buffer[0];
  const Status status = TranslateDorvStatus(errorCode);
  const platform::InSection inLock(mInitLock);
  if (!mInitialized && errorCode == DORV_SOCKET_WAS_CLOSED_BY_PEER) {
    report(kInfo, kHandle,
           "Brel not initialized & errorCode = DORV_SOCKET_WAS_CLOSED_BY_PEER. Will not invoke Alerts callback. \n");
    return true;
  }
  report(kInfo, kHandle, "Invoking Alerts callback \n");
  [&]() noexcept { mAlertsCallback(status); }();  // an exception of the client's ends the program
  report(kInfo, kHandle, "Alerts callback returned \n");
  return true;
}

bool BrelEngine::HandleBroadcastResponse(const std::uint8_t* buffer, std::uint32_t bufferSize) try {
  DumpResponseBuffer(reinterpret_cast<const task*>(buffer), bufferSize);
  if (mBroadcastCallback == nullptr) return true;
  const platform::InSection inLock(mInitLock);
  if (!mInitialized) return true;
  const task head = HeadOf(buffer);
  std::unique_ptr<std::uint8_t, decltype(&std::free)> payload(CopyBlock(buffer + sizeof(task), head.payloadSize),
                                                              std::free);
  char* TUIname = nullptr;
  mTUIsList.FindNameByTui("HandleBroadcastResponse", head.TUI, &TUIname);
  // Both blocks are the client's from here on. An exception of the client's is not one of ours, and ends the program.
  [&]() noexcept {
    mBroadcastCallback(TUIname, GetTuiType(head.TUI) != 0 ? 1 : 0, payload.release(), head.payloadSize, head.seqTUI);
  }();
  return true;
} catch (const std::bad_alloc&) {
  report(kError, "HandleBroadcastResponse", "no memory for a broadcast, which is dropped \n");
  return true;
}

}  // namespace kel
