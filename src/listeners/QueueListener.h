/* SPDX-License-Identifier: MIT */
// The broadcast listener and the alerts listener: each takes what the pipe library's thread brings to a thread of its
// own, on which the client is called.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "listeners/SafeQueue.h"
#include "logging/ALogger.h"
#include "logging/DebugPrint.h"
#include "platform/platform.h"

namespace kel {

/// Results of a listener's operations.
enum ListenerResult : std::uint32_t {
  LISTENER_INIT_FAILED = 0,
  LISTENER_INIT_OK = 1,
  LISTENER_SHUTDOWN_PROBLEM = 2,
  LISTENER_SHUTDOWN_OK = 3,
  LISTENER_DATA_NOT_TAKEN = 4,
  LISTENER_DATA_TAKEN = 5,
  LISTENER_NOT_STARTED = 6,
  LISTENER_STARTED = 7,
  LISTENER_STOP_PROBLEM = 8,
  LISTENER_STOPPED = 9,
};

/// Hands one buffer to the engine. 0 ends the listener's thread.
using ProcessDataFunc = std::uint32_t (*)(std::uint32_t engineHandle, const std::uint8_t* buffer, std::uint32_t size);

/// A queue, a thread that empties it, and the two events that wake the thread.
///
///   state         entered by     handles
///   not started   constructor    none
///   initialised   init()         the events
///   running       startListen()  the events and the thread
///   stopped       stopListen()   none
///
/// The thread ends at its own stop event or at the engine's general one, looked at before each buffer, or when the
/// engine has no use for it any more; buffers that are then still queued are lost, and become kept blocks with the
/// listener's end. While the client's function runs it sees neither event, so stopListen() waits as long as that takes.
///
/// Threads: recvData() comes from the pipe library's threads, the rest from the engine's start and stop. Queue and log
/// have their own locking; the handles are atomic, since data may still come while the listener stops.
template <class Words>
class QueueListener {
 public:
  QueueListener();
  ~QueueListener() {
    shutdown();
    mQueue.leave(mKeptBlocks);
  }
  QueueListener(const QueueListener&) = delete;
  QueueListener& operator=(const QueueListener&) = delete;

  /// Makes the events, which stay the listener's, and gives their handles out. The general stop event stays the
  /// engine's.
  ListenerResult init(std::uint32_t engineHandle, ProcessDataFunc processDataFunc, platform::Handle* dataEventOut,
                      platform::Handle* stopWaitEventOut, platform::Handle generalStopEvent);
  /// `owner` keeps the listener, and all that it hands its buffers to, alive until the thread has ended.
  ListenerResult startListen(std::shared_ptr<void> owner = nullptr);
  /// Stops the thread and waits for its end, however long that takes, then closes all handles.
  ListenerResult stopListen();
  /// Tells the thread to stop and does not wait. Nothing happens if none runs.
  void tellToStop() {
    if (const platform::Handle event = mStopWaitEvent) platform::setEvent(event);
  }
  /// Queues a copy of the buffer and wakes the thread.
  ListenerResult recvData(const void* buffer, std::uint32_t bufferSize);
  /// Closes what is open; safe to repeat.
  ListenerResult shutdown();

  /// 0 prints nothing on the console. The engine copies its own setting here.
  std::atomic<std::uint32_t> mLogToConsole{0};
  KeptBlocks mKeptBlocks;  ///< The engine copies its own setting here.

 private:
  struct ThreadArguments {
    QueueListener* listener;
    std::shared_ptr<void> owner;
  };

  static std::uint32_t listenerThreadFunc(void* argument);
  std::uint32_t listen();
  /// Hands on all that is queued. True to wait for more; false to end the thread with `*exitCode`.
  bool drain(std::uint32_t* exitCode);
  bool close(std::atomic<platform::Handle>& handle, const char* problem);
  template <class... Pieces>
  void report(std::uint32_t level, const char* function, const Pieces&... pieces) {
    ReportTwice(mLogger, debugPrint, level, function, pieces...);
  }

  // Own locking.
  SafeQueue mQueue;

  // Atomic.
  std::atomic<platform::Handle> mListenerThread{nullptr};
  std::atomic<std::uint32_t> mListenerThreadId{0};
  std::atomic<platform::Handle> mDataEvent{nullptr};      ///< auto-reset; set for each buffer
  std::atomic<platform::Handle> mStopWaitEvent{nullptr};  ///< auto-reset

  // Constant after init().
  platform::Handle mGeneralStopEvent = nullptr;  ///< manual-reset, common to the engine's threads, not owned
  ProcessDataFunc mProcessDataFunc = nullptr;
  std::uint32_t mEngineHandle = 0;

  // Own locking.
  ALogger mLogger;

  DebugPrint debugPrint{mLogToConsole};
};

struct BroadcastWords {
  static constexpr const char* kModuleName = "BroadcastListener";
  static constexpr const char* kLogFile = "Brel_Broadcast_Listener.logs";
};

struct AlertsWords {
  static constexpr const char* kModuleName = "AlertsListener";
  static constexpr const char* kLogFile = "Brel_Alerts_Listener.logs";
};

using BroadcastListener = QueueListener<BroadcastWords>;
using AlertsListener = QueueListener<AlertsWords>;

extern template class QueueListener<BroadcastWords>;
extern template class QueueListener<AlertsWords>;

}  // namespace kel
