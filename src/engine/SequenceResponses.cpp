// SPDX-License-Identifier: MIT
#include "engine/SequenceResponses.h"

#include "adapter/TaskRecord.h"
#include "engine/BrelEngine.h"
#include "engine/Instances.h"
#include "platform/memory.h"

namespace kel {

/// One answer, or the lack of one: whose it is and what the client gets of it.
struct SequenceAnswer {
  // As it came. A lack has no record: the number under which it is reported stands for the byte, and reads as an ACK.
  std::uint32_t errorCode = 0;     ///< 0: there is an answer
  std::uint32_t sequenceByte = 0;  ///< class bits included
  std::uint32_t isRef = 0;

  // What its sequence was opened with.
  ApiType apiType = BREL_NO_API_TYPE;
  std::uint32_t commandID = 0;
  std::uint32_t TUI = 0;
  OpaqueCallback callbackFunc = nullptr;
  OpaqueCallback streamCallbackFunc = nullptr;
  bool isStream = false;

  // What is delivered.
  task* record = nullptr;
  std::uint32_t dataSize = 0;
  task spare{};  ///< the record of a lack for which there is no block

  std::uint32_t coreSeqNum() const { return GetCoreSeqNum(sequenceByte); }
  SeqNumType seqNumType() const { return GetSeqNumType(sequenceByte); }
  /// The block of a lack, or null.
  task* errorRecord() const { return errorCode != 0 && record != &spare ? record : nullptr; }
  std::uint32_t streamEnd() const { return seqNumType() == SEQ_NUM_STREAM_END ? 1 : 0; }
};

namespace {

constexpr const char* kHandle = "HandleSequenceResponse";

void WriteError(task* record, std::uint32_t TUI, std::uint32_t errorCode) {
  record->TUI = MakeSeqTUI(TUI, 0);
  record->errorCode = errorCode;
  record->seqTUI = 0;
  record->payloadSize = 0;
}

SequenceAnswer ReadAnswer(std::uint32_t seqNum, std::uint32_t errorCode, const std::uint8_t* buffer) {
  SequenceAnswer answer;
  answer.errorCode = errorCode;
  answer.sequenceByte = seqNum;
  if (errorCode == 0 && buffer != nullptr) {
    const std::uint32_t word = reinterpret_cast<const task*>(buffer)->TUI;
    answer.sequenceByte = GetTuiSeqNum(word);
    answer.isRef = GetTuiType(word) != 0 ? 1 : 0;
  }
  return answer;
}

// ---------------------------------------------------------------------------------------------------------------------
// The forms of the client's callback
// ---------------------------------------------------------------------------------------------------------------------

/// One form, with the two lines ahead of the call.
struct CallbackForm {
  const char* firing;
  const char* firingConsole;
  const char* apiType;
  const char* apiTypeConsole;
  /// An exception of the client's is not one of ours, and ends the program.
  void (*call)(OpaqueCallback callback, const SequenceAnswer& answer) noexcept;
};

constexpr const char* kOfIssueCommand = ") - apiType = BREL_ISSUE_COMMAND. \n";
constexpr const char* kOfIssueCommandConsole =
    "HandleSequenceResponse - apiType = BREL_ISSUE_COMMAND. Sequence number %d \n";
constexpr const char* kOfInvokeTask = ") - apiType = BREL_INVOKE_TASK. \n";
constexpr const char* kOfInvokeTaskConsole =
    "HandleSequenceResponse - apiType = BREL_INVOKE_TASK. Sequence number %d \n";

/// The data of an exported task's callback: the payload, or for an error the record itself with size 0.
struct InvokeData {
  explicit InvokeData(const SequenceAnswer& answer) {
    const bool isError = answer.errorCode != 0;
    data = isError ? reinterpret_cast<std::uint8_t*>(answer.record) : PayloadOf(answer.record);
    size = isError ? 0 : answer.record->payloadSize;
    seqTUI = isError ? 0 : answer.record->seqTUI;
  }
  std::uint8_t* data;
  std::uint32_t size;
  std::uint32_t seqTUI;
};

constexpr CallbackForm kIssueAsyncCommandCallback{
    ") - firing issueAsyncCommandCallback. \n",
    "HandleSequenceResponse - firing issueAsyncCommandCallback for sequence number %d \n",
    kOfIssueCommand, kOfIssueCommandConsole,
    [](OpaqueCallback callback, const SequenceAnswer& a) noexcept {
      reinterpret_cast<IssueAsyncCommandCallback>(callback)(a.commandID, a.sequenceByte, a.record, a.dataSize);
    }};

constexpr CallbackForm kIssueStreamCallback{
    ") - firing issueStreamCallback. \n",
    "HandleSequenceResponse - firing issueStreamCallback for sequence number %d \n",
    kOfIssueCommand, kOfIssueCommandConsole,
    [](OpaqueCallback callback, const SequenceAnswer& a) noexcept {
      reinterpret_cast<IssueStreamCallback>(callback)(a.commandID, a.sequenceByte, a.streamEnd(), a.record, a.dataSize);
    }};

constexpr CallbackForm kInvokeAsyncTaskCallback{
    ") - firing invokeAsyncTaskCallback. \n",
    "HandleSequenceResponse - firing invokeAsyncTaskCallback for sequence number %d \n",
    kOfInvokeTask, kOfInvokeTaskConsole,
    [](OpaqueCallback callback, const SequenceAnswer& a) noexcept {
      const InvokeData payload(a);
      reinterpret_cast<KEL_AsyncCallback>(callback)(a.errorCode, a.commandID, a.sequenceByte, a.isRef, payload.data,
                                                    payload.size, payload.seqTUI);
    }};

constexpr CallbackForm kInvokeStreamCallback{
    ") - firing invokeStreamCallback. \n",
    "HandleSequenceResponse - firing invokeStreamCallback for sequence number %d \n",
    kOfInvokeTask, kOfInvokeTaskConsole,
    [](OpaqueCallback callback, const SequenceAnswer& a) noexcept {
      const InvokeData payload(a);
      reinterpret_cast<KEL_StreamCallback>(callback)(a.errorCode, a.commandID, a.sequenceByte, a.streamEnd(), a.isRef,
                                                     payload.data, payload.size, payload.seqTUI);
    }};

/// Null for a sequence that no front call with a callback opened.
const CallbackForm* FormFor(const SequenceAnswer& answer) {
  const bool isAck = answer.seqNumType() == SEQ_NUM_ACK;
  switch (answer.apiType) {
    case BREL_ISSUE_COMMAND: return isAck ? &kIssueAsyncCommandCallback : &kIssueStreamCallback;
    case BREL_INVOKE_TASK: return isAck ? &kInvokeAsyncTaskCallback : &kInvokeStreamCallback;
    default: return nullptr;
  }
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
  *clonedBuffer = static_cast<std::uint8_t*>(AllocateBlock(BrelTaskRecordCapacity));
  WriteError(reinterpret_cast<task*>(*clonedBuffer), TUI, errorCode);
  *clonedBufferSize = sizeof(task);
}

// ---------------------------------------------------------------------------------------------------------------------
// HandleSequenceResponse and its steps
// ---------------------------------------------------------------------------------------------------------------------

bool BrelEngine::HandleSequenceResponse(std::uint32_t seqNum, std::uint32_t errorCode, std::uint8_t* buffer,
                                        std::uint32_t bufferSize) {
  // A failure leaves mInitLock with this thread for good: this engine then delivers no answer, broadcast or alert any
  // more, and Finalize() on another thread waits for ever. The ways out that leave the lock say so one by one.
  constexpr bool kFailedAndInitLockKept = false;

  mInitLock.enter();
  if (!mInitialized) {
    mInitLock.leave();
    return true;
  }
  SequenceAnswer answer = ReadAnswer(seqNum, errorCode, buffer);
  if (!findSequence(&answer)) return kFailedAndInitLockKept;
  if (buffer == nullptr && errorCode == 0) {
    failHandling(answer.coreSeqNum(), ") - NULL buffer. \n",
                 "HandleSequenceResponse - NULL buffer for sequence number %d \n");
    return kFailedAndInitLockKept;
  }
  takeAnswer(&answer, buffer, bufferSize);
  const auto errorRecord = mKeptBlocks.hold(answer.errorRecord());
  if (!deliver(answer)) return kFailedAndInitLockKept;
  bool ended = false;
  if (!checkSequenceEnd(answer, &ended)) return kFailedAndInitLockKept;
  if (ended && !endSequence(answer.coreSeqNum())) return kFailedAndInitLockKept;
  reportHandling(kInfo, answer.coreSeqNum(), ") - sequence response handled successfully. \n",
                 "HandleSequenceResponse - sequence response handled successfully \n");
  mInitLock.leave();
  return true;
}

void BrelEngine::reportHandling(std::uint32_t level, std::uint32_t coreSeqNum, const char* text,
                                const char* consoleFormat) {
  reportAsyncThread(level, kHandle, coreSeqNum, text, consoleFormat);
}

bool BrelEngine::failHandling(std::uint32_t coreSeqNum, const char* text, const char* consoleFormat) {
  reportHandling(kError, coreSeqNum, text, consoleFormat);
  return false;
}

bool BrelEngine::findSequence(SequenceAnswer* answer) {
  const std::uint32_t coreSeqNum = answer->coreSeqNum();
  reportHandling(kInfo, coreSeqNum, ") - getting callbacks. \n",
                 "HandleSequenceResponse - getting callbacks for sequence number %d \n");
  if (mTasksSequencer.RetrieveCallbacksBySeqNum(coreSeqNum, &answer->apiType, &answer->commandID, &answer->TUI,
                                                &answer->callbackFunc, &answer->streamCallbackFunc,
                                                &answer->isStream) == SEQ_RETRIEVE_OK) {
    return true;
  }
  return failHandling(coreSeqNum, ") - could not retrieve data. \n",
                      "HandleSequenceResponse - could not retrieve data related to sequence number %d \n");
}

/// The record is the answer itself, with no copy made, or a new one that tells of the error.
void BrelEngine::takeAnswer(SequenceAnswer* answer, std::uint8_t* buffer, std::uint32_t bufferSize) {
  std::uint8_t* clonedBuffer = buffer;
  std::uint32_t clonedBufferSize = bufferSize;
  if (answer->errorCode != 0) {
    try {
      BuildErrorResponse(answer->TUI, answer->errorCode, &clonedBuffer, &clonedBufferSize);
    } catch (const std::bad_alloc&) {  // its client must be told all the same
      WriteError(&answer->spare, answer->TUI, answer->errorCode);
      clonedBuffer = reinterpret_cast<std::uint8_t*>(&answer->spare);
      clonedBufferSize = sizeof answer->spare;
    }
    answer->record = reinterpret_cast<task*>(clonedBuffer);
    answer->dataSize = clonedBufferSize;
    reportHandling(kError, answer->coreSeqNum(), ") - error code signalled. \n",
                   "HandleSequenceResponse - error code signalled for sequence number %d \n");
  } else {
    SetResponseStatus(clonedBuffer, answer->errorCode);
    answer->record = reinterpret_cast<task*>(clonedBuffer);
    answer->dataSize = answer->record->payloadSize;
  }
  DumpResponseBuffer(answer->record, clonedBufferSize);
}

/// Calls the client. False for an answer that its sequence cannot have.
bool BrelEngine::deliver(const SequenceAnswer& answer) {
  const std::uint32_t coreSeqNum = answer.coreSeqNum();
  const std::uint32_t streamEnd = answer.streamEnd();
  reportHandling(kInfo, coreSeqNum, ") - firing callback. \n",
                 "HandleSequenceResponse - firing callback for sequence number %d \n");
  switch (answer.seqNumType()) {
    case SEQ_NUM_ACK:
      reportHandling(kInfo, coreSeqNum, ") - handling ACK. \n",
                     "HandleSequenceResponse - handling ACK for sequence number %d \n");
      if (answer.callbackFunc != nullptr) {
        callClient(answer, answer.callbackFunc);
      } else {
        reportHandling(kWarning, coreSeqNum, ") - NULL seqCallbackFunc. \n",
                       "HandleSequenceResponse - NULL seqCallbackFunc for sequence number %d \n");
      }
      return true;
    case SEQ_NUM_STREAM_MESSAGE:
      reportHandling(kInfo, coreSeqNum, ") - handling Stream_MESSAGE. \n",
                     "HandleSequenceResponse - handling Stream_MESSAGE for sequence number %d \n");
      mLogger.log(kInfo, kHandle, kLogFlags)
          << "(" << coreSeqNum << ") - streamEnd flag = FALSE (" << streamEnd << "). \n";
      mDebugPrint("HandleSequenceResponse - streamEnd flag = FALSE (%d) for sequence number %d \n",
                  static_cast<int>(streamEnd), static_cast<int>(coreSeqNum));
      break;
    case SEQ_NUM_STREAM_END:
      reportHandling(kInfo, coreSeqNum, ") - handling Stream_END. \n",
                     "HandleSequenceResponse - handling Stream_END for sequence number %d \n");
      mLogger.log(kInfo, kHandle, kLogFlags)
          << "(" << coreSeqNum << ") - streamEnd flag = TRUE (" << streamEnd << "). \n";
      mDebugPrint("HandleSequenceResponse - streamEnd flag = TRUE (%d) for sequence number %d \n",
                  static_cast<int>(streamEnd), static_cast<int>(coreSeqNum));
      break;
    case SEQ_NUM_UNKNOWN:
      mLogger.log(kError, kHandle, kLogFlags) << "(" << coreSeqNum << ") - undefined seqNumType ("
                                              << std::uint32_t{SEQ_NUM_UNKNOWN} << ") arrived. \n";
      mDebugPrint("HandleSequenceResponse - could undefined seqNumType (%d) arrived for seqNum  \n",
                  static_cast<int>(SEQ_NUM_UNKNOWN));
      return false;
  }

  if (!answer.isStream) {
    return failHandling(
        coreSeqNum, ") - got stream seqNumType for sequence number which is not a stream. \n",
        "HandleSequenceResponse - got stream seqNumType for sequence number %d which is not a stream. \n");
  }
  if (answer.streamCallbackFunc != nullptr) {
    callClient(answer, answer.streamCallbackFunc);
  } else {
    reportHandling(kWarning, coreSeqNum, ") - NULL streamCallbackFunc. \n",
                   "HandleSequenceResponse - NULL streamCallbackFunc for sequence number %d \n");
  }
  return true;
}

void BrelEngine::callClient(const SequenceAnswer& answer, OpaqueCallback callback) {
  const std::uint32_t coreSeqNum = answer.coreSeqNum();
  const CallbackForm* form = FormFor(answer);
  if (form == nullptr) {
    mLogger.log(kError, kHandle, kLogFlags) << "(" << coreSeqNum << ") - Error: apiType = "
                                            << std::uint32_t{answer.apiType} << ". Unspecified handling. \n";
    // The console shows the apiType where its text speaks of the sequence number: log readers know the line like this.
    mDebugPrint("HandleSequenceResponse - Error: apiType = &d. Unspecified handling. Sequence number %d \n",
                static_cast<int>(answer.apiType));
    return;
  }
  reportHandling(kInfo, coreSeqNum, form->firing, form->firingConsole);
  reportHandling(kInfo, coreSeqNum, form->apiType, form->apiTypeConsole);
  form->call(callback, answer);
}

/// A plain sequence ends with its one answer, a stream with a Stream_END that finds the ACK already seen.
bool BrelEngine::checkSequenceEnd(const SequenceAnswer& answer, bool* ended) {
  const std::uint32_t coreSeqNum = answer.coreSeqNum();
  *ended = false;
  reportHandling(kInfo, coreSeqNum, ") - checking sequence end. \n",
                 "HandleSequenceResponse - checking sequence end for sequence number %d \n");
  const SeqNumType seqNumType = answer.seqNumType();
  if (seqNumType == SEQ_NUM_ACK && !answer.isStream) {
    *ended = true;
  } else if (seqNumType == SEQ_NUM_ACK) {
    if (mTasksSequencer.InsertAckBySeqNum(coreSeqNum) != SEQ_INSERT_OK) {
      return failHandling(coreSeqNum, ") - could not insert ack. \n",
                          "HandleSequenceResponse - could not insert ack related to sequence number %d \n");
    }
  } else if (seqNumType == SEQ_NUM_STREAM_END) {
    if (mTasksSequencer.RetrieveAckBySeqNum(coreSeqNum, ended) != SEQ_RETRIEVE_OK) {
      return failHandling(coreSeqNum, ") - could not retrieve ack. \n",
                          "HandleSequenceResponse - could not retrieve ack related to sequence number %d \n");
    }
  }
  return true;
}

/// Sets this thread's own stop event; the thread frees the sequence when it sees that.
bool BrelEngine::endSequence(std::uint32_t coreSeqNum) {
  reportHandling(kInfo, coreSeqNum, ") - running sequence end routine. \n",
                 "HandleSequenceResponse - running sequence end routine for sequence number %d \n");
  if (!DisposeAsyncThread(coreSeqNum)) {
    return failHandling(coreSeqNum, ") - could not dispose asyncThread. \n",
                        "HandleSequenceResponse - could not dispose asyncThread for sequence number %d \n");
  }
  reportHandling(kInfo, coreSeqNum, ") - finished sequence end routine. \n",
                 "HandleSequenceResponse - finished sequence end routine for sequence number %d \n");
  return true;
}

// ---------------------------------------------------------------------------------------------------------------------
// The sequence's queue and its end
// ---------------------------------------------------------------------------------------------------------------------

std::uint32_t BrelEngine::RetrieveNextAsyncBuffer(std::uint32_t seqNum, std::uint8_t** buffer,
                                                  std::uint32_t* bufferSize) {
  const auto reportRetrieval = [&](std::uint32_t level, const char* text, const char* consoleFormat) {
    reportAsyncThread(level, "RetrieveNextAsyncBuffer", seqNum, text, consoleFormat);
  };
  std::uint32_t TUI = 0;
  bool isStream = false;
  switch (mTasksSequencer.RetrieveNextAsyncBufferBySeqNum(seqNum, &TUI, buffer, bufferSize, &isStream)) {
    case SEQ_RETRIEVE_EMPTY:
      reportRetrieval(kInfo, ") - empty asyncBuffersQueue. \n",
                      "RetrieveNextAsyncBuffer - empty asyncBuffersQueue related to sequence number %d \n");
      return kNextBufferEmpty;
    case SEQ_RETRIEVE_OK:
      if (*buffer == nullptr) {
        reportRetrieval(kError, ") - NULL data. \n",
                        "RetrieveNextAsyncBuffer - NULL data related to sequence number %d \n");
      }
      reportRetrieval(kInfo, ") - retrieved data. \n",
                      "RetrieveNextAsyncBuffer - retrieved data related to sequence number %d \n");
      return kNextBufferTaken;
    default:
      reportRetrieval(kError, ") - could not retrieve data. \n",
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
  reportAsyncThread(kError, function, seqNum, ") - could not free sequence number. \n", consoleFormat);
  return false;
}

}  // namespace kel
