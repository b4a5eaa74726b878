// SPDX-License-Identifier: MIT
#include "sequencer/BrelTasksSequencer.h"

#include <memory>
#include <new>
#include <utility>

#include "platform/memory.h"

namespace kel {
namespace {

constexpr std::uint32_t kTableWait = 60000;
constexpr std::uint32_t kNextBufferWait = 5000;

/// What both ways of filing data give to the caller.
void HandOut(const sequence_element& element, platform::Handle* syncDataEvent, platform::Handle* aSyncDataEvent,
             AsyncListener** asyncListenerInstance, bool* isAsync, bool* isStream) {
  *syncDataEvent = element.syncDataEvent;
  *aSyncDataEvent = element.aSyncDataEvent;
  *asyncListenerInstance = element.asyncListenerInstance;
  *isAsync = element.isAsync;
  *isStream = element.isStream;
}

}  // namespace

BrelTasksSequencer::BrelTasksSequencer() {
  mLogger.setRegistryKey(kLoggerRegistryKey);
  mLogger.setFileName("Brel_Tasks_Sequencer.logs");
  mLogger.setModuleName("BrelTasksSequencer");
  // A sequencer that did not come up has no numbers to give, which is how its engine learns of it.
  init();
}

bool BrelTasksSequencer::init() {
  mMutex.handle = platform::createMutex(false);
  if (!acquire(kTableWait, Abandoned::refuse)) return false;
  Acquired acquired(*this);
  for (std::uint32_t number = 0; number < kSequenceNumbers; ++number) mFreeSeqNums.push_back(number);
  return acquired.release();
}

BrelTasksSequencer::~BrelTasksSequencer() {
  if (!acquire(kTableWait, Abandoned::refuse)) {
    for (std::optional<sequence_element>& element : mSequences) {
      if (!element) continue;
      mKeptBlocks.leave(element->buffer);
      element->asyncBuffersQueue.leave(mKeptBlocks);
    }
    return;
  }
  Acquired acquired(*this);
  // The mutex is taken again inside.
  for (std::uint32_t number = 0; number < kSequenceNumbers; ++number) FreeSequence(number);
  acquired.release();
  platform::closeHandle(mMutex.handle);
}

bool BrelTasksSequencer::acquire(std::uint32_t milliseconds, Abandoned abandoned) NO_THREAD_SAFETY_ANALYSIS {
  switch (platform::waitForOne(mMutex.handle, milliseconds)) {
    case platform::kWaitObject: return true;
    // Who refuses an abandoned mutex has become its owner all the same, and gives nothing back: that is for an
    // operation that was let in. The mutex is free again when this thread has ended, and is then found abandoned once
    // more.
    case platform::kWaitAbandoned: return abandoned == Abandoned::accept;
    default: return false;
  }
}

bool BrelTasksSequencer::Acquired::release() NO_THREAD_SAFETY_ANALYSIS {
  mHeld = false;
  return platform::releaseMutex(mSequencer.mMutex.handle);
}

sequence_element* BrelTasksSequencer::find(std::uint32_t seqNum) {
  return seqNum < kSequenceNumbers && mSequences[seqNum] ? &*mSequences[seqNum] : nullptr;
}

// ---------------------------------------------------------------------------------------------------------------------
// Opening and closing
// ---------------------------------------------------------------------------------------------------------------------

SeqStatus BrelTasksSequencer::AssignSequence(ApiType apiType, std::uint32_t commandID, std::uint32_t* seqNum,
                                             std::uint32_t TUI, platform::Handle* syncDataEvent,
                                             platform::Handle* aSyncDataEvent, platform::Handle* stopEvent,
                                             OpaqueCallback callbackFunc, OpaqueCallback streamCallbackFunc,
                                             std::uint32_t* streamSeqNum, std::uint32_t* streamEndSeqNum, bool isAsync,
                                             bool isStream) try {
  if (!acquire(kTableWait, Abandoned::accept)) return SEQ_ASSIGN_FAILED;
  Acquired acquired(*this);

  if (mFreeSeqNums.empty()) {
    if (!mKeptBlocks.released()) {
      // A refused sequence leaves the memory of one: clients know this growth of the process. As a call this cannot be
      // optimised away, which a block that nobody uses otherwise is.
      [[maybe_unused]] void* const kept = ::operator new(sizeof(sequence_element));
    }
    return SEQ_ASSIGN_NO_FREE_NUMBER;
  }
  const std::uint32_t number = mFreeSeqNums.front();
  mFreeSeqNums.pop_front();
  *seqNum = number;
  *streamSeqNum = GetStreamSeqNum(number);
  *streamEndSeqNum = GetStreamEndSeqNum(number);

  // From here on a failure loses the number, and the events that were made.
  platform::Handle events[3];
  for (platform::Handle& event : events) {
    event = platform::createEvent(false, false);
    if (event == nullptr) return SEQ_ASSIGN_FAILED;
  }
  std::optional<sequence_element>& element = mSequences[number];
  element.emplace();
  if (element->asyncBuffersQueue.init() != QUEUE_INIT_OK) {
    element.reset();
    return SEQ_ASSIGN_FAILED;
  }
  *syncDataEvent = element->syncDataEvent = events[0];
  *aSyncDataEvent = element->aSyncDataEvent = events[1];
  *stopEvent = element->stopEvent = events[2];
  element->apiType = apiType;
  element->commandID = commandID;
  element->TUI = TUI;
  element->callbackFunc = callbackFunc;
  element->streamCallbackFunc = streamCallbackFunc;
  element->isAsync = isAsync;
  element->isStream = isStream;
  element->serial = ++mLastSerial;
  if (!acquired.release()) return SEQ_ASSIGN_FAILED;
  report(kInfo, "AssignSequence", "assigned sequence number ", number, " \n");
  return SEQ_ASSIGN_OK;
} catch (const std::bad_alloc&) {
  return SEQ_ASSIGN_FAILED;
}

SeqStatus BrelTasksSequencer::FreeSequence(std::uint32_t seqNum) {
  SeqStatus result = SEQ_FREE_OK;
  if (!acquire(kTableWait, Abandoned::accept)) return SEQ_FREE_FAILED;
  Acquired acquired(*this);
  sequence_element* element = find(seqNum);
  if (element == nullptr) return SEQ_FREE_FAILED;
  for (const platform::Handle event : {element->syncDataEvent, element->aSyncDataEvent, element->stopEvent}) {
    if (!platform::closeHandle(event)) result = SEQ_FREE_FAILED;
  }

  std::uint8_t* queued = nullptr;
  std::uint32_t queuedSize = 0;
  for (;;) {
    const QueueResult queueRes = element->asyncBuffersQueue.extract(&queued, &queuedSize);
    if (queueRes == QUEUE_EMPTY) break;
    if (queueRes == QUEUE_EXTRACT_FAILED) {
      report(kError, "FreeSequence", "problem extracting from asyncBuffersQueue \n");
      break;
    }
    std::free(queued);
  }
  if (element->asyncBuffersQueue.shutdown() != QUEUE_SHUTDOWN_OK) result = SEQ_FREE_FAILED;
  std::free(element->buffer);

  mSequences[seqNum].reset();
  mFreeSeqNums.push_back(seqNum);
  if (!acquired.release()) return SEQ_FREE_FAILED;
  report(kInfo, "FreeSequence", "freed sequence number ", seqNum, " \n");
  return result;
}

// ---------------------------------------------------------------------------------------------------------------------
// Filing
// ---------------------------------------------------------------------------------------------------------------------

template <class Change>
bool BrelTasksSequencer::update(std::uint32_t seqNum, Change change) try {
  if (!acquire(kTableWait, Abandoned::accept)) return false;
  Acquired acquired(*this);
  sequence_element* element = find(seqNum);
  if (element == nullptr) {
    // The same words for all four operations.
    debugPrint("InsertDataBySeqNum - could not find sequence number %d \n", static_cast<int>(seqNum));
    return false;
  }
  const bool changed = change(*element);
  return acquired.release() && changed;
} catch (const std::bad_alloc&) {
  return false;
}

SeqStatus BrelTasksSequencer::InsertDataBySeqNum(std::uint32_t seqNum, const std::uint8_t* buffer, std::uint32_t size,
                                                 platform::Handle* syncDataEvent, platform::Handle* aSyncDataEvent,
                                                 AsyncListener** asyncListenerInstance, bool* isAsync,
                                                 bool* isStream) {
  const bool inserted = update(seqNum, [&](sequence_element& element) {
    const bool hasData = buffer != nullptr && size != 0;
    mKeptBlocks.leave(std::exchange(element.buffer, hasData ? CopyBlock(buffer, size) : nullptr));
    element.bufferSize = hasData ? size : 0;
    HandOut(element, syncDataEvent, aSyncDataEvent, asyncListenerInstance, isAsync, isStream);
    return true;
  });
  if (!inserted) return SEQ_INSERT_FAILED;
  report(kInfo, "InsertDataBySeqNum", "inserted data for sequence number ", seqNum, " \n");
  return SEQ_INSERT_OK;
}

SeqStatus BrelTasksSequencer::InsertAsyncDataBySeqNum(std::uint32_t seqNum, const std::uint8_t* buffer,
                                                      std::uint32_t size, platform::Handle* syncDataEvent,
                                                      platform::Handle* aSyncDataEvent,
                                                      AsyncListener** asyncListenerInstance, bool* isAsync,
                                                      bool* isStream) {
  const bool inserted = update(seqNum, [&](sequence_element& element) NO_THREAD_SAFETY_ANALYSIS {
    std::unique_ptr<std::uint8_t, decltype(&std::free)> copy(nullptr, std::free);
    std::uint32_t copySize = 0;
    if (buffer != nullptr && size != 0) {
      copy.reset(CopyBlock(buffer, size));
      copySize = size;
      ++mAsyncBufferCounter;
      mLogger.log(kInfo, "InsertAsyncDataBySeqNum", kLogFlags)
          << "allocated memory for asyncBuffer number " << mAsyncBufferCounter << ". asyncBufferSize = " << size
          << " \n";
    }
    // A queue that cannot grow keeps its own lock, and whoever comes to it next, on another thread, waits for ever.
    const QueueResult queue_res = element.asyncBuffersQueue.insert(copy.get(), copySize);
    std::uint8_t* const queued = copy.release();
    if (queue_res != QUEUE_INSERT_OK) {
      mKeptBlocks.leave(queued);
      mLogger.log(kError, "InsertAsyncDataBySeqNum", kLogFlags)
          << "problem inserting to asyncBuffersQueue - " << static_cast<std::uint32_t>(queue_res) << " \n";
      debugPrint("InsertAsyncDataBySeqNum - problem inserting to asyncBuffersQueue - %d\n",
                 static_cast<int>(queue_res));
      return false;
    }
    HandOut(element, syncDataEvent, aSyncDataEvent, asyncListenerInstance, isAsync, isStream);
    return true;
  });
  if (!inserted) return SEQ_INSERT_FAILED;
  report(kInfo, "InsertAsyncDataBySeqNum", "inserted async data for sequence number ", seqNum, " \n");
  return SEQ_INSERT_OK;
}

SeqStatus BrelTasksSequencer::InsertAsyncListenerInfoBySeqNum(std::uint32_t seqNum, platform::Handle asyncThreadHandle,
                                                              AsyncListener* asyncListenerInstance) {
  const bool inserted = update(seqNum, [&](sequence_element& element) {
    element.asyncThreadHandle = asyncThreadHandle;
    element.asyncListenerInstance = asyncListenerInstance;
    return true;
  });
  if (!inserted) return SEQ_INSERT_FAILED;
  report(kInfo, "InsertAsyncListenerInfoBySeqNum", "inserted async listener info for sequence number ", seqNum, " \n");
  return SEQ_INSERT_OK;
}

SeqStatus BrelTasksSequencer::InsertAckBySeqNum(std::uint32_t seqNum) {
  const bool inserted = update(seqNum, [](sequence_element& element) {
    element.ackArrived = true;
    return true;
  });
  if (!inserted) return SEQ_INSERT_FAILED;
  report(kInfo, "InsertAckBySeqNum", "inserted Ack for sequence number ", seqNum, " \n");
  return SEQ_INSERT_OK;
}

// ---------------------------------------------------------------------------------------------------------------------
// Looking up
// ---------------------------------------------------------------------------------------------------------------------

SeqStatus BrelTasksSequencer::RetrieveBySeqNum(std::uint32_t seqNum, sequence_snapshot* snapshot) {
  *snapshot = {};
  if (!acquire(kTableWait, Abandoned::accept)) return SEQ_RETRIEVE_FAILED;
  Acquired acquired(*this);
  sequence_element* element = find(seqNum);
  if (element == nullptr) return SEQ_RETRIEVE_NOT_FOUND;
  snapshot->apiType = element->apiType;
  snapshot->commandID = element->commandID;
  snapshot->TUI = element->TUI;
  snapshot->syncDataEvent = element->syncDataEvent;
  snapshot->aSyncDataEvent = element->aSyncDataEvent;
  snapshot->stopEvent = element->stopEvent;
  if (element->buffer != nullptr) {
    try {
      snapshot->buffer = CopyBlock(element->buffer, element->bufferSize);
      snapshot->bufferSize = element->bufferSize;
    } catch (const std::bad_alloc&) {
      // Most look-ups have no use for the answer, and a failure would cost them their connection.
    }
  }
  snapshot->asyncBuffersQueue = &element->asyncBuffersQueue;
  snapshot->callbackFunc = element->callbackFunc;
  snapshot->streamCallbackFunc = element->streamCallbackFunc;
  snapshot->asyncThreadHandle = element->asyncThreadHandle;
  snapshot->asyncListenerInstance = element->asyncListenerInstance;
  snapshot->streamSeqNum = GetStreamSeqNum(seqNum);
  snapshot->streamEndSeqNum = GetStreamEndSeqNum(seqNum);
  snapshot->isAsync = element->isAsync;
  snapshot->isStream = element->isStream;
  snapshot->ackArrived = element->ackArrived;
  snapshot->serial = element->serial;
  if (!acquired.release()) return SEQ_RETRIEVE_FAILED;
  report(kInfo, "RetrieveBySeqNum", "retrieved data for sequence number ", seqNum, " \n");
  return SEQ_RETRIEVE_OK;
}

template <class HandOn>
SeqStatus BrelTasksSequencer::retrieve(std::uint32_t seqNum, HandOn handOn) {
  sequence_snapshot snapshot;
  const SeqStatus status = RetrieveBySeqNum(seqNum, &snapshot);
  if (status != SEQ_RETRIEVE_OK) {
    // Who sees a failure takes no buffer, though there may be one.
    std::free(std::exchange(snapshot.buffer, nullptr));
    snapshot.bufferSize = 0;
  }
  handOn(snapshot);
  std::free(snapshot.buffer);
  return status;
}

SeqStatus BrelTasksSequencer::RetrieveSyncDataEventBySeqNum(std::uint32_t seqNum, platform::Handle* syncDataEvent) {
  return retrieve(seqNum, [&](const sequence_snapshot& s) { *syncDataEvent = s.syncDataEvent; });
}

SeqStatus BrelTasksSequencer::RetrieveASyncDataEventBySeqNum(std::uint32_t seqNum, platform::Handle* aSyncDataEvent) {
  return retrieve(seqNum, [&](const sequence_snapshot& s) { *aSyncDataEvent = s.aSyncDataEvent; });
}

SeqStatus BrelTasksSequencer::RetrieveAsyncThreadInfoBySeqNum(std::uint32_t seqNum, platform::Handle* stopEvent,
                                                              platform::Handle* asyncThreadHandle,
                                                              AsyncListener** asyncListenerInstance) {
  return retrieve(seqNum, [&](const sequence_snapshot& s) {
    *stopEvent = s.stopEvent;
    *asyncThreadHandle = s.asyncThreadHandle;
    *asyncListenerInstance = s.asyncListenerInstance;
  });
}

SeqStatus BrelTasksSequencer::RetrieveAsyncListenerInfoBySeqNum(std::uint32_t seqNum,
                                                                platform::Handle* asyncThreadHandle,
                                                                AsyncListener** asyncListenerInstance) {
  return retrieve(seqNum, [&](const sequence_snapshot& s) {
    *asyncThreadHandle = s.asyncThreadHandle;
    *asyncListenerInstance = s.asyncListenerInstance;
  });
}

SeqStatus BrelTasksSequencer::RetrieveCallbacksBySeqNum(std::uint32_t seqNum, ApiType* apiType,
                                                        std::uint32_t* commandID, std::uint32_t* TUI,
                                                        OpaqueCallback* callbackFunc,
                                                        OpaqueCallback* streamCallbackFunc, bool* isStream) {
  return retrieve(seqNum, [&](const sequence_snapshot& s) {
    *apiType = s.apiType;
    *commandID = s.commandID;
    *TUI = s.TUI;
    *callbackFunc = s.callbackFunc;
    *streamCallbackFunc = s.streamCallbackFunc;
    *isStream = s.isStream;
  });
}

SeqStatus BrelTasksSequencer::RetrieveAckBySeqNum(std::uint32_t seqNum, bool* ackArrived) {
  return retrieve(seqNum, [&](const sequence_snapshot& s) { *ackArrived = s.ackArrived; });
}

SeqStatus BrelTasksSequencer::RetrieveSequenceTypeInfoBySeqNum(std::uint32_t seqNum, platform::Handle* syncDataEvent,
                                                               platform::Handle* aSyncDataEvent, bool* isAsync,
                                                               bool* isStream) {
  return retrieve(seqNum, [&](const sequence_snapshot& s) {
    *syncDataEvent = s.syncDataEvent;
    *aSyncDataEvent = s.aSyncDataEvent;
    *isAsync = s.isAsync;
    *isStream = s.isStream;
  });
}

SeqStatus BrelTasksSequencer::RetrieveDataBySeqNum(std::uint32_t seqNum, std::uint32_t* TUI, std::uint8_t** buffer,
                                                   std::uint32_t* bufferSize, bool* isStream) {
  return retrieve(seqNum, [&](sequence_snapshot& s) {
    *TUI = s.TUI;
    *buffer = s.buffer;
    *bufferSize = s.bufferSize;
    *isStream = s.isStream;
    s.buffer = nullptr;  // now the caller's
  });
}

SeqStatus BrelTasksSequencer::RetrieveNextAsyncBufferBySeqNum(std::uint32_t seqNum, std::uint32_t* TUI,
                                                              std::uint8_t** buffer, std::uint32_t* bufferSize,
                                                              bool* isStream) {
  std::uint64_t serial = 0;
  retrieve(seqNum, [&](const sequence_snapshot& s) {
    *TUI = s.TUI;
    *isStream = s.isStream;
    serial = s.serial;
  });
  *buffer = nullptr;
  *bufferSize = 0;
  if (serial == 0 || !acquire(kNextBufferWait, Abandoned::refuse)) return SEQ_RETRIEVE_FAILED;
  Acquired acquired(*this);
  // A task that was refused may have closed this sequence between the two, and another may have its number by now. That
  // is a failure, as for a sequence that was gone before, and not an empty queue: behind that the sequence's thread
  // would go on to wait on events that are closed with the sequence, and may be another's.
  sequence_element* element = find(seqNum);
  if (element == nullptr || element->serial != serial) return SEQ_RETRIEVE_FAILED;
  std::uint8_t* tmpAsyncBuffer = nullptr;
  std::uint32_t tmpAsyncBufferSize = 0;
  const QueueResult queue_res = element->asyncBuffersQueue.extract(&tmpAsyncBuffer, &tmpAsyncBufferSize);
  if (!acquired.release()) {
    std::free(tmpAsyncBuffer);
    return SEQ_RETRIEVE_FAILED;
  }
  *buffer = tmpAsyncBuffer;
  *bufferSize = tmpAsyncBufferSize;
  return queue_res == QUEUE_EMPTY ? SEQ_RETRIEVE_EMPTY : SEQ_RETRIEVE_OK;
}

}  // namespace kel
