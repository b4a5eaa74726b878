/* SPDX-License-Identifier: MIT */
// The task engine: all that one connection is made of.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "KELHandler.h"
#include "adapter/TaskRecord.h"
#include "catalogue/BrelTUIsList.h"
#include "engine/IniFileReader.h"
#include "engine/Status.h"
#include "listeners/AsyncListener.h"
#include "listeners/QueueListener.h"
#include "logging/ALogger.h"
#include "logging/DebugPrint.h"
#include "platform/kept_blocks.h"
#include "platform/platform.h"
#include "sequencer/BrelTasksSequencer.h"

namespace kel {

struct ListenerLines;   // Listeners.cpp
struct SequenceAnswer;  // SequenceResponses.cpp

/// The alerts callback of in-process users: gets an engine status. No export offers it.
using AlertsCallback = void (*)(std::uint32_t status);

/// One connection: its settings, task table, sequences, listeners and the link to its adapter row.
///
///   state         entered by
///   built         constructor: nothing runs
///   initialising  init()
///   initialised   the end of init(): mInitialized is 1
///   finalised     Finalize(); never initialised again
///
/// Data can come from the moment that the adapter is connected, which is before mInitialized is set; the handlers drop
/// broadcasts and alerts until then, while answers to tasks are taken.
///
/// Locks, outermost first: mLifecycleLock (the whole of init() and of Finalize()), mInitLock (mInitialized; held by the
/// handlers through the client's callback), then the sequencer's mutex and the queues' locks. mSendLock and
/// mAsyncThreadsCountLock are taken alone.
///
/// The steps of init() and Finalize(), their order, their statuses and what they leave behind are what clients rely on.
class BrelEngine {
 public:
  BrelEngine();
  ~BrelEngine();
  BrelEngine(const BrelEngine&) = delete;
  BrelEngine& operator=(const BrelEngine&) = delete;

  // -------------------------------------------------------------------------------------------------------------------
  // What a client calls, through the front functions in Brel.h: any thread, several at once
  // -------------------------------------------------------------------------------------------------------------------

  // Lifecycle.cpp. The paths may be null. 2, or 1, 3, 5, 7, 11, 21 with everything taken down again that Finalize()
  // takes down; or 1 with nothing taken down if an exception was met, an exhausted heap above all. An adapter row is
  // then lost.
  Status init(const char* TUIsFilePath, bool activateVersionControl, const char* versionsVectorsPath);
  /// 2, or 1 with the engine half torn down.
  Status Finalize();

  // SyncTasks.cpp.
  /// Sends a task by name and, if `responseExpected` is 1, waits for its answer. `*expectedResultsTaskBuffer` gets the
  /// answer's payload in a block of the caller's, or null; it is untouched if the name is unknown. The request's block
  /// and the copy of the whole answer are kept blocks.
  Status InvokeTask(const char* taskName, std::uint32_t commandID, const void* inputBuffer,
                    std::uint32_t inputBufferSize, std::uint32_t initialSeqTUI, std::uint8_t responseExpected,
                    void** expectedResultsTaskBuffer, std::uint32_t* expectedResultsTaskBufferSize,
                    std::uint32_t* resultParam4, OpaqueCallback streamCallbackFunc);
  /// The same for a record that the caller has built and keeps. `*responseRecord` gets the whole answer in a block of
  /// the caller's, `*responseSize` its size with the head.
  Status IssueCommand(std::uint32_t commandID, task* record, task** responseRecord, std::uint32_t* responseSize,
                      OpaqueCallback streamCallbackFunc);

  // AsyncTasks.cpp.
  /// Sends a task by name; its answers go to the callbacks. `*seqNum` gets the sequence's number, if it has one. The
  /// request's block is a kept one, as with InvokeTask().
  Status InvokeAsyncTask(const char* taskName, std::uint32_t commandID, const void* inputBuffer,
                         std::uint32_t inputBufferSize, std::uint32_t initialSeqTUI, std::uint8_t responseExpected,
                         std::uint32_t* seqNum, OpaqueCallback callbackFunc, OpaqueCallback streamCallbackFunc);
  /// The same for a record that the caller has built and keeps.
  Status IssueAsyncCommand(std::uint32_t commandID, task* record, std::uint32_t* seqNum, OpaqueCallback callbackFunc,
                           OpaqueCallback streamCallbackFunc);

  // FixedTasks.cpp. Outputs are written on success only; blocks that are given out are the caller's.
  Status GetTraceFilePath(char** filePath);
  Status SetTraceFilePath(const char* filePath);
  Status GetTraceSeverityMultiple(std::uint8_t** buffer, std::uint32_t* size);
  Status SetTraceSeverityMultiple(const std::uint8_t* severityArray);
  Status GetAllStatistics(std::uint8_t** buffer, std::uint32_t* size);
  Status ResetStatisticsBuffer();

  // Versioning.cpp.
  Status ValidateVersion(char* fileName, const void* fileBuffer, std::uint32_t fileLength, void* userVersion,
                         const char* versionsVectorsPath);

  // Lookups.cpp.
  /// 2, also for an unknown name, which leaves `*tui` at 0.
  Status BrelFindTuiByName(const char* name, std::uint32_t* tui);
  /// A text in a block that is the caller's, and 2; or 1 for a code that has none.
  Status GetStatusString(std::uint32_t code, char** text);
  Status GetCallbackStatusString(std::uint32_t code, char** text);

  // -------------------------------------------------------------------------------------------------------------------
  // What the library's own threads call; a buffer stays the caller's
  // -------------------------------------------------------------------------------------------------------------------

  // IncomingData.cpp, on the pipe library's threads. 1, or 0 for what was not taken.
  std::uint32_t TakeRecord(const std::uint8_t* record, std::uint32_t size);
  std::uint32_t TakeAlert(std::uint32_t errorCode);

  // IncomingData.cpp, on the thread of the alerts listener and on that of the broadcast listener.
  bool HandleAlertResponse(const std::uint8_t* buffer, std::uint32_t bufferSize);
  bool HandleBroadcastResponse(const std::uint8_t* buffer, std::uint32_t bufferSize);

  // SequenceResponses.cpp, on the listener thread of the sequence.
  /// Delivers an answer, or with `errorCode` not 0 the lack of one.
  bool HandleSequenceResponse(std::uint32_t seqNum, std::uint32_t errorCode, std::uint8_t* buffer,
                              std::uint32_t bufferSize) NO_THREAD_SAFETY_ANALYSIS;
  /// Takes the next answer off the queue; it is the caller's. 0, 1 (failed) or 2 (empty).
  std::uint32_t RetrieveNextAsyncBuffer(std::uint32_t seqNum, std::uint8_t** buffer, std::uint32_t* bufferSize);
  /// Ends a sequence that had a thread, and counts the thread off.
  bool FreeSequence(std::uint32_t seqNum);

  // -------------------------------------------------------------------------------------------------------------------
  // What the engine's makers use: Brel.cpp and Instances.cpp
  // -------------------------------------------------------------------------------------------------------------------

  /// Tells the listeners' threads to end, if there are any left, and does not wait. They keep the engine alive for as
  /// long. For an engine that is given up.
  void stopThreads();
  /// The console outlet: prints while mLogToConsole is not 0.
  const DebugPrint& debugPrint() const { return mDebugPrint; }

  // Constant from before init() on.
  KEL_BroadcastCallback mBroadcastCallback = nullptr;
  AlertsCallback mAlertsCallback = nullptr;

 private:
  // -------------------------------------------------------------------------------------------------------------------
  // How each source does its part
  // -------------------------------------------------------------------------------------------------------------------

  // Lifecycle.cpp.
  Status initSteps(const char* TUIsFilePath, bool activateVersionControl, const char* versionsVectorsPath)
      EXCLUDES(mLifecycleLock);
  Status finalizeSteps() EXCLUDES(mLifecycleLock);
  bool disconnectAdapter();
  void setInitialized(bool initialized) EXCLUDES(mInitLock);

  // Listeners.cpp.
  template <class Listener>
  bool activate(Listener& listener, const ListenerLines& lines, ProcessDataFunc processDataFunc,
                platform::Handle* dataEvent, platform::Handle* stopWaitEvent, std::atomic<bool>* active);
  template <class Listener>
  bool deactivate(Listener& listener, const ListenerLines& lines, std::atomic<bool>* active);
  bool ActivateAlerterThread();
  bool ActivateBroadcastThread();
  bool ShutdownAlerterThread();
  bool ShutdownBroadcastThread();

  // AsyncTasks.cpp.
  Status IssueAsyncCommandBase(ApiType apiType, std::uint32_t commandID, task* record, std::uint32_t* seqNum,
                               OpaqueCallback callbackFunc, OpaqueCallback streamCallbackFunc);
  bool initAsyncListener(std::uint32_t seqNum, platform::Handle aSyncDataEvent, platform::Handle stopEvent,
                         platform::Handle generalStopEvent);
  bool ActivateAsyncThread();
  bool ShutdownAsyncThread();
  bool GenerateAsyncThread(std::uint32_t seqNum, platform::Handle aSyncDataEvent, platform::Handle stopEvent,
                           bool isStream);
  bool DisposeAsyncThread(std::uint32_t seqNum);
  std::int32_t asyncThreadsCount() EXCLUDES(mAsyncThreadsCountLock);
  void IncreaseAsyncThreadsCount() EXCLUDES(mAsyncThreadsCountLock);
  void DecreaseAsyncThreadsCount() EXCLUDES(mAsyncThreadsCountLock);
  void reportAsyncThread(std::uint32_t level, const char* function, std::uint32_t seqNum, const char* text,
                         const char* consoleFormat);

  // SequenceResponses.cpp: the steps of HandleSequenceResponse(). False is its failure, with the reason in the log.
  bool findSequence(SequenceAnswer* answer) REQUIRES(mInitLock);
  void takeAnswer(SequenceAnswer* answer, std::uint8_t* buffer, std::uint32_t bufferSize) REQUIRES(mInitLock);
  bool deliver(const SequenceAnswer& answer) REQUIRES(mInitLock);
  void callClient(const SequenceAnswer& answer, OpaqueCallback callback) REQUIRES(mInitLock);
  bool checkSequenceEnd(const SequenceAnswer& answer, bool* ended) REQUIRES(mInitLock);
  bool endSequence(std::uint32_t coreSeqNum) REQUIRES(mInitLock);
  void reportHandling(std::uint32_t level, std::uint32_t coreSeqNum, const char* text, const char* consoleFormat);
  bool failHandling(std::uint32_t coreSeqNum, const char* text, const char* consoleFormat);
  /// Ends a sequence that has no listener thread. False, with a line in the log, if there is no such sequence.
  bool FreeSequenceElementOnly(std::uint32_t seqNum);
  bool freeElement(std::uint32_t seqNum, const char* function, const char* consoleFormat);

  // Settings.cpp.
  bool LoadBrelIniSettings();
  bool findBrelIni();
  std::uint32_t readNumber(const char* line, std::atomic<std::uint32_t>* setting);
  KeptBlocks::Held<char> readText(const char* line, const char* defaultText, const char* unchanged, char** setting);
  void setReleaseBlocks(std::uint32_t inFile);

  // SyncTasks.cpp.
  static std::size_t RequestBlockSize(const void* inputBuffer, std::uint32_t inputBufferSize);
  static task* BuildRequest(void* block, std::uint32_t TUI, std::uint8_t responseExpected, std::uint32_t initialSeqTUI,
                            const void* inputBuffer, std::uint32_t inputBufferSize);
  Status IssueCommandBase(ApiType apiType, std::uint32_t commandID, task* record, task** responseRecord,
                          std::uint32_t* responseSize, OpaqueCallback streamCallbackFunc);
  std::uint32_t SendToDorv(const char* callerName, const task* record, std::uint32_t recordSize);
  bool WaitForRx(const char* callerName, platform::Handle dataEvent);
  task* GetRxMsgBuf(const char* callerName, std::uint32_t seqNum, platform::Handle dataEvent);

  // IncomingData.cpp.
  std::uint32_t takeBroadcast(const std::uint8_t* record, std::uint32_t size);
  std::uint32_t takeResponse(std::uint32_t word, const std::uint8_t* record, std::uint32_t size);

  // FixedTasks.cpp.
  struct FixedTask;
  Status sendFixedTask(const FixedTask& fixed, std::uint32_t* seqNum, platform::Handle* syncDataEvent);
  Status awaitFixedTask(const FixedTask& fixed, std::uint32_t seqNum, platform::Handle syncDataEvent, task** response);
  Status runFixedTask(const FixedTask& fixed, task** response);
  Status readByFixedTask(const FixedTask& fixed, std::uint8_t** block, std::uint32_t* size);
  Status judgeAnswer(const FixedTask& fixed, task* response);

  // Versioning.cpp.
  struct VerGenUIDs;
  bool InitVersioningSupport();
  bool RetrieveVersionsUIDsArray();
  void LoadVersionsVectorsResources();
  bool VersionValidateKelAllTasksFile();

  // Dumps.cpp.
  bool DumpRequestBuffer(const task* record, std::uint32_t size);
  bool DumpResponseBuffer(const task* record, std::uint32_t size);
  bool DumpStruct(const char* fileName, const task* record, std::uint32_t size);
  bool DumpStructPayload(const char* fileName, const task* record, std::uint32_t size);

  template <class... Pieces>
  void report(std::uint32_t level, const char* function, const Pieces&... pieces) {
    ReportTwice(mLogger, mDebugPrint, level, function, pieces...);
  }

  friend class EngineTable;  // sets mHandle

  // -------------------------------------------------------------------------------------------------------------------
  // Members
  // -------------------------------------------------------------------------------------------------------------------

  // Own locking.
  ALogger mLogger;
  KeptBlocks mKeptBlocks;  ///< clients know the growth of their process that comes of these blocks

  // Version control. All its blocks are kept ones.
  std::atomic<bool> mVersioningActive{false};
  // Calls from several threads may fetch the UIDs at once.
  VerGenUIDs* mVerGenUIDs GUARDED_BY(mVerGenUIDsLock) = nullptr;
  platform::CriticalSection mVerGenUIDsLock;  ///< taken alone
  // Constant after init().
  char* mVersionsVectorsPath = nullptr;
  const char** mVersionsVectorBuffers = nullptr;
  std::uint32_t* mVersionsVectorSizes = nullptr;
  std::uint32_t mVersionsVectorCount = 0;

  // Own locking.
  BrelTasksSequencer mTasksSequencer;

  // The listeners have their own locking. Their flags are atomic; their events are constant after init().
  AlertsListener mAlertsListener;
  std::atomic<bool> mAlertsListenerActive{false};
  platform::Handle mAlertsDataEvent = nullptr;
  platform::Handle mAlertsStopWaitEvent = nullptr;
  BroadcastListener mBroadcastListener;
  std::atomic<bool> mBroadcastListenerActive{false};
  platform::Handle mBroadcastDataEvent = nullptr;
  platform::Handle mBroadcastStopWaitEvent = nullptr;
  AsyncListener mAsyncListener;
  std::atomic<bool> mAsyncListenerActive{false};

  // Guarded by mAsyncThreadsCountLock.
  std::int32_t mAsyncThreadsCount GUARDED_BY(mAsyncThreadsCountLock) = 0;

  // Locks.
  platform::CriticalSection mAsyncThreadsCountLock;
  platform::CriticalSection mSendLock;  ///< one Dorv_Send at a time
  platform::CriticalSection mLifecycleLock;

  /// Written under mInitLock, and read under it by the handlers of broadcasts, alerts and sequences. Atomic, since
  /// TakeAlert() reads it without the lock.
  std::atomic<bool> mInitialized{false};
  platform::CriticalSection mInitLock;

  // Atomic: other threads may already call, or may still call, while init() and Finalize() run.
  std::atomic<platform::Handle> mGeneralStopEvent{nullptr};  ///< manual-reset; stale after Finalize()
  std::atomic<std::uint32_t> mRxWaitTimeout{10000};          ///< in milliseconds

  // Constant between init() and Finalize(), which frees the names of the dumps and the address. All texts are owned.
  bool mIniFileFound = false;
  IniFileReader mIniReader;
  char* mRequestStructDumpFilename;  ///< these four: empty for no dump
  char* mRequestStructPayloadDumpFilename;
  char* mResponseStructDumpFilename;
  char* mResponseStructPayloadDumpFilename;
  BrelTUIsList mTUIsList;
  char* mTUIsFilePath;  ///< a kept block at the end of the engine
  std::string mBrelDllsPath;
  char* mUpperDriverIpAddress;

  // Atomic.
  std::atomic<std::uint32_t> mUpperDriverPortNumber{1234};
  std::atomic<std::uint32_t> mLogToConsole{0};

  // Constant from before init() on.
  std::uint32_t mHandle = 0;  ///< row in the table of engines

  DebugPrint mDebugPrint{mLogToConsole};
};

}  // namespace kel
