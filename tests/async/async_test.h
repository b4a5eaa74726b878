/* SPDX-License-Identifier: MIT */
// What the tests of asynchronous tasks and streams share: a client's callbacks, and an engine looked at from within.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <thread>

#include "async/engine_inside.h"
#include "engine/IncomingData.h"
#include "engine/SequenceResponses.h"
#include "engine/engine_test.h"

namespace kel::test {

inline constexpr std::uint32_t kStreamClass = 64;      // in a sequence byte: a message of a stream,
inline constexpr std::uint32_t kStreamEndClass = 128;  // its last one,
inline constexpr std::uint32_t kUnknownClass = 192;    // and what has no meaning

/// Which callback was called.
enum class Of { kTask, kStream, kCommand, kCommandStream };

/// A call of a client's callback, with a copy of what it was given.
struct Call {
  Of of = Of::kTask;
  std::uint32_t errorCode = 0;
  std::uint32_t commandID = 0;
  std::uint32_t sequenceByte = 0;
  std::uint32_t streamEnd = 0;
  std::uint32_t isRef = 0;
  std::string data;  ///< the payload; of a record, and of one that tells of an error, the record with its head
  std::uint32_t size = 0;
  std::uint32_t seqTUI = 0;

  bool operator==(const Call&) const = default;
  friend void PrintTo(const Call& call, std::ostream* out) {
    *out << "callback " << static_cast<int>(call.of) << " error " << call.errorCode << " command " << call.commandID
         << " byte " << call.sequenceByte << " end " << call.streamEnd << " ref " << call.isRef << " size " << call.size
         << " seqTUI " << call.seqTUI << " data " << ::testing::PrintToString(call.data);
  }
};

inline Noted<Call> gCalls;
/// What the client does during each call, on the library's thread. Set ahead of the first.
inline std::function<void(const Call&)> gDuringCall;

inline void Note(Call call, const void* data, std::uint32_t size) {
  call.data.assign(static_cast<const char*>(data), size);
  if (gDuringCall) gDuringCall(call);
  gCalls.add(std::move(call));
}

inline void OnTask(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t sequenceByte, std::uint32_t isRef,
                   void* data, std::uint32_t size, std::uint32_t seqTUI) {
  Note({Of::kTask, errorCode, commandID, sequenceByte, 0, isRef, {}, size, seqTUI}, data,
       errorCode != 0 ? std::uint32_t{sizeof(task)} : size);
}
inline void OnStream(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t sequenceByte,
                     std::uint32_t streamEnd, std::uint32_t isRef, void* data, std::uint32_t size,
                     std::uint32_t seqTUI) {
  Note({Of::kStream, errorCode, commandID, sequenceByte, streamEnd, isRef, {}, size, seqTUI}, data, size);
}
inline void OnCommand(std::uint32_t commandID, std::uint32_t sequenceByte, void* record, std::uint32_t size) {
  const auto* head = static_cast<const task*>(record);
  Note({Of::kCommand, 0, commandID, sequenceByte, 0, 0, {}, size, 0}, record,
       std::uint32_t{sizeof(task)} + head->payloadSize);
}
inline void OnCommandStream(std::uint32_t commandID, std::uint32_t sequenceByte, std::uint32_t streamEnd, void* record,
                            std::uint32_t size) {
  Note({Of::kCommandStream, 0, commandID, sequenceByte, streamEnd, 0, {}, size, 0}, record,
       std::uint32_t{sizeof(task)} + size);
}

inline OpaqueCallback Opaque(IssueAsyncCommandCallback callback) { return reinterpret_cast<OpaqueCallback>(callback); }
inline OpaqueCallback Opaque(IssueStreamCallback callback) { return reinterpret_cast<OpaqueCallback>(callback); }

/// What a request for an asynchronous task gave.
struct Asked {
  Status status = 4711;
  std::uint32_t seqNum = 4711;
};

inline Asked InvokeAsync(std::uint32_t handle, const char* name, KEL_AsyncCallback callback,
                         KEL_StreamCallback streamCallback = nullptr, std::uint8_t responseExpected = 1,
                         std::uint32_t commandID = 1, std::uint32_t initialSeqTUI = 0) {
  Asked asked;
  asked.status = BrelInvokeAsyncTask(handle, name, commandID, "ask", 3, initialSeqTUI, responseExpected, &asked.seqNum,
                                     callback, streamCallback);
  return asked;
}

inline Asked IssueAsync(std::uint32_t handle, std::uint32_t TUI, IssueAsyncCommandCallback callback,
                        IssueStreamCallback streamCallback = nullptr, std::uint32_t responseExpected = 1,
                        std::uint32_t commandID = 1) {
  auto record = Record(TUI, responseExpected, 0, "ask");
  Asked asked;
  asked.status = BrelIssueAsyncCommand(handle, commandID, reinterpret_cast<task*>(record.data()), &asked.seqNum,
                                       callback != nullptr ? Opaque(callback) : nullptr,
                                       streamCallback != nullptr ? Opaque(streamCallback) : nullptr);
  return asked;
}

/// Hands an engine a record for a sequence, as its adapter does. Whether it was taken.
inline bool Deliver(std::uint32_t handle, std::uint32_t TUI, std::uint32_t sequenceByte, const std::string& payload,
                    std::uint32_t seqTUI = 0) {
  const auto record = Record(TUI | sequenceByte << 24, 0, seqTUI, payload);
  return BrelEngineCallback(BrelGetDorvHandle(handle), record.data(), static_cast<std::uint32_t>(record.size())) == 1;
}

/// Whether the system gives the value of a closed handle to the next object, so that nobody can tell it from a stale
/// one: what waits for closed handles, as a thread does whose priority could not be raised, may then take away another
/// object's signal.
inline bool HandleValuesComeAgain() {
  const platform::Handle first = platform::createEvent(false, false);
  platform::closeHandle(first);
  const platform::Handle second = platform::createEvent(false, false);
  platform::closeHandle(second);
  return first == second;
}

/// One engine, whose device takes requests and leaves the answers to the test.
class AsyncTest : public EngineTest {
 protected:
  ~AsyncTest() override { gDuringCall = nullptr; }

  /// Brings the engine up.
  void startEngine(KEL_BroadcastCallback broadcastCallback = nullptr, AlertsCallback alertsCallback = nullptr) {
    handle = start(broadcastCallback, alertsCallback);
    engine = GetBrelInst(handle);
    ASSERT_NE(engine, nullptr);
    mUsersAtRest = engine.use_count();
    DropRequests(0);
  }
  EngineInside inside() { return EngineInside(*engine); }

  /// Waits until no thread of a sequence is left, nor a delivery that is not at its end.
  void waitForThreads() {
    while (engine.use_count() > mUsersAtRest) std::this_thread::yield();
    std::shared_ptr<BrelEngine>(engine).reset();  // what they did is behind us for this thread too
  }
  bool isOpen(std::uint32_t seqNum) {
    sequence_snapshot snapshot;
    const bool open = inside().sequencer().RetrieveBySeqNum(seqNum, &snapshot) == SEQ_RETRIEVE_OK;
    std::free(snapshot.buffer);
    return open;
  }
  void waitUntilFreed(std::uint32_t seqNum) {
    while (isOpen(seqNum)) std::this_thread::yield();
  }

  std::uint32_t handle = kNoBrelHandle;
  std::shared_ptr<BrelEngine> engine;

 private:
  long mUsersAtRest = 0;  ///< the table of engines, this object and the listeners' threads
};

}  // namespace kel::test
