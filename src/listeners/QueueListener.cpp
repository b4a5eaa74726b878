// SPDX-License-Identifier: MIT
#include "listeners/QueueListener.h"

#include <new>
#include <utility>

#include "platform/memory.h"

namespace kel {
namespace {

constexpr const char* kThread = "listenerThreadFunc";

// Exit codes of the thread, which nobody reads.
constexpr std::uint32_t kExitFailed = 0;
constexpr std::uint32_t kExitStopped = 1;

}  // namespace

template <class Words>
QueueListener<Words>::QueueListener() {
  mLogger.setRegistryKey(kLoggerRegistryKey);
  mLogger.setModuleName(Words::kModuleName);
}

// ---------------------------------------------------------------------------------------------------------------------
// Start and stop
// ---------------------------------------------------------------------------------------------------------------------

template <class Words>
ListenerResult QueueListener<Words>::init(std::uint32_t engineHandle, ProcessDataFunc processDataFunc,
                                          platform::Handle* dataEventOut, platform::Handle* stopWaitEventOut,
                                          platform::Handle generalStopEvent) {
  mEngineHandle = engineHandle;
  mGeneralStopEvent = generalStopEvent;
  *dataEventOut = nullptr;
  *stopWaitEventOut = nullptr;
  mDataEvent = platform::createEvent(false, false);
  if (mDataEvent == nullptr) {
    report(kError, "init", "could not create mDataEvent \n");
    return LISTENER_INIT_FAILED;
  }
  mStopWaitEvent = platform::createEvent(false, false);
  if (mStopWaitEvent == nullptr) {
    report(kError, "init", "could not create mStopWaitEvent \n");
    return LISTENER_INIT_FAILED;
  }
  *dataEventOut = mDataEvent;
  *stopWaitEventOut = mStopWaitEvent;
  if (mQueue.init() != QUEUE_INIT_OK) {
    report(kError, "init", "could not init safe queue \n");
    return LISTENER_INIT_FAILED;
  }
  mProcessDataFunc = processDataFunc;
  return LISTENER_INIT_OK;
}

template <class Words>
ListenerResult QueueListener<Words>::startListen(std::shared_ptr<void> owner) {
  std::uint32_t threadId = 0;
  auto arguments = std::unique_ptr<ThreadArguments>(new ThreadArguments{this, std::move(owner)});
  mListenerThread = platform::createThread(listenerThreadFunc, arguments.get(), &threadId);
  if (mListenerThread != nullptr) arguments.release();  // the thread has them
  mListenerThreadId = threadId;
  if (mListenerThread == nullptr) {
    debugPrint("Listener Thread creation failed.\n");
    return LISTENER_NOT_STARTED;
  }
  debugPrint("Listener Thread created. Handle=%X\n", static_cast<unsigned>(HandleNumber(mListenerThread)));
  // The thread runs already: what it logged up to here went nowhere.
  mLogger.setFileName(Words::kLogFile);
  mLogger.log(kInfo, "startListen", kLogFlags) << "\n";
  return LISTENER_STARTED;
}

template <class Words>
ListenerResult QueueListener<Words>::stopListen() {
  if (!platform::setEvent(mStopWaitEvent)) return LISTENER_STOP_PROBLEM;
  switch (platform::waitForOne(mListenerThread, platform::kInfinite)) {
    case platform::kWaitObject:
      if (shutdown() != LISTENER_SHUTDOWN_OK) {
        report(kError, "stopListen", "problem on listener thread shutdown \n");
        return LISTENER_STOP_PROBLEM;
      }
      report(kInfo, "stopListen", "listener thread exited \n");
      return LISTENER_STOPPED;
    case platform::kWaitTimeout:
      report(kError, "stopListen", "WAIT_TIMEOUT on wait for listener thread exit \n");
      return LISTENER_STOP_PROBLEM;
    default:
      report(kError, "stopListen", "unhandled result on wait for listener thread exit \n");
      return LISTENER_STOP_PROBLEM;
  }
}

template <class Words>
bool QueueListener<Words>::close(std::atomic<platform::Handle>& handle, const char* problem) {
  const platform::Handle open = handle.exchange(nullptr);
  if (open == nullptr || platform::closeHandle(open)) return true;
  report(kError, "shutdown", problem);
  return false;
}

template <class Words>
ListenerResult QueueListener<Words>::shutdown() {
  ListenerResult result = LISTENER_SHUTDOWN_OK;
  if (!close(mDataEvent, "could not close mDataEvent handle \n")) result = LISTENER_SHUTDOWN_PROBLEM;
  if (!close(mStopWaitEvent, "could not close mStopWaitEvent handle \n")) result = LISTENER_SHUTDOWN_PROBLEM;
  if (mQueue.shutdown() != QUEUE_SHUTDOWN_OK) {
    report(kError, "shutdown", "could not shutdown safe queue \n");
    result = LISTENER_SHUTDOWN_PROBLEM;
  }
  if (!close(mListenerThread, "could not close mListenerThread handle \n")) result = LISTENER_SHUTDOWN_PROBLEM;
  return result;
}

// ---------------------------------------------------------------------------------------------------------------------
// Data
// ---------------------------------------------------------------------------------------------------------------------

template <class Words>
ListenerResult QueueListener<Words>::recvData(const void* buffer, std::uint32_t bufferSize) {
  report(kInfo, "recvData", "inserting buffer to queue \n");
  std::unique_ptr<std::uint8_t, decltype(&std::free)> copy(nullptr, std::free);
  QueueResult queue_res = QUEUE_INSERT_OK;
  try {
    copy.reset(CopyBlock(buffer, bufferSize));
    queue_res = mQueue.insert(copy.get(), bufferSize);
    std::uint8_t* const queued = copy.release();
    if (queue_res != QUEUE_INSERT_OK) mKeptBlocks.leave(queued);
  } catch (const std::bad_alloc&) {  // the queue keeps its own lock if it was the one
    return LISTENER_DATA_NOT_TAKEN;
  }
  if (queue_res != QUEUE_INSERT_OK) {
    // Log readers look for this line under the thread's name.
    mLogger.log(kError, kThread, kLogFlags)
        << "problem inserting to queue - " << static_cast<std::uint32_t>(queue_res) << " \n";
    debugPrint("problem inserting to queue - %d\n", static_cast<int>(queue_res));
    return LISTENER_DATA_NOT_TAKEN;
  }
  report(kInfo, "recvData", "set data event \n");
  if (!platform::setEvent(mDataEvent)) {
    debugPrint("problem setting mDataEvent\n");
    return LISTENER_DATA_NOT_TAKEN;
  }
  return LISTENER_DATA_TAKEN;
}

template <class Words>
std::uint32_t QueueListener<Words>::listenerThreadFunc(void* argument) {
  const std::unique_ptr<ThreadArguments> given(static_cast<ThreadArguments*>(argument));
  return given->listener->listen();
}

template <class Words>
std::uint32_t QueueListener<Words>::listen() {
  const platform::Handle mEvents[] = {mDataEvent, mStopWaitEvent, mGeneralStopEvent};
  for (;;) {
    std::uint32_t exitCode = kExitFailed;
    switch (platform::waitForAny(3, mEvents, platform::kInfinite)) {
      case 0:
        report(kInfo, kThread, "data event received, extracting from queue \n");
        if (!drain(&exitCode)) return exitCode;
        break;
      case 1:
        report(kInfo, kThread, "stop wait event received - exiting listener thread \n");
        return kExitStopped;
      case 2:
        report(kInfo, kThread, "general stop wait event received - exiting listener thread \n");
        return kExitStopped;
      case platform::kWaitTimeout:
        report(kError, kThread, "Listener Thread - WAIT_TIMEOUT on Multiple wait. Handle= ", mListenerThread.load(),
               " \n");
        break;
      default:
        report(kError, kThread, "Listener Thread exited with code 0. Handle= ", mListenerThread.load(), " \n");
        return kExitFailed;
    }
  }
}

template <class Words>
bool QueueListener<Words>::drain(std::uint32_t* exitCode) {
  // One set of the data event can stand for several buffers, so all that is found is taken.
  const platform::Handle mStopEvents[] = {mStopWaitEvent, mGeneralStopEvent};
  std::uint8_t* buffer = nullptr;
  std::uint32_t bufferSize = 0;
  for (;;) {
    switch (platform::waitForAny(2, mStopEvents, 0)) {
      case 0:
        report(kInfo, kThread, "stop wait event received - exiting listener thread \n");
        *exitCode = kExitStopped;
        return false;
      case 1:
        report(kInfo, kThread, "general stop wait event received - exiting listener thread \n");
        *exitCode = kExitStopped;
        return false;
      default: break;
    }
    const QueueResult queueRes = mQueue.extract(&buffer, &bufferSize);
    if (queueRes == QUEUE_EXTRACT_FAILED) {
      report(kError, kThread, "data event received, problem extracting from map \n");
      *exitCode = kExitFailed;
      return false;
    }
    if (queueRes == QUEUE_EMPTY) return true;
    report(kInfo, kThread, "data event received, processing data \n");
    const bool processed = mProcessDataFunc(mEngineHandle, buffer, bufferSize) != 0;
    std::free(buffer);
    if (!processed) {
      report(kError, kThread,
             "Listener Thread exited with code 0 - mProcessDataFunc() returned false. Handle= ", mListenerThread.load(),
             " \n");
      *exitCode = kExitFailed;
      return false;
    }
    report(kInfo, kThread, "data event received, data processing finished \n");
  }
}

template class QueueListener<BroadcastWords>;
template class QueueListener<AlertsWords>;

}  // namespace kel
