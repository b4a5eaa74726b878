/* SPDX-License-Identifier: MIT */
// The async listener: the threads that serve sequences nobody waits for.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "logging/ALogger.h"
#include "logging/DebugPrint.h"
#include "platform/kept_blocks.h"
#include "platform/platform.h"

namespace kel {

class AsyncListener;

/// Whether a thread was filed with its sequence, which its delivery relies on: the end of a sequence asks for its
/// thread. Shared by the thread and by who starts it, since either may be done with it first.
struct AsyncThreadFiling {
  platform::CriticalSection lock;  ///< held by who starts the thread, until it is filed or given up
  bool filed GUARDED_BY(lock) = false;
};

/// What one thread works by. Made for it by the engine, and its own once it runs.
struct AsyncThreadArguments {
  std::uint32_t seqNum;
  platform::Handle aSyncDataEvent;     ///< set for each answer that was queued; the sequence's
  platform::Handle stopEvent;          ///< the sequence's
  platform::Handle mGeneralStopEvent;  ///< the engine's
  AsyncListener* listener;
  bool isStream;
  /// Keeps the listener's engine alive: a thread has some lines to write after it is counted off.
  std::shared_ptr<void> engine;
  /// Null: nobody files the thread.
  std::shared_ptr<AsyncThreadFiling> filing = nullptr;
};

// The engine's functions that the threads call, each with the engine's handle first.

/// Handles an answer, or with `errorCode` not 0 the lack of one. 0 ends the thread.
using ProcessSequenceDataFunc = std::uint32_t (*)(std::uint32_t engineHandle, std::uint32_t seqNum,
                                                  std::uint32_t errorCode, std::uint8_t* buffer, std::uint32_t size);
/// Takes the next answer off the sequence's queue; `*buffer` is the caller's. One of the three results below.
using RetrieveNextBufferFunc = std::uint32_t (*)(std::uint32_t engineHandle, platform::Handle unused,
                                                 std::uint32_t seqNum, std::uint8_t** buffer, std::uint32_t* size);
using FreeSequenceFunc = bool (*)(std::uint32_t engineHandle, std::uint32_t seqNum);
using SetResponseStatusFunc = void (*)(std::uint8_t* record, std::uint32_t errorCode);

inline constexpr std::uint32_t kNextBufferTaken = 0;
inline constexpr std::uint32_t kNextBufferFailed = 1;
inline constexpr std::uint32_t kNextBufferEmpty = 2;

/// The error code by which a thread reports that no answer came in time.
inline constexpr std::uint32_t kErrorCodeTimeout = 2;

/// One object per engine and one thread per sequence: init() and startListen() are called again for each, and every
/// thread works by arguments of its own.
///
///   wait ends by           the thread
///   data event             hands on all that is queued, then waits again
///   sequence's stop event  frees the sequence, ends with 1
///   general stop event     frees the sequence, ends with 2
///   time-out               reports error 2, frees the sequence, ends with 0. Each wait has the whole time; a stream
///                          has no time-out
///   anything else          ends with 3
///
/// It also ends, with the sequence left open, when it cannot take the next answer from the queue (0) or the engine is
/// gone (4). A thread that ends like this stays counted, so that the general stop of its engine never returns.
///
/// A thread delivers nothing before it is filed: with a short time-out it may be ready ahead of that, and then waits.
/// One that was given up instead ends with 0 and delivers nothing at all; its sequence is closed by who gave it up.
///
/// Threads: init() and startListen() come from client threads, several at once, while older threads run. What they set
/// is atomic; a line may so show the handle of the thread that was started last.
class AsyncListener {
 public:
  AsyncListener();
  AsyncListener(const AsyncListener&) = delete;
  AsyncListener& operator=(const AsyncListener&) = delete;

  /// Stores all ten and returns 1 (LISTENER_INIT_OK).
  std::uint32_t init(std::uint32_t engineHandle, ProcessSequenceDataFunc processDataFunc,
                     RetrieveNextBufferFunc retrieveNextBufferFunc, FreeSequenceFunc freeSequenceFunc,
                     SetResponseStatusFunc setResponseStatusFunc, std::uint32_t seqNum, platform::Handle dataEvent,
                     platform::Handle stopWaitEvent, platform::Handle generalStopEvent, std::uint32_t logToConsole);

  /// Does nothing and returns 3 (LISTENER_SHUTDOWN_OK): what the threads use is the sequences'.
  std::uint32_t shutdown();

  /// Starts a thread at the highest priority. 7 (LISTENER_STARTED) with its handle, which the caller closes, or 6. The
  /// arguments are the thread's from the start; if there is none they are treated as a kept block.
  std::uint32_t startListen(platform::Handle* threadHandleOut, AsyncThreadArguments* threadArguments);

  /// 0 prints nothing on the console.
  std::atomic<std::uint32_t> mLogToConsole{0};
  /// How long a thread waits for an answer, in milliseconds. The engine copies its own setting here.
  std::atomic<std::uint32_t> mWaitTimeout{10000};
  KeptBlocks mKeptBlocks;  ///< The engine copies its own setting here.

 private:
  std::uint32_t waitLimit(const AsyncThreadArguments& arguments) const {
    return arguments.isStream ? platform::kInfinite : mWaitTimeout.load();
  }
  static std::uint32_t listenerThreadFunc(void* argument);
  std::uint32_t listen(const AsyncThreadArguments& arguments);
  /// Waits until the thread is filed or given up. Whether it was filed.
  static bool awaitFiling(AsyncThreadFiling& filing);
  /// Hands on one answer, or the lack of one. False if the engine is gone.
  bool deliver(std::uint32_t seqNum, std::uint32_t errorCode, std::uint8_t* buffer, std::uint32_t size);
  /// Hands on all that is queued. True to wait for more; false to end the thread with `*exitCode`.
  bool drain(const AsyncThreadArguments& arguments, std::uint32_t* deliveredCount, std::uint32_t* exitCode);
  void freeSequenceData(std::uint32_t seqNum);
  /// A line of a thread, behind its sequence number.
  template <class... Pieces>
  void reportThread(std::uint32_t level, std::uint32_t seqNum, const Pieces&... pieces) {
    ReportTwice(mLogger, debugPrint, level, "listenerThreadFunc", "(", seqNum, pieces...);
  }

  // Atomic.
  std::atomic<platform::Handle> mListenerThread{nullptr};  ///< the one started last
  std::atomic<std::uint32_t> mListenerThreadId{0};
  std::atomic<std::uint32_t> mSeqNum{255};
  std::atomic<platform::Handle> mDataEvent{nullptr};
  std::atomic<platform::Handle> mStopWaitEvent{nullptr};
  std::atomic<platform::Handle> mGeneralStopEvent{nullptr};
  std::atomic<std::uint8_t> mWaitForever{1};  ///< read by nothing: a thread's own isStream decides
  std::atomic<ProcessSequenceDataFunc> mProcessDataFunc{nullptr};
  std::atomic<RetrieveNextBufferFunc> mRetrieveNextBufferFunc{nullptr};
  std::atomic<FreeSequenceFunc> mFreeSequenceFunc{nullptr};
  std::atomic<SetResponseStatusFunc> mSetResponseStatusFunc{nullptr};  ///< never called
  std::atomic<std::uint32_t> mEngineHandle{0};

  // Own locking.
  ALogger mLogger;

  DebugPrint debugPrint{mLogToConsole};
};

}  // namespace kel
