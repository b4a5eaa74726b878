/* SPDX-License-Identifier: MIT */
// The table of open task sequences of one engine.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "listeners/SafeQueue.h"
#include "logging/ALogger.h"
#include "logging/DebugPrint.h"
#include "platform/kept_blocks.h"
#include "platform/platform.h"
#include "sequencer/SequenceNumber.h"

namespace kel {

class AsyncListener;

/// Which front call opened a sequence. It selects the form of the client's callbacks.
enum ApiType : std::uint32_t {
  BREL_ISSUE_COMMAND = 0,  ///< the caller built the whole record
  BREL_INVOKE_TASK = 1,    ///< the engine built the record from a task's name and a payload
  BREL_FIXED_TASK = 2,     ///< one of the engine's own tasks, with no callback
  BREL_NO_API_TYPE = 3,    ///< what a failed lookup reports
};

/// Results of the sequencer's operations.
enum SeqStatus : std::uint32_t {
  SEQ_ASSIGN_FAILED = 0,
  SEQ_ASSIGN_NO_FREE_NUMBER = 1,
  SEQ_ASSIGN_OK = 2,
  SEQ_FREE_FAILED = 3,
  SEQ_FREE_OK = 4,
  SEQ_INSERT_FAILED = 5,
  SEQ_INSERT_OK = 6,
  SEQ_RETRIEVE_FAILED = 7,     ///< the mutex could not be acquired or given back
  SEQ_RETRIEVE_OK = 8,
  SEQ_RETRIEVE_NOT_FOUND = 9,  ///< no such sequence
  SEQ_RETRIEVE_EMPTY = 10,     ///< the sequence's queue holds nothing
};

inline constexpr std::uint32_t kSequenceNumbers = 64;

/// A client's callback whose form follows from the sequence's ApiType.
using OpaqueCallback = void (*)();

/// The state of one open sequence.
struct sequence_element {
  ApiType apiType;
  std::uint32_t commandID;
  std::uint32_t TUI;
  platform::Handle syncDataEvent;        ///< set when the answer for a waiting client thread is filed; owned
  platform::Handle aSyncDataEvent;       ///< set when an answer is queued for the sequence's listener thread; owned
  platform::Handle stopEvent;            ///< tells the listener thread to stop; owned
  platform::Handle asyncThreadHandle;    ///< the listener thread, or null; closed by the engine
  AsyncListener* asyncListenerInstance;  ///< the engine's, or null
  OpaqueCallback callbackFunc;
  OpaqueCallback streamCallbackFunc;
  bool isStream;
  bool isAsync;               ///< nobody waits: the first answer goes to the listener thread as well
  bool ackArrived;            ///< the first answer of a stream was seen
  std::uint8_t* buffer;       ///< copy of the answer for the waiting thread, or null; owned
  std::uint32_t bufferSize;   ///< in bytes
  SafeQueue asyncBuffersQueue;  ///< answers for the listener thread, with the buffers in it
  std::uint64_t serial;         ///< no other sequence has it, not even one with the same number or address
};

/// What a lookup gives out of a sequence: a copy, whose `buffer` is a block of the receiver's own.
struct sequence_snapshot {
  ApiType apiType = BREL_NO_API_TYPE;
  std::uint32_t commandID = 0;
  std::uint32_t TUI = 0;
  platform::Handle syncDataEvent = nullptr;
  platform::Handle aSyncDataEvent = nullptr;
  platform::Handle stopEvent = nullptr;
  std::uint8_t* buffer = nullptr;
  std::uint32_t bufferSize = 0;
  SafeQueue* asyncBuffersQueue = nullptr;
  OpaqueCallback callbackFunc = nullptr;
  OpaqueCallback streamCallbackFunc = nullptr;
  platform::Handle asyncThreadHandle = nullptr;
  AsyncListener* asyncListenerInstance = nullptr;
  std::uint32_t streamSeqNum = 0;
  std::uint32_t streamEndSeqNum = 0;
  bool isAsync = false;
  bool isStream = false;
  bool ackArrived = false;
  std::uint64_t serial = 0;  ///< 0: no sequence
};

/// The numbers that are free, first in first out. There is room for each number once, so that giving one back needs no
/// memory and cannot fail.
class FreeNumbers {
 public:
  bool empty() const { return mCount == 0; }
  std::uint32_t front() const { return mNumbers[mFirst]; }
  void pop_front() {
    mFirst = (mFirst + 1) % kSequenceNumbers;
    --mCount;
  }
  void push_back(std::uint32_t number) { mNumbers[(mFirst + mCount++) % kSequenceNumbers] = number; }

 private:
  std::uint32_t mNumbers[kSequenceNumbers];
  std::uint32_t mFirst = 0;
  std::uint32_t mCount = 0;
};

/// Hands out the 64 sequence numbers of one engine, and finds the state behind a number for every thread.
///
/// A number is free (in mFreeSeqNums) or open (in mSequences). It is taken from the front and goes back to the end, so
/// numbers rotate: one that was freed comes again when all that were freed before it have been used. The engine says
/// when a sequence ends; the sequencer never does, knows nothing of the data and calls no client.
///
/// An open sequence has its place in the table itself, so that opening one needs no heap.
///
/// Threads: any. mMutex is held for one table operation at a time, never during a wait for the device and never around
/// client code; the queue's lock is taken inside it. All data crosses the table by copy. A failure is a status, an
/// exhausted heap too: an operation that does not get the mutex within a minute, or no memory for what it files,
/// changes nothing.
class BrelTasksSequencer {
 public:
  BrelTasksSequencer();
  /// Frees what is open; gives up if the mutex is not acquired, or was abandoned. The answers that open sequences hold
  /// are then kept blocks.
  ~BrelTasksSequencer();
  BrelTasksSequencer(const BrelTasksSequencer&) = delete;
  BrelTasksSequencer& operator=(const BrelTasksSequencer&) = delete;

  /// Opens a sequence. The three events stay the sequence's.
  SeqStatus AssignSequence(ApiType apiType, std::uint32_t commandID, std::uint32_t* seqNum, std::uint32_t TUI,
                           platform::Handle* syncDataEvent, platform::Handle* aSyncDataEvent,
                           platform::Handle* stopEvent, OpaqueCallback callbackFunc, OpaqueCallback streamCallbackFunc,
                           std::uint32_t* streamSeqNum, std::uint32_t* streamEndSeqNum, bool isAsync, bool isStream);

  /// Closes a sequence with its events and buffers. The thread's handle is left alone.
  SeqStatus FreeSequence(std::uint32_t seqNum);

  /// Files a copy of the one answer for a waiting thread. An earlier one is overwritten and becomes a kept block.
  SeqStatus InsertDataBySeqNum(std::uint32_t seqNum, const std::uint8_t* buffer, std::uint32_t size,
                               platform::Handle* syncDataEvent, platform::Handle* aSyncDataEvent,
                               AsyncListener** asyncListenerInstance, bool* isAsync, bool* isStream);
  /// Queues a copy of an answer for the listener thread.
  SeqStatus InsertAsyncDataBySeqNum(std::uint32_t seqNum, const std::uint8_t* buffer, std::uint32_t size,
                                    platform::Handle* syncDataEvent, platform::Handle* aSyncDataEvent,
                                    AsyncListener** asyncListenerInstance, bool* isAsync, bool* isStream);
  /// Files the listener thread; two nulls erase it.
  SeqStatus InsertAsyncListenerInfoBySeqNum(std::uint32_t seqNum, platform::Handle asyncThreadHandle,
                                            AsyncListener* asyncListenerInstance);
  SeqStatus InsertAckBySeqNum(std::uint32_t seqNum);

  /// All of a sequence at once. `snapshot->buffer` is the caller's to free, whatever the status: with
  /// SEQ_RETRIEVE_FAILED the snapshot is empty, or a full one behind which the mutex could not be given back. A buffer
  /// for which there is no memory is missing, like one that was never filed.
  SeqStatus RetrieveBySeqNum(std::uint32_t seqNum, sequence_snapshot* snapshot);

  // Parts of a sequence. The status is that of RetrieveBySeqNum, and to be looked at first: with any but
  // SEQ_RETRIEVE_OK the outputs mean nothing, and no buffer is given out.
  SeqStatus RetrieveSyncDataEventBySeqNum(std::uint32_t seqNum, platform::Handle* syncDataEvent);
  SeqStatus RetrieveASyncDataEventBySeqNum(std::uint32_t seqNum, platform::Handle* aSyncDataEvent);
  SeqStatus RetrieveAsyncThreadInfoBySeqNum(std::uint32_t seqNum, platform::Handle* stopEvent,
                                            platform::Handle* asyncThreadHandle,
                                            AsyncListener** asyncListenerInstance);
  SeqStatus RetrieveAsyncListenerInfoBySeqNum(std::uint32_t seqNum, platform::Handle* asyncThreadHandle,
                                              AsyncListener** asyncListenerInstance);
  SeqStatus RetrieveCallbacksBySeqNum(std::uint32_t seqNum, ApiType* apiType, std::uint32_t* commandID,
                                      std::uint32_t* TUI, OpaqueCallback* callbackFunc,
                                      OpaqueCallback* streamCallbackFunc, bool* isStream);
  SeqStatus RetrieveAckBySeqNum(std::uint32_t seqNum, bool* ackArrived);
  SeqStatus RetrieveSequenceTypeInfoBySeqNum(std::uint32_t seqNum, platform::Handle* syncDataEvent,
                                             platform::Handle* aSyncDataEvent, bool* isAsync, bool* isStream);
  /// The copied buffer is the caller's; null if there is none, or no memory for it.
  SeqStatus RetrieveDataBySeqNum(std::uint32_t seqNum, std::uint32_t* TUI, std::uint8_t** buffer,
                                 std::uint32_t* bufferSize, bool* isStream);
  /// Takes the oldest answer off the queue; it is the caller's. SEQ_RETRIEVE_EMPTY if there is none,
  /// SEQ_RETRIEVE_FAILED if there is no such sequence, or it is closed meanwhile.
  SeqStatus RetrieveNextAsyncBufferBySeqNum(std::uint32_t seqNum, std::uint32_t* TUI, std::uint8_t** buffer,
                                            std::uint32_t* bufferSize, bool* isStream);

  /// 0 prints nothing on the console. The engine copies its own setting here.
  std::atomic<std::uint32_t> mLogToConsole{0};
  KeptBlocks mKeptBlocks;  ///< The engine copies its own setting here.

 private:
  using Sequences = std::array<std::optional<sequence_element>, kSequenceNumbers>;

  /// The kernel mutex in a form that the thread-safety analysis can follow.
  struct CAPABILITY("mutex") TableMutex {
    platform::Handle handle = nullptr;
  };

  enum class Abandoned { accept, refuse };

  /// Gives a mutex back that was acquired, with its scope if not before.
  class SCOPED_CAPABILITY Acquired {
   public:
    explicit Acquired(BrelTasksSequencer& sequencer) REQUIRES(sequencer.mMutex) : mSequencer(sequencer) {}
    ~Acquired() RELEASE() {
      if (mHeld) release();
    }
    Acquired(const Acquired&) = delete;
    Acquired& operator=(const Acquired&) = delete;
    /// Whether it could be given back.
    bool release() RELEASE();

   private:
    BrelTasksSequencer& mSequencer;
    bool mHeld = true;
  };

  bool init();
  bool acquire(std::uint32_t milliseconds, Abandoned abandoned) TRY_ACQUIRE(true, mMutex);
  /// The element, or null.
  sequence_element* find(std::uint32_t seqNum) REQUIRES(mMutex);
  /// The frame of the insert operations: `change` is called with the element under the mutex and says whether it did.
  template <class Change>
  bool update(std::uint32_t seqNum, Change change);
  /// The frame of the partial lookups: `handOn` is called with the snapshot, whose buffer is freed afterwards.
  template <class HandOn>
  SeqStatus retrieve(std::uint32_t seqNum, HandOn handOn);
  template <class... Pieces>
  void report(std::uint32_t level, const char* function, const Pieces&... pieces) {
    ReportTwice(mLogger, debugPrint, level, function, pieces...);
  }

  // Own locking.
  ALogger mLogger;

  // Guarded by mMutex.
  Sequences mSequences GUARDED_BY(mMutex);  ///< by their numbers
  FreeNumbers mFreeSeqNums GUARDED_BY(mMutex);

  TableMutex mMutex;

  std::uint32_t mAsyncBufferCounter GUARDED_BY(mMutex) = 0;  ///< answers queued so far, for the log only
  std::uint64_t mLastSerial GUARDED_BY(mMutex) = 0;

  DebugPrint debugPrint{mLogToConsole};
};

}  // namespace kel
