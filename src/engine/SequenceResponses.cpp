#include "engine/SequenceResponses.h"

#include "adapter/TaskRecord.h"
#include "engine/BrelEngine.h"
#include "engine/Instances.h"
#include "platform/memory.h"

namespace kel {
namespace {

constexpr const char* kHandle = "HandleSequenceResponse";

/// What a client's callback is called with.
struct Delivery {
  std::uint32_t errorCode;
  std::uint32_t commandID;
  std::uint32_t sequenceByte;  ///< as it came, class bits included
  std::uint32_t streamEnd;
  std::uint32_t isRef;
  task* record;
  std::uint32_t size;
};

/// The data of an exported task's callback: the payload, or for an error the record itself with size 0.
struct InvokeData {
  explicit InvokeData(const Delivery& delivery) {
    const bool isError = delivery.errorCode != 0;
    data = isError ? reinterpret_cast<std::uint8_t*>(delivery.record) : PayloadOf(delivery.record);
    size = isError ? 0 : delivery.record->payloadSize;
    seqTUI = isError ? 0 : delivery.record->seqTUI;
  }
  std::uint8_t* data;
  std::uint32_t size;
  std::uint32_t seqTUI;
};

void FireIssueCallback(OpaqueCallback callback, const Delivery& d) {
  reinterpret_cast<IssueAsyncCommandCallback>(callback)(d.commandID, d.sequenceByte, d.record, d.size);
}

void FireIssueStreamCallback(OpaqueCallback callback, const Delivery& d) {
  reinterpret_cast<IssueStreamCallback>(callback)(d.commandID, d.sequenceByte, d.streamEnd, d.record, d.size);
}

void FireInvokeCallback(OpaqueCallback callback, const Delivery& d) {
  const InvokeData payload(d);
  reinterpret_cast<KEL_AsyncCallback>(callback)(d.errorCode, d.commandID, d.sequenceByte, d.isRef, payload.data,
                                                payload.size, payload.seqTUI);
}

void FireInvokeStreamCallback(OpaqueCallback callback, const Delivery& d) {
  const InvokeData payload(d);
  reinterpret_cast<KEL_StreamCallback>(callback)(d.errorCode, d.commandID, d.sequenceByte, d.streamEnd, d.isRef,
                                                 payload.data, payload.size, payload.seqTUI);
}

}  // namespace

// ---------------------------------------------------------------------------------------------------------------------
// By handle
// ---------------------------------------------------------------------------------------------------------------------

std::uint32_t ProcessSequenceData(std::uint32_t engineHandle, std::uint32_t seqNum, std::uint32_t errorCode,
                                  std::uint8_t* buffer, std::uint32_t bufferSize) {
  const std::shared_ptr<BrelEngine> engine = GetBrelInst(engineHandle);
  if (engine == nullptr) return 0;
  engine->HandleSequenceResponse(seqNum, errorCode, buffer, bufferSize);
  return 1;
}

std::uint32_t RetrieveNextAsyncBufferByHandle(std::uint32_t engineHandle, platform::Handle /*unused*/,
                                              std::uint32_t seqNum, std::uint8_t** buffer, std::uint32_t* bufferSize) {
  constexpr std::uint32_t kNoEngine = 7;
  *buffer = nullptr;
  *bufferSize = 0;
  const std::shared_ptr<BrelEngine> engine = GetBrelInst(engineHandle);
  return engine != nullptr ? engine->RetrieveNextAsyncBuffer(seqNum, buffer, bufferSize) : kNoEngine;
}

bool FreeSequenceByHandle(std::uint32_t engineHandle, std::uint32_t seqNum) {
  const std::shared_ptr<BrelEngine> engine = GetBrelInst(engineHandle);
  return engine != nullptr && engine->FreeSequence(seqNum);
}

void SetResponseStatus(std::uint8_t* record, std::uint32_t errorCode) {
  reinterpret_cast<task*>(record)->errorCode = errorCode;
}

void BuildErrorResponse(std::uint32_t TUI, std::uint32_t errorCode, std::uint8_t** clonedBuffer,
                        std::uint32_t* clonedBufferSize) {
  auto* record = static_cast<task*>(AllocateBlock(BrelTaskRecordCapacity));
  record->TUI = MakeSeqTUI(TUI, 0);
  record->errorCode = errorCode;
  record->seqTUI = 0;
  record->payloadSize = 0;
  *clonedBuffer = reinterpret_cast<std::uint8_t*>(record);
  *clonedBufferSize = sizeof(task);
}

// ---------------------------------------------------------------------------------------------------------------------
// Delivery
// ---------------------------------------------------------------------------------------------------------------------

/// Each return of false leaves mInitLock with this thread for good: meant. Whoever enters it afterwards waits for ever.
bool BrelEngine::HandleSequenceResponse(std::uint32_t seqNum, std::uint32_t errorCode, std::uint8_t* buffer,
                                        std::uint32_t bufferSize) {
  mInitLock.enter();
  if (!mInitialized) {
    mInitLock.leave();
    return true;
  }
  // Where there is no record, the number that was given tells the sequence, and reads as an ACK.
  std::uint32_t sequenceByte = seqNum;
  std::uint32_t type = 0;
  if (errorCode == 0 && buffer != nullptr) {
    const std::uint32_t word = reinterpret_cast<const task*>(buffer)->TUI;
    sequenceByte = GetTuiSeqNum(word);
    type = GetTuiType(word);
  }
  const std::uint32_t coreSeqNum = GetCoreSeqNum(sequenceByte);
  const SeqNumType seqNumType = GetSeqNumType(sequenceByte);

  const auto tell = [&](std::uint32_t level, const char* text, const char* consoleFormat) {
    reportAsyncThread(level, kHandle, coreSeqNum, text, consoleFormat);
    return false;
  };
  tell(kInfo, "getting callbacks. \n", "HandleSequenceResponse - getting callbacks for sequence number %d \n");
  ApiType apiType = BREL_NO_API_TYPE;
  std::uint32_t commandID = 0, TUI = 0;
  OpaqueCallback seqCallbackFunc = nullptr, streamCallbackFunc = nullptr;
  bool isStream = false;
  if (mTasksSequencer.RetrieveCallbacksBySeqNum(coreSeqNum, &apiType, &commandID, &TUI, &seqCallbackFunc,
                                                &streamCallbackFunc, &isStream) != SEQ_RETRIEVE_OK) {
    return tell(kError, "could not retrieve data. \n",
                "HandleSequenceResponse - could not retrieve data related to sequence number %d \n");
  }
  if (buffer == nullptr && errorCode == 0) {
    return tell(kError, "NULL buffer. \n", "HandleSequenceResponse - NULL buffer for sequence number %d \n");
  }

  std::uint8_t* clonedBuffer = buffer;
  std::uint32_t clonedBufferSize = bufferSize;
  std::uint32_t dataSize = 0;
  if (errorCode != 0) {
    BuildErrorResponse(TUI, errorCode, &clonedBuffer, &clonedBufferSize);
    dataSize = clonedBufferSize;
    tell(kError, "error code signalled. \n",
         "HandleSequenceResponse - error code signalled for sequence number %d \n");
  } else {
    SetResponseStatus(clonedBuffer, errorCode);
    dataSize = reinterpret_cast<const task*>(clonedBuffer)->payloadSize;
  }
  DumpResponseBuffer(reinterpret_cast<const task*>(clonedBuffer), clonedBufferSize);
  tell(kInfo, "firing callback. \n", "HandleSequenceResponse - firing callback for sequence number %d \n");

  const std::uint32_t streamEnd = seqNumType == SEQ_NUM_STREAM_END ? 1 : 0;
  const Delivery delivery{errorCode, commandID,  sequenceByte, streamEnd, type != 0 ? 1u : 0u,
                          reinterpret_cast<task*>(clonedBuffer), dataSize};
  const auto told = [&](const char* text, const char* consoleFormat) { tell(kInfo, text, consoleFormat); };
  const auto unspecified = [&] {
    mLogger.log(kError, kHandle, kLogFlags) << "(" << coreSeqNum << ") - Error: apiType = "
                                            << static_cast<std::uint32_t>(apiType) << ". Unspecified handling. \n";
    // The line has one conversion for two numbers, and shows the first: meant.
    mDebugPrint("%s%d \n", "HandleSequenceResponse - Error: apiType = &d. Unspecified handling. Sequence number ",
                static_cast<int>(apiType));
  };
  const auto ofIssueCommand = [&] {
    told("apiType = BREL_ISSUE_COMMAND. \n",
         "HandleSequenceResponse - apiType = BREL_ISSUE_COMMAND. Sequence number %d \n");
  };
  const auto ofInvokeTask = [&] {
    told("apiType = BREL_INVOKE_TASK. \n",
         "HandleSequenceResponse - apiType = BREL_INVOKE_TASK. Sequence number %d \n");
  };

  switch (seqNumType) {
    case SEQ_NUM_ACK:
      told("handling ACK. \n", "HandleSequenceResponse - handling ACK for sequence number %d \n");
      if (seqCallbackFunc == nullptr) {
        tell(kWarning, "NULL seqCallbackFunc. \n",
             "HandleSequenceResponse - NULL seqCallbackFunc for sequence number %d \n");
      } else if (apiType == BREL_ISSUE_COMMAND) {
        told("firing issueAsyncCommandCallback. \n",
             "HandleSequenceResponse - firing issueAsyncCommandCallback for sequence number %d \n");
        ofIssueCommand();
        FireIssueCallback(seqCallbackFunc, delivery);
      } else if (apiType == BREL_INVOKE_TASK) {
        told("firing invokeAsyncTaskCallback. \n",
             "HandleSequenceResponse - firing invokeAsyncTaskCallback for sequence number %d \n");
        ofInvokeTask();
        FireInvokeCallback(seqCallbackFunc, delivery);
      } else {
        unspecified();
      }
      break;

    case SEQ_NUM_STREAM_MESSAGE:
    case SEQ_NUM_STREAM_END:
      if (seqNumType == SEQ_NUM_STREAM_END) {
        told("handling Stream_END. \n", "HandleSequenceResponse - handling Stream_END for sequence number %d \n");
      } else {
        told("handling Stream_MESSAGE. \n",
             "HandleSequenceResponse - handling Stream_MESSAGE for sequence number %d \n");
      }
      mLogger.log(kInfo, kHandle, kLogFlags) << "(" << coreSeqNum << ") - streamEnd flag = "
                                             << (streamEnd != 0 ? "TRUE (" : "FALSE (") << streamEnd << "). \n";
      mDebugPrint("HandleSequenceResponse - streamEnd flag = %s (%d) for sequence number %d \n",
                  streamEnd != 0 ? "TRUE" : "FALSE", static_cast<int>(streamEnd), static_cast<int>(coreSeqNum));
      if (!isStream) {
        return tell(kError, "got stream seqNumType for sequence number which is not a stream. \n",
                    "HandleSequenceResponse - got stream seqNumType for sequence number %d which is not a stream. \n");
      }
      if (streamCallbackFunc == nullptr) {
        tell(kWarning, "NULL streamCallbackFunc. \n",
             "HandleSequenceResponse - NULL streamCallbackFunc for sequence number %d \n");
      } else if (apiType == BREL_ISSUE_COMMAND) {
        told("firing issueStreamCallback. \n",
             "HandleSequenceResponse - firing issueStreamCallback for sequence number %d \n");
        ofIssueCommand();
        FireIssueStreamCallback(streamCallbackFunc, delivery);
      } else if (apiType == BREL_INVOKE_TASK) {
        told("firing invokeStreamCallback. \n",
             "HandleSequenceResponse - firing invokeStreamCallback for sequence number %d \n");
        ofInvokeTask();
        FireInvokeStreamCallback(streamCallbackFunc, delivery);
      } else {
        unspecified();
      }
      break;

    case SEQ_NUM_UNKNOWN:
      mLogger.log(kError, kHandle, kLogFlags) << "(" << coreSeqNum << ") - undefined seqNumType ("
                                              << static_cast<std::uint32_t>(seqNumType) << ") arrived. \n";
      mDebugPrint("HandleSequenceResponse - could undefined seqNumType (%d) arrived for seqNum  \n",
                  static_cast<int>(seqNumType));
      return false;
  }

  if (!endSequence(coreSeqNum, seqNumType, isStream)) return false;
  tell(kInfo, "sequence response handled successfully. \n",
       "HandleSequenceResponse - sequence response handled successfully \n");
  mInitLock.leave();
  return true;
}

/// Ends the sequence if this was its last answer: a plain one with its one answer, a stream with a Stream_END that finds
/// the ACK seen. False if that could not be found out or done.
bool BrelEngine::endSequence(std::uint32_t coreSeqNum, SeqNumType seqNumType, bool isStream) {
  const auto tell = [&](std::uint32_t level, const char* text, const char* consoleFormat) {
    reportAsyncThread(level, kHandle, coreSeqNum, text, consoleFormat);
    return false;
  };
  tell(kInfo, "checking sequence end. \n", "HandleSequenceResponse - checking sequence end for sequence number %d \n");
  bool ended = false;
  if (seqNumType == SEQ_NUM_ACK && !isStream) {
    ended = true;
  } else if (seqNumType == SEQ_NUM_ACK) {
    if (mTasksSequencer.InsertAckBySeqNum(coreSeqNum) != SEQ_INSERT_OK) {
      return tell(kError, "could not insert ack. \n",
                  "HandleSequenceResponse - could not insert ack related to sequence number %d \n");
    }
  } else if (seqNumType == SEQ_NUM_STREAM_END) {
    if (mTasksSequencer.RetrieveAckBySeqNum(coreSeqNum, &ended) != SEQ_RETRIEVE_OK) {
      return tell(kError, "could not retrieve ack. \n",
                  "HandleSequenceResponse - could not retrieve ack related to sequence number %d \n");
    }
  }
  if (!ended) return true;

  tell(kInfo, "running sequence end routine. \n",
       "HandleSequenceResponse - running sequence end routine for sequence number %d \n");
  if (!DisposeAsyncThread(coreSeqNum)) {
    return tell(kError, "could not dispose asyncThread. \n",
                "HandleSequenceResponse - could not dispose asyncThread for sequence number %d \n");
  }
  tell(kInfo, "finished sequence end routine. \n",
       "HandleSequenceResponse - finished sequence end routine for sequence number %d \n");
  return true;
}

// ---------------------------------------------------------------------------------------------------------------------
// The sequence's queue and its end
// ---------------------------------------------------------------------------------------------------------------------

std::uint32_t BrelEngine::RetrieveNextAsyncBuffer(std::uint32_t seqNum, std::uint8_t** buffer,
                                                  std::uint32_t* bufferSize) {
  const auto tell = [&](std::uint32_t level, const char* text, const char* consoleFormat) {
    reportAsyncThread(level, "RetrieveNextAsyncBuffer", seqNum, text, consoleFormat);
  };
  std::uint32_t TUI = 0;
  bool isStream = false;
  switch (mTasksSequencer.RetrieveNextAsyncBufferBySeqNum(seqNum, &TUI, buffer, bufferSize, &isStream)) {
    case SEQ_RETRIEVE_EMPTY:
      tell(kInfo, "empty asyncBuffersQueue. \n",
           "RetrieveNextAsyncBuffer - empty asyncBuffersQueue related to sequence number %d \n");
      return kNextBufferEmpty;
    case SEQ_RETRIEVE_OK:
      if (*buffer == nullptr) {
        tell(kError, "NULL data. \n", "RetrieveNextAsyncBuffer - NULL data related to sequence number %d \n");
      }
      tell(kInfo, "retrieved data. \n",
           "RetrieveNextAsyncBuffer - retrieved data related to sequence number %d \n");
      return kNextBufferTaken;
    default:
      tell(kError, "could not retrieve data. \n",
           "RetrieveNextAsyncBuffer - could not retrieve data related to sequence number %d \n");
      return kNextBufferFailed;
  }
}

bool BrelEngine::FreeSequence(std::uint32_t seqNum) {
  if (!freeElement(seqNum, "FreeSequence", "FreeSequence - could not free sequence number %d \n")) return false;
  DecreaseAsyncThreadsCount();
  return true;
}

bool BrelEngine::FreeSequenceElementOnly(std::uint32_t seqNum) {
  return freeElement(seqNum, "FreeSequenceElementOnly",
                     "FreeSequenceElementOnly - could not free sequence number %d \n");
}

bool BrelEngine::freeElement(std::uint32_t seqNum, const char* function, const char* consoleFormat) {
  if (mTasksSequencer.FreeSequence(seqNum) == SEQ_FREE_OK) return true;
  reportAsyncThread(kError, function, seqNum, "could not free sequence number. \n", consoleFormat);
  return false;
}

}  // namespace kel
