// SPDX-License-Identifier: MIT
#include "listeners/AsyncListener.h"

#include <array>
#include <cstdlib>
#include <new>
#include <type_traits>

#include "listeners/QueueListener.h"

namespace kel {
namespace {

// Exit codes of a thread, which nobody reads.
constexpr std::uint32_t kExitEnd = 0;
constexpr std::uint32_t kExitStopped = 1;
constexpr std::uint32_t kExitGeneralStop = 2;
constexpr std::uint32_t kExitWaitFailed = 3;
constexpr std::uint32_t kExitEngineGone = 4;

/// Most of what a start sets is as the last one left it, and other threads are reading it.
template <class Value>
void Set(std::atomic<Value>& member, std::type_identity_t<Value> value) {
  if (member.load(std::memory_order_relaxed) != value) member.store(value, std::memory_order_relaxed);
}

std::array<platform::Handle, 3> EventsOf(const AsyncThreadArguments& arguments) {
  return {arguments.aSyncDataEvent, arguments.stopEvent, arguments.mGeneralStopEvent};
}

}  // namespace

AsyncListener::AsyncListener() {
  mLogger.setRegistryKey(kLoggerRegistryKey);
  mLogger.setModuleName("AsyncListener");
}

std::uint32_t AsyncListener::init(std::uint32_t engineHandle, ProcessSequenceDataFunc processDataFunc,
                                  RetrieveNextBufferFunc retrieveNextBufferFunc, FreeSequenceFunc freeSequenceFunc,
                                  SetResponseStatusFunc setResponseStatusFunc, std::uint32_t seqNum,
                                  platform::Handle dataEvent, platform::Handle stopWaitEvent,
                                  platform::Handle generalStopEvent, std::uint32_t logToConsole) {
  Set(mEngineHandle, engineHandle);
  Set(mProcessDataFunc, processDataFunc);
  Set(mRetrieveNextBufferFunc, retrieveNextBufferFunc);
  Set(mFreeSequenceFunc, freeSequenceFunc);
  Set(mSetResponseStatusFunc, setResponseStatusFunc);
  Set(mSeqNum, seqNum);
  Set(mDataEvent, dataEvent);
  Set(mStopWaitEvent, stopWaitEvent);
  Set(mGeneralStopEvent, generalStopEvent);
  Set(mLogToConsole, logToConsole);
  return LISTENER_INIT_OK;
}

std::uint32_t AsyncListener::shutdown() { return LISTENER_SHUTDOWN_OK; }

std::uint32_t AsyncListener::startListen(platform::Handle* threadHandleOut, AsyncThreadArguments* threadArguments) {
  const std::uint32_t currentSeqNum = threadArguments->seqNum;
  std::uint32_t threadId = 0;
  const auto mEvents = EventsOf(*threadArguments);
  const platform::Handle thread = platform::createWaitingThread(
      listenerThreadFunc, threadArguments, &threadId, mEvents.size(), mEvents.data(), waitLimit(*threadArguments));
  mListenerThread = thread;
  mListenerThreadId = threadId;
  const int shownSeqNum = static_cast<int>(currentSeqNum);
  const auto shownHandle = static_cast<unsigned>(HandleNumber(thread));
  const auto line = [&]() -> ALogger& { return mLogger.log(kInfo, "startListen", kLogFlags); };
  if (thread == nullptr) {
    threadArguments->engine.reset();  // what stays allocated keeps no engine alive
    if (mKeptBlocks.released()) delete threadArguments;
    line() << " (" << currentSeqNum << ") - Listener Thread creation failed.\n";
    debugPrint("startListen (%d) - Listener Thread creation failed.\n", shownSeqNum);
    return LISTENER_NOT_STARTED;
  }
  line() << " (" << currentSeqNum << ") - Listener Thread created. Handle=" << thread << "\n";
  debugPrint("startListen (%d) - Listener Thread created. Handle=%X\n", shownSeqNum, shownHandle);
  if (!platform::setThreadPriority(thread, platform::kPriorityHighest)) {
    line() << " (" << currentSeqNum << ") - Listener Thread's priority hightening failed.\n";
    debugPrint("startListen (%d) - Listener Thread's priority change failed.\n", shownSeqNum);
    return LISTENER_NOT_STARTED;
  }
  line() << " (" << currentSeqNum << ") - Listener Thread's priority hightend. Handle=" << thread << "\n";
  debugPrint("startListen (%d) - Listener Thread's priority hightend. Handle=%X\n", shownSeqNum, shownHandle);
  *threadHandleOut = thread;
  // Again for each thread: the first one of a new day moves the engine's lines to a new file.
  mLogger.setFileName("Brel_Async_Listener.logs");
  return LISTENER_STARTED;
}

std::uint32_t AsyncListener::listenerThreadFunc(void* argument) {
  const std::unique_ptr<AsyncThreadArguments> given(static_cast<AsyncThreadArguments*>(argument));
  return given->listener->listen(*given);
}

std::uint32_t AsyncListener::listen(const AsyncThreadArguments& arguments) {
  const auto mEvents = EventsOf(arguments);
  const std::uint32_t currentSeqNum = arguments.seqNum;
  const std::uint32_t limit = waitLimit(arguments);
  std::uint32_t asyncDataBuffersDeAllocCount = 0;
  bool filed = arguments.filing == nullptr;
  for (;;) {
    std::uint32_t exitCode = kExitEnd;
    const std::uint32_t ended = platform::waitForAny(mEvents.size(), mEvents.data(), limit);
    if (!filed && (ended == 0 || ended == platform::kWaitTimeout)) {
      filed = awaitFiling(*arguments.filing);
      if (!filed) return kExitEnd;
    }
    switch (ended) {
      case 0:
        reportThread(kInfo, currentSeqNum, ") - data event received. queueRes = ", kNextBufferTaken, " \n");
        if (!drain(arguments, &asyncDataBuffersDeAllocCount, &exitCode)) return exitCode;
        break;
      case 1:
        reportThread(kInfo, currentSeqNum, ") - stop wait event received (external loop) - exiting listener thread \n");
        freeSequenceData(currentSeqNum);
        return kExitStopped;
      case 2:
        reportThread(kInfo, currentSeqNum,
                     ") - general stop wait event received (external loop) - exiting listener thread \n");
        freeSequenceData(currentSeqNum);
        return kExitGeneralStop;
      case platform::kWaitTimeout:
        reportThread(kError, currentSeqNum, ") - WAIT_TIMEOUT on Multiple wait. Handle= ", mListenerThread.load(),
                     " \n");
        reportThread(kInfo, currentSeqNum, ") - processing with errorCode WAIT_TIMEOUT. \n");
        deliver(currentSeqNum, kErrorCodeTimeout, nullptr, 0);
        reportThread(kInfo, currentSeqNum, ") - processing with errorCode WAIT_TIMEOUT finished. \n");
        freeSequenceData(currentSeqNum);
        reportThread(kInfo, currentSeqNum,
                     ") - exiting with code 0 - End of listenerThreadFunc(). Handle= ", mListenerThread.load(), " \n");
        return kExitEnd;
      default:
        reportThread(kError, currentSeqNum, ") - exiting with code 3. Handle= ", mListenerThread.load(), " \n");
        return kExitWaitFailed;
    }
  }
}

bool AsyncListener::awaitFiling(AsyncThreadFiling& filing) {
  const platform::InSection settled(filing.lock);
  return filing.filed;
}

bool AsyncListener::deliver(std::uint32_t seqNum, std::uint32_t errorCode, std::uint8_t* buffer,
                            std::uint32_t size) try {
  return mProcessDataFunc.load()(mEngineHandle, seqNum, errorCode, buffer, size) != 0;
} catch (const std::bad_alloc&) {
  // The answer is lost, and the thread goes on to the next one.
  reportThread(kError, seqNum, ") - out of memory, an answer is dropped. \n");
  return true;
}

bool AsyncListener::drain(const AsyncThreadArguments& arguments, std::uint32_t* deliveredCount,
                          std::uint32_t* exitCode) {
  const platform::Handle mStopEvents[] = {arguments.stopEvent, arguments.mGeneralStopEvent};
  const std::uint32_t currentSeqNum = arguments.seqNum;
  std::uint8_t* buffer = nullptr;
  std::uint32_t bufferSize = 0;
  for (;;) {
    // A look at the stops ahead of each buffer; what is then still queued goes with the sequence.
    switch (platform::waitForAny(2, mStopEvents, 0)) {
      case 0:
        reportThread(kInfo, currentSeqNum,
                     ") - stop wait event received (internal loop) - exiting listener thread. \n");
        freeSequenceData(currentSeqNum);
        *exitCode = kExitStopped;
        return false;
      case 1:
        reportThread(kInfo, currentSeqNum,
                     ") - general stop wait event received (internal loop) - exiting listener thread. \n");
        freeSequenceData(currentSeqNum);
        *exitCode = kExitGeneralStop;
        return false;
      default:
        break;
    }
    reportThread(kInfo, currentSeqNum, ") - data event received, extracting from queue. \n");
    const std::uint32_t queueRes =
        mRetrieveNextBufferFunc.load()(mEngineHandle, mDataEvent, currentSeqNum, &buffer, &bufferSize);
    if (queueRes == kNextBufferFailed) {
      reportThread(kError, currentSeqNum, ") - data event received, problem extracting from queue. \n");
      *exitCode = kExitEnd;
      return false;
    }
    if (queueRes == kNextBufferEmpty) {
      reportThread(kInfo, currentSeqNum, ") - data event received, queue empty. \n");
      return true;
    }
    reportThread(kInfo, currentSeqNum, ") - data event received, processing data. \n");
    const bool processed = deliver(currentSeqNum, 0, buffer, bufferSize);
    std::free(buffer);
    if (!processed) {
      reportThread(kError, currentSeqNum,
                   ") - exiting with code 4 - mProcessDataFunc() returned false. Handle= ", mListenerThread.load(),
                   " \n");
      *exitCode = kExitEngineGone;
      return false;
    }
    reportThread(kInfo, currentSeqNum, ") - data event received, data processing finished. \n");
    ++*deliveredCount;
    reportThread(kInfo, currentSeqNum, ") - Deallocated memory for asynchBuffer number ", *deliveredCount, ". \n");
  }
}

void AsyncListener::freeSequenceData(std::uint32_t seqNum) {
  reportThread(kInfo, seqNum, ") - freeing sequence data. \n");
  mFreeSequenceFunc.load()(mEngineHandle, seqNum);
  reportThread(kInfo, seqNum, ") - sequence data freed. \n");
}

}  // namespace kel
