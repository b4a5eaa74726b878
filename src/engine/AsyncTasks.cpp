// SPDX-License-Identifier: MIT
// The road of a task whose answers go to callbacks, and the threads that will take them there.
#include "adapter/Dorv.h"
#include "engine/BrelEngine.h"
#include "engine/Instances.h"
#include "engine/SequenceResponses.h"

namespace kel {
namespace {

constexpr const char* kIssue = "IssueAsyncCommandBase";
constexpr const char* kGenerate = "GenerateAsyncThread";
constexpr const char* kDispose = "DisposeAsyncThread";
constexpr const char* kShutdown = "ShutdownAsyncThread";

/// Between two looks at how many threads are left.
constexpr std::uint32_t kShutdownPoll = 100;

/// Where a sequence number is asked for and there is no sequence.
constexpr std::uint32_t kNoSequence = 256;

}  // namespace

// ---------------------------------------------------------------------------------------------------------------------
// Sending
// ---------------------------------------------------------------------------------------------------------------------

Status BrelEngine::InvokeAsyncTask(const char* taskName, std::uint32_t commandID, const void* inputBuffer,
                                   std::uint32_t inputBufferSize, std::uint32_t initialSeqTUI,
                                   std::uint8_t responseExpected, std::uint32_t* seqNum, OpaqueCallback callbackFunc,
                                   OpaqueCallback streamCallbackFunc) {
  std::uint32_t TUI = 0;
  if (!mTUIsList.FindTuiByName("InvokeAsyncTask", taskName != nullptr ? taskName : "", &TUI)) return kStatusFailed;
  mDebugPrint("\nTUI = %d\n", static_cast<int>(TUI));
  ScopedBlock<BrelTaskRecordCapacity> block(mKeptBlocks, RequestBlockSize(inputBuffer, inputBufferSize));
  task* const record =
      BuildRequest(block.get(), TUI, responseExpected, initialSeqTUI, inputBuffer, inputBufferSize);
  return IssueAsyncCommandBase(BREL_INVOKE_TASK, commandID, record, seqNum, callbackFunc, streamCallbackFunc);
}

Status BrelEngine::IssueAsyncCommand(std::uint32_t commandID, task* record, std::uint32_t* seqNum,
                                     OpaqueCallback callbackFunc, OpaqueCallback streamCallbackFunc) {
  return IssueAsyncCommandBase(BREL_ISSUE_COMMAND, commandID, record, seqNum, callbackFunc, streamCallbackFunc);
}

Status BrelEngine::IssueAsyncCommandBase(ApiType apiType, std::uint32_t commandID, task* record, std::uint32_t* seqNum,
                                         OpaqueCallback callbackFunc, OpaqueCallback streamCallbackFunc) {
  // A client that has no use for the number is taken for one whose variable holds no sequence's: the refusal below then
  // closes none.
  std::uint32_t unwanted = kNoSequence;
  if (seqNum == nullptr) seqNum = &unwanted;
  const std::uint32_t TUI = record->TUI;
  const std::uint32_t recordSize = record->payloadSize + std::uint32_t{sizeof(task)};
  const bool isStream = streamCallbackFunc != nullptr;
  const bool opens = record->responseExpected == 1 || isStream;
  if (opens) {
    platform::Handle syncDataEvent = nullptr, aSyncDataEvent = nullptr, seqStopEvent = nullptr;
    std::uint32_t streamSeqNum = 0, streamEndSeqNum = 0;
    if (mTasksSequencer.AssignSequence(apiType, commandID, seqNum, TUI, &syncDataEvent, &aSyncDataEvent, &seqStopEvent,
                                       callbackFunc, streamCallbackFunc, &streamSeqNum, &streamEndSeqNum, true,
                                       isStream) != SEQ_ASSIGN_OK) {
      report(kError, kIssue, "could not assign sequence number \n");
      return kStatusFailed;
    }
    report(kInfo, kIssue, "assigned sequence number ", *seqNum, " \n");
    record->seqTUI = MakeSeqTUI(TUI, static_cast<std::uint8_t>(*seqNum));
    // Ahead of the send, so that no answer can come before its listener.
    if (!GenerateAsyncThread(*seqNum, aSyncDataEvent, seqStopEvent, isStream)) {
      report(kError, kIssue, "could not generate async thread for sequence number ", *seqNum, " \n");
      FreeSequenceElementOnly(*seqNum);
      return kStatusFailed;
    }
  }

  const std::uint32_t dorvCode = SendToDorv(kIssue, record, recordSize);
  if (dorvCode != DORV_OK) {
    // Also where no sequence was opened, and then of whatever number the client's variable holds.
    if (opens) {
      DisposeAsyncThread(*seqNum);
    } else {
      FreeSequenceElementOnly(*seqNum);
    }
    return TranslateDorvStatus(dorvCode);
  }
  report(kInfo, kIssue,
         isStream ? "send STREAM IssueAsyncCommand to Dorv with TUI " : "send IssueAsyncCommand to Dorv with TUI ", TUI,
         " and with sequence number ", *seqNum, " \n");
  return kStatusOk;
}

// ---------------------------------------------------------------------------------------------------------------------
// The threads of sequences
// ---------------------------------------------------------------------------------------------------------------------

bool BrelEngine::initAsyncListener(std::uint32_t seqNum, platform::Handle aSyncDataEvent, platform::Handle stopEvent,
                                   platform::Handle generalStopEvent) {
  return mAsyncListener.init(mHandle, ProcessSequenceData, RetrieveNextAsyncBufferByHandle, FreeSequenceByHandle,
                             SetResponseStatus, seqNum, aSyncDataEvent, stopEvent, generalStopEvent,
                             mLogToConsole) == LISTENER_INIT_OK;
}

bool BrelEngine::ActivateAsyncThread() {
  mAsyncListenerActive = false;
  if (!initAsyncListener(kNoSequence, nullptr, nullptr, nullptr)) {
    report(kError, "ActivateAsyncThread", "problem init async listener \n");
    return false;
  }
  report(kInfo, "ActivateAsyncThread", "OK init async listener \n");
  mAsyncListenerActive = true;
  return true;
}

/// A line about the thread of a sequence. In the log the number stands ahead of `text`, which closes its bracket; the
/// console shows it only where `consoleFormat` has it.
void BrelEngine::reportAsyncThread(std::uint32_t level, const char* function, std::uint32_t seqNum, const char* text,
                                   const char* consoleFormat) {
  mLogger.log(level, function, kLogFlags) << "(" << seqNum << text;
  mDebugPrint(consoleFormat, static_cast<int>(seqNum));
}

/// An exhausted heap is told as a thread that could not be started: it can only run out ahead of the start.
bool BrelEngine::GenerateAsyncThread(std::uint32_t seqNum, platform::Handle aSyncDataEvent, platform::Handle stopEvent,
                                     bool isStream) {
  const auto tell = [&](std::uint32_t level, const char* text, const char* consoleFormat) {
    reportAsyncThread(level, kGenerate, seqNum, text, consoleFormat);
  };
  if (!initAsyncListener(seqNum, aSyncDataEvent, stopEvent, mGeneralStopEvent)) {
    tell(kError, ") - problem init async listener. \n", "GenerateAsyncThread - problem init async listener \n");
    return false;
  }
  tell(kInfo, ") - OK init async listener. \n", "GenerateAsyncThread - OK init async listener \n");
  const auto notStarted = [&] {
    tell(kError, ") - problem starting async listener. \n", "GenerateAsyncThread - problem starting async listener \n");
    return false;
  };
  std::shared_ptr<AsyncThreadFiling> filing;
  AsyncThreadArguments* arguments = nullptr;
  try {
    filing = std::make_shared<AsyncThreadFiling>();
    arguments = new AsyncThreadArguments{seqNum, aSyncDataEvent, stopEvent, mGeneralStopEvent, &mAsyncListener,
                                         isStream, GetBrelInst(mHandle), filing};
  } catch (const std::bad_alloc&) {
    return notStarted();
  }
  // To the end of this function, however that comes: a thread that was not filed by then is given up.
  AsyncThreadFiling& ofThread = *filing;
  const platform::InSection settling(ofThread.lock);
  platform::Handle asyncThreadHandle = nullptr;
  if (mAsyncListener.startListen(&asyncThreadHandle, arguments) != LISTENER_STARTED) return notStarted();
  tell(kInfo, ") - started async listener. \n", "GenerateAsyncThread - started async listener \n");
  IncreaseAsyncThreadsCount();
  if (mTasksSequencer.InsertAsyncListenerInfoBySeqNum(seqNum, asyncThreadHandle, &mAsyncListener) == SEQ_INSERT_OK) {
    ofThread.filed = true;
    return true;
  }
  tell(kError, ") - could not insert AsyncListenerInfo. \n",
       "GenerateAsyncThread - could not insert AsyncListenerInfo to sequence number %d \n");
  if (!platform::setEvent(stopEvent)) {
    tell(kError, ") - problem setting async listener's stop event. \n",
         "GenerateAsyncThread - problem setting async listener's stop event \n");
    return false;
  }
  if (!platform::closeHandle(asyncThreadHandle)) {
    tell(kError, ") - could not close asyncThreadHandle handle. \n",
         "GenerateAsyncThread - could not close asyncThreadHandle handle \n");
    return false;
  }
  DecreaseAsyncThreadsCount();
  tell(kInfo, ") - stopped async listener. \n", "GenerateAsyncThread - stopped async listener \n");
  return false;
}

/// The ordinary end of a sequence's thread, often called on that thread. Nobody waits for it: when it sees the stop
/// event it frees the sequence and so counts itself off.
bool BrelEngine::DisposeAsyncThread(std::uint32_t seqNum) {
  const auto failed = [&](const char* text, const char* consoleFormat) {
    reportAsyncThread(kError, kDispose, seqNum, text, consoleFormat);
    return false;
  };
  platform::Handle seqStopEvent = nullptr, seqThreadHandle = nullptr;
  AsyncListener* asyncListenerInstance = nullptr;
  const SeqStatus status = mTasksSequencer.RetrieveAsyncThreadInfoBySeqNum(seqNum, &seqStopEvent, &seqThreadHandle,
                                                                           &asyncListenerInstance);
  if (status == SEQ_RETRIEVE_NOT_FOUND) return true;  // gone already
  if (status != SEQ_RETRIEVE_OK) {
    return failed(") - could not retrieve stop event. \n",
                  "DisposeAsyncThread - could not retrieve stop event related to sequence number %d \n");
  }
  if (seqStopEvent == nullptr) {
    return failed(") - NULL stop event. \n", "DisposeAsyncThread - NULL stop event related to sequence number %d \n");
  }
  if (seqThreadHandle == nullptr) {  // the line names the instance, which log readers know
    return failed(") - NULL asyncListenerInstance. \n",
                  "DisposeAsyncThread - NULL asyncListenerInstance related to sequence number %d \n");
  }
  if (!platform::setEvent(seqStopEvent)) {
    return failed(") - problem setting async listener's stop event. \n",
                  "DisposeAsyncThread - problem setting async listener's stop event \n");
  }
  if (!platform::closeHandle(seqThreadHandle)) {
    return failed(") - could not close seqThreadHandle handle. \n",
                  "DisposeAsyncThread - could not close seqThreadHandle handle \n");
  }
  if (mTasksSequencer.InsertAsyncListenerInfoBySeqNum(seqNum, nullptr, nullptr) != SEQ_INSERT_OK) {
    return failed(") - could not erase AsyncListenerInfo. \n",
                  "DisposeAsyncThread - could not erase AsyncListenerInfo for sequence number %d \n");
  }
  reportAsyncThread(kInfo, kDispose, seqNum, ") - stopped async listener. \n",
                    "DisposeAsyncThread - stopped async listener \n");
  return true;
}

/// Stops all threads at once. It waits on their number alone, with no limit, and must not run on one of them.
bool BrelEngine::ShutdownAsyncThread() {
  if (!mAsyncListenerActive) {
    report(kInfo, kShutdown, "async listener not active - stop not required \n");
    return true;
  }
  if (asyncThreadsCount() < 1) {
    report(kInfo, kShutdown, "all async listener threads already stopped \n");
    mAsyncListenerActive = false;
    return true;
  }
  if (!platform::setEvent(mGeneralStopEvent)) {
    report(kError, kShutdown, "problem setting mGeneralStopEvent \n");
    return false;
  }
  report(kInfo, kShutdown, "mGeneralStopEvent set. Waiting for all async listener threads to stop. \n");
  do {
    platform::sleepFor(kShutdownPoll);
  } while (asyncThreadsCount() >= 1);
  if (!platform::resetEvent(mGeneralStopEvent)) {
    report(kError, kShutdown, "problem REsetting mGeneralStopEvent \n");
    return false;
  }
  report(kInfo, kShutdown, "All async listener threads stopped (mGeneralStopEvent Reset). \n");
  mAsyncListenerActive = false;
  report(kInfo, kShutdown, "stopped all async listener threads \n");
  return true;
}

std::int32_t BrelEngine::asyncThreadsCount() {
  const platform::InSection counting(mAsyncThreadsCountLock);
  return mAsyncThreadsCount;
}

void BrelEngine::IncreaseAsyncThreadsCount() {
  const platform::InSection counting(mAsyncThreadsCountLock);
  ++mAsyncThreadsCount;
}

void BrelEngine::DecreaseAsyncThreadsCount() {
  const platform::InSection counting(mAsyncThreadsCountLock);
  --mAsyncThreadsCount;
}

}  // namespace kel
