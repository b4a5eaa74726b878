// SPDX-License-Identifier: MIT
// One engine from its init to its end, with a device that does anything. The input is a program: a step opens a
// sequence of some kind, delivers a message or an event, refuses a send, or takes the engine down and brings it up
// again. Whatever it does:
//   - no byte is read that a message does not have, and no block is used that was given back;
//   - callbacks get blocks of the size that they are told, and belong to a request that was made;
//   - the engine can be taken down at the end, and all of its threads end.
//
// The last one is not the library's promise in every case. Where the handler of answers refuses one, or cannot end its
// sequence, its thread keeps the engine's init lock for good, and where a sequence is freed under its thread, the count
// of threads stays: an engine in either state cannot be taken down. A program cannot bring these states about, because
// the target knows of each sequence what may still be handled (Sequences), and leaves out the step that would:
//   - an answer of a class that its sequence has no use for: a stream's message for a task that is none, or class 11;
//   - an answer to a request whose send is then refused, when both sides would end the sequence at once;
//   - a refused send without a sequence while number 0 is in use, which such a send frees, whoever has it.
// That the library keeps the lock just so is for its tests.
#include <array>
#include <cstring>
#include <thread>

#include "async/engine_inside.h"
#include "engine/Brel.h"
#include "engine/Instances.h"
#include "engine/SequenceResponses.h"
#include "pipe.h"
#include "support/core_process.h"
#include "support/private_member.h"
#include "target.h"

namespace kel::test {

struct AsyncListenerOf {
  friend auto memberOf(AsyncListenerOf);
};
template struct OpenMember<AsyncListenerOf, &BrelEngine::mAsyncListener>;

}  // namespace kel::test

namespace {

/// A task's time without an answer is over when the program says so: here all that wait learn it.
std::atomic<bool> gTimeIsOver{false};
constexpr std::uint32_t kUntilTimeIsOver = 1'000'000;

}  // namespace

// The linker sends the library's calls of three functions of the platform here; behind __wrap_ and __real_ stand the
// names that compilers give to kel::platform::sleepFor(), waitForAny() and createWaitingThread().
extern "C" {

void __wrap__ZN3kel8platform8sleepForEj(std::uint32_t milliseconds);
std::uint32_t __wrap__ZN3kel8platform10waitForAnyEjPKPvj(std::uint32_t count, const kel::platform::Handle* objects,
                                                         std::uint32_t milliseconds);
std::uint32_t __real__ZN3kel8platform10waitForAnyEjPKPvj(std::uint32_t count, const kel::platform::Handle* objects,
                                                         std::uint32_t milliseconds);
kel::platform::Handle __wrap__ZN3kel8platform19createWaitingThreadEPFjPvES1_PjjPKS1_j(
    kel::platform::ThreadFunction function, void* argument, std::uint32_t* threadId, std::uint32_t count,
    const kel::platform::Handle* objects, std::uint32_t milliseconds);
kel::platform::Handle __real__ZN3kel8platform19createWaitingThreadEPFjPvES1_PjjPKS1_j(
    kel::platform::ThreadFunction function, void* argument, std::uint32_t* threadId, std::uint32_t count,
    const kel::platform::Handle* objects, std::uint32_t milliseconds);

// The engine looks every 100 ms whether its threads have ended. Here it looks as often as it can.
void __wrap__ZN3kel8platform8sleepForEj(std::uint32_t) { std::this_thread::yield(); }

std::uint32_t __wrap__ZN3kel8platform10waitForAnyEjPKPvj(std::uint32_t count, const kel::platform::Handle* objects,
                                                         std::uint32_t milliseconds) {
  const auto wait = __real__ZN3kel8platform10waitForAnyEjPKPvj;
  if (milliseconds != kUntilTimeIsOver) return wait(count, objects, milliseconds);
  for (;;) {
    const std::uint32_t result = wait(count, objects, 1);
    if (result != kel::platform::kWaitTimeout || gTimeIsOver) return result;
  }
}

// A thread may be given its first wait while it still rests, and would not learn that its time is over. Here each
// begins it itself.
kel::platform::Handle __wrap__ZN3kel8platform19createWaitingThreadEPFjPvES1_PjjPKS1_j(
    kel::platform::ThreadFunction function, void* argument, std::uint32_t* threadId, std::uint32_t,
    const kel::platform::Handle*, std::uint32_t) {
  return __real__ZN3kel8platform19createWaitingThreadEPFjPvES1_PjjPKS1_j(function, argument, threadId, 0, nullptr, 0);
}

}  // extern "C"

namespace kel::fuzz {
namespace {

constexpr std::uint32_t kMostSteps = 200;
constexpr std::uint32_t kNoNumber = 4711;  ///< none of a sequence

// ---------------------------------------------------------------------------------------------------------------------
// What a client is given
// ---------------------------------------------------------------------------------------------------------------------

std::atomic<std::uint32_t> gRequests{0};  ///< made so far; each has its number for its command ID
std::atomic<std::uint32_t> gSum{0};       ///< of all bytes that were given, so that each is read

void Read(const void* data, std::uint32_t size) {
  std::uint32_t sum = 0;
  for (std::uint32_t i = 0; i < size; ++i) sum += static_cast<const std::uint8_t*>(data)[i];
  gSum += sum;
}

void OfARequest(std::uint32_t commandID) {
  Promise(commandID < gRequests, "a callback belongs to a request that was made");
}

void OnTask(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t, std::uint32_t isRef, void* data,
            std::uint32_t size, std::uint32_t seqTUI) {
  OfARequest(commandID);
  Promise(isRef <= 1, "a flag is 0 or 1");
  Promise(errorCode == 0 || (size == 0 && seqTUI == 0), "an error has no payload");
  Read(data, errorCode != 0 ? std::uint32_t{sizeof(task)} : size);
}

void OnStream(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t sequenceByte, std::uint32_t streamEnd,
              std::uint32_t isRef, void* data, std::uint32_t size, std::uint32_t seqTUI) {
  Promise(streamEnd == (sequenceByte >> 6 == 2 ? 1 : 0), "the end of a stream is told");
  OnTask(errorCode, commandID, sequenceByte, isRef, data, size, seqTUI);
}

void OnRecord(std::uint32_t commandID, std::uint32_t, void* record, std::uint32_t) {
  OfARequest(commandID);
  Read(record, std::uint32_t{sizeof(task)} + static_cast<const task*>(record)->payloadSize);
}

void OnStreamRecord(std::uint32_t commandID, std::uint32_t sequenceByte, std::uint32_t, void* record,
                    std::uint32_t size) {
  OnRecord(commandID, sequenceByte, record, size);
}

void OnBroadcast(char* name, std::uint32_t isRef, void* data, std::uint32_t size, std::uint32_t) {
  Promise(isRef <= 1, "a flag is 0 or 1");
  Read(name, static_cast<std::uint32_t>(std::strlen(name)));
  Read(data, size);
  std::free(name);
  std::free(data);
}

void OnAlert(Status status) { Promise(status == 18, "what is told is the loss of the link"); }

// ---------------------------------------------------------------------------------------------------------------------
// What may still be handled
// ---------------------------------------------------------------------------------------------------------------------

/// The sequences of one engine as far as they matter here. Its threads run at their own pace: a sequence counts as
/// running until nothing that was not delivered can be handled for it any more.
class Sequences {
 public:
  void open(std::uint32_t number, bool isAsync, bool isStream) {
    mSequences[number] = {isAsync || isStream, isAsync, isStream};
  }
  /// It was ended by something other than an answer.
  void end(std::uint32_t number) { mSequences[number].ending = true; }
  /// A waiting client has its answer.
  void acknowledge(std::uint32_t number) { mSequences[number].acknowledged = true; }

  bool isRunning(std::uint32_t number) const { return mSequences[number].isRunning(); }
  bool isEnding(std::uint32_t number) const { return mSequences[number].hasThread && mSequences[number].ending; }
  bool isPlainAsync(std::uint32_t number) const { return isRunning(number) && !mSequences[number].isStream; }

  /// Whether the handler of answers would refuse one with this word.
  bool wouldRefuse(std::uint32_t word) const {
    const Sequence& of = sequenceOf(word);
    if (!isForTheHandler(of, word)) return false;
    const SeqNumType type = GetSeqNumType(GetTuiSeqNum(word));
    return type == SEQ_NUM_UNKNOWN || (type != SEQ_NUM_ACK && !of.isStream);
  }

  void delivered(std::uint32_t word) {
    Sequence& of = const_cast<Sequence&>(sequenceOf(word));
    if (!isForTheHandler(of, word)) return;
    const SeqNumType type = GetSeqNumType(GetTuiSeqNum(word));
    if (!of.isStream || (type == SEQ_NUM_STREAM_END && of.acknowledged)) of.ending = true;
    if (type == SEQ_NUM_ACK) of.acknowledged = true;
  }

 private:
  struct Sequence {
    bool hasThread = false;
    bool isAsync = false;
    bool isStream = false;
    bool acknowledged = false;
    bool ending = false;  ///< what was delivered ends it, sooner or later

    bool isRunning() const { return hasThread && !ending; }
  };

  const Sequence& sequenceOf(std::uint32_t word) const { return mSequences[GetCoreSeqNum(GetTuiSeqNum(word))]; }
  static bool isForTheHandler(const Sequence& of, std::uint32_t word) {
    if (GetTuiTarget(word) == kTargetBroadcast || !of.isRunning()) return false;
    return of.isAsync || GetSeqNumType(GetTuiSeqNum(word)) != SEQ_NUM_ACK;
  }

  std::array<Sequence, kSequenceNumbers> mSequences;
};

// ---------------------------------------------------------------------------------------------------------------------
// The program
// ---------------------------------------------------------------------------------------------------------------------

class Program {
 public:
  explicit Program(Input input) : mInput(std::move(input)) {}

  void run() {
    gRequests = 0;
    const std::uint8_t choices = mInput.byte();
    mVersionControl = (choices & 1) != 0;
    mBroadcasts = (choices & 2) == 0;
    mAlerts = (choices & 4) == 0;
    Folder().writeSettings((choices & 8) != 0 ? "RxWaitTimeout=0\nRequestStructDumpFilename=a\n"
                                                "RequestStructPayloadDumpFilename=b\nResponseStructDumpFilename=c\n"
                                                "ResponseStructPayloadDumpFilename=d\n"
                                              : "RxWaitTimeout=0\n");
    start();
    for (std::uint32_t steps = 0; steps < kMostSteps && !mInput.empty(); ++steps) step();
    finish();
  }

 private:
  void step() {
    switch (mInput.byte() % 9) {
      case 0:
        return openAsync();
      case 1:
        return openSync();
      case 2:
        return runOut();
      case 3:
        return fixedTask();
      case 4:
        return restart();
      case 5:
        return lookUp();
      default:
        return comeIn();
    }
  }

  /// What the device side does by itself.
  void comeIn() {
    switch (mInput.byte() % 8) {
      case 0:
        return rawMessage();
      case 1:
        return Pipe::signal(mInput.byte() & 3, mInput.byte());
      case 2:
        return answer(5u << 12);
      default:
        return answer(0);
    }
  }

  // ---- Coming up and going down ----

  void start() {
    Pipe::answers = {};
    const std::uint8_t refusal = mInput.byte();
    if ((refusal & 0xF0) == 0x10) Pipe::answers.connectStatus = 1;
    if ((refusal & 0xF0) == 0x20) Pipe::answers.socketStatus = 1;
    if ((refusal & 0xF0) == 0x30) Pipe::answers.socketID = 255;
    const bool refused = (refusal & 0xF0) >= 0x10 && (refusal & 0xF0) <= 0x30;
    mSequences = {};
    expectRequest(refusal & 3, [](std::uint32_t) {});
    const Status status = BrelInit(&mHandle, nullptr, mVersionControl ? 1 : 0, nullptr,
                                   mBroadcasts ? OnBroadcast : nullptr, mAlerts ? OnAlert : nullptr);
    Pipe::onRequest = nullptr;
    Promise(!refused || status != kStatusOk, "an engine without a socket does not come up");
    Promise(refused || mVersionControl || status == kStatusOk, "an engine with a socket comes up");
    if (status != kStatusOk) mHandle = kNoBrelHandle;
    if (const auto engine = GetBrelInst(mHandle)) {
      // A client that waits gives up at once; a thread does when the program says so.
      ((*engine).*memberOf(test::AsyncListenerOf{})).mWaitTimeout = kUntilTimeIsOver;
    }
  }

  void finish() {
    Pipe::answers = {};
    if (mHandle == kNoBrelHandle) return;
    Promise(BrelFinalize(mHandle) == kStatusOk, "an engine can be taken down");
    mHandle = kNoBrelHandle;
  }

  void restart() {
    finish();
    comeIn();  // to nobody
    start();
  }

  // ---- Requests ----

  /// Has so many things come in while the next request is sent. `open` is called first, with its sequence number.
  template <class Open>
  void expectRequest(std::uint32_t incoming, Open open) {
    Pipe::onRequest = [this, incoming, open](const WireTask& request) {
      mSending = GetTuiSeqNum(request.seqTUI);
      open(GetCoreSeqNum(mSending));
      for (std::uint32_t i = 0; i < incoming; ++i) comeIn();
      mSending = kNoNumber;
    };
  }

  /// Whether the next send is refused, and how.
  void planSend(std::uint8_t plan, bool opens) {
    Pipe::answers = {};
    if (!opens && mSequences.isRunning(0)) return;
    if (!opens && plan != 0 && mSequences.isEnding(0)) waitUntilFreed(0);
    if (plan & 1) Pipe::answers.sendStatus = 1;
    if (plan & 2) Pipe::answers.replyID = 2;
    if (plan & 4) Pipe::answers.L4status = 3;
  }

  /// A number whose thread is bound to end may not be freed by another one.
  void waitUntilFreed(std::uint32_t number) {
    while (isOpen(number)) std::this_thread::yield();
  }
  bool isOpen(std::uint32_t number) const {
    const auto engine = GetBrelInst(mHandle);
    sequence_snapshot snapshot;
    const bool open = engine != nullptr &&
                      test::EngineInside(*engine).sequencer().RetrieveBySeqNum(number, &snapshot) == SEQ_RETRIEVE_OK;
    std::free(snapshot.buffer);
    return open;
  }

  struct Request {
    bool isRecord, responseExpected, isStream, hasCallback, isRef;
    std::string payload;
    std::uint32_t TUI;
    std::vector<std::uint32_t> record;
    std::uint32_t commandID;

    const char* name() const { return isRef ? "TASK_ID_APPLICATION_DEBUG_REF" : "TASK_ID_APPLICATION_DEBUG_VAL"; }
    task* head() { return reinterpret_cast<task*>(record.data()); }
    std::uint32_t size() const { return static_cast<std::uint32_t>(payload.size()); }
  };

  Request request() {
    const std::uint8_t kind = mInput.byte();
    Request request{
        (kind & 1) != 0, (kind & 2) != 0, (kind & 4) != 0, (kind & 8) == 0, (kind & 16) != 0, payload(), 0, {},
        gRequests++};
    request.TUI = request.isRef ? 0xB8241 : 0x38240;
    const std::uint32_t head[] = {request.TUI, request.responseExpected ? 1u : 0u, mInput.byte(), request.size()};
    request.record.resize((sizeof head + request.payload.size() + 3) / 4);
    std::memcpy(request.record.data(), head, sizeof head);
    std::memcpy(request.record.data() + 4, request.payload.data(), request.payload.size());
    return request;
  }

  void openAsync() {
    Request asked = request();
    const bool opens = asked.responseExpected || asked.isStream;
    const std::uint8_t plan = mInput.byte();
    planSend(plan, true);
    std::uint32_t number = kNoNumber, opened = kNoNumber;
    expectRequest(plan >> 6, [&](std::uint32_t seqNum) {
      if (opens) mSequences.open(opened = seqNum, true, asked.isStream);
    });
    Status status = kStatusOk;
    if (asked.isRecord) {
      const IssueAsyncCommandCallback callback = asked.hasCallback ? OnRecord : nullptr;
      const IssueStreamCallback streamCallback = asked.isStream ? OnStreamRecord : nullptr;
      status = BrelIssueAsyncCommand(mHandle, asked.commandID, asked.head(), &number,
                                     reinterpret_cast<OpaqueCallback>(callback),
                                     reinterpret_cast<OpaqueCallback>(streamCallback));
    } else {
      status = BrelInvokeAsyncTask(mHandle, asked.name(), asked.commandID, asked.payload.data(), asked.size(), 0,
                                   asked.responseExpected ? 1 : 0, &number, asked.hasCallback ? OnTask : nullptr,
                                   asked.isStream ? OnStream : nullptr);
    }
    endRequest(opened, status);
  }

  void openSync() {
    Request asked = request();
    const bool opens = asked.responseExpected || asked.isStream;
    const std::uint8_t plan = mInput.byte();
    planSend(plan, opens);
    std::uint32_t opened = kNoNumber;
    expectRequest(plan >> 6, [&](std::uint32_t seqNum) {
      if (opens) mSequences.open(opened = seqNum, false, asked.isStream);
    });
    Status status = kStatusOk;
    if (asked.isRecord) {
      task* response = nullptr;
      std::uint32_t size = 0;
      const IssueStreamCallback streamCallback = asked.isStream ? OnStreamRecord : nullptr;
      status = BrelIssueCommand(mHandle, asked.commandID, asked.head(), &response, &size,
                                reinterpret_cast<OpaqueCallback>(streamCallback));
      if (status == kStatusOk && response != nullptr) {
        Read(response, size);
        std::free(response);
      }
    } else {
      void* answered = nullptr;
      std::uint32_t size = 0, unused = 0;
      status = BrelInvokeTask(mHandle, asked.name(), asked.commandID, asked.payload.data(), asked.size(), 0,
                              asked.responseExpected ? 1 : 0, nullptr, &answered, &size, &unused,
                              asked.isStream ? OnStream : nullptr);
      Read(answered, size);
      std::free(answered);
    }
    if (opened != kNoNumber && asked.isStream && asked.responseExpected && status == kStatusOk) {
      mSequences.acknowledge(opened);
    }
    endRequest(opened, status);
  }

  void endRequest(std::uint32_t opened, Status status) {
    Pipe::onRequest = nullptr;
    if (opened != kNoNumber && Pipe::answers.refuseSend()) {
      Promise(status != kStatusOk, "a refused send is told");
      mSequences.end(opened);
    }
  }

  /// No task that waits gets its answer in time.
  void runOut() {
    gTimeIsOver = true;
    for (std::uint32_t number = 0; number < kSequenceNumbers; ++number) {
      if (!mSequences.isPlainAsync(number)) continue;
      mSequences.end(number);
      waitUntilFreed(number);
    }
    gTimeIsOver = false;
  }

  void fixedTask() {
    const std::uint8_t which = mInput.byte();
    planSend(mInput.byte(), true);
    expectRequest(which >> 6, [this](std::uint32_t seqNum) { mSequences.open(seqNum, false, false); });
    std::uint8_t* block = nullptr;
    char* path = nullptr;
    std::uint32_t size = 0;
    Status status = kStatusFailed;
    const std::array<std::uint8_t, 256> severities{};
    switch (which % 7) {
      case 0:
        status = BrelGetTraceFilePath(mHandle, &path);
        if (status == kStatusOk) Read(path, static_cast<std::uint32_t>(std::strlen(path)));
        break;
      case 1:
        BrelSetTraceFilePath(mHandle, "a path");
        break;
      case 2:
        status = BrelGetTraceSeverityMultiple(mHandle, &block, &size);
        break;
      case 3:
        BrelSetTraceSeverityMultiple(mHandle, severities.data());
        break;
      case 4:
        status = BrelGetAllStatistics(mHandle, &block, &size);
        break;
      case 5:
        BrelResetStatisticsBuffer(mHandle);
        break;
      default:
        validate();
        break;
    }
    if (status == kStatusOk) Read(block, size);
    std::free(block);
    std::free(path);
    Pipe::onRequest = nullptr;
  }

  void validate() const {
    char name[] = "some/file.csv";
    std::uint64_t version = 0;
    const Status status = BrelValidateVersion(mHandle, name, "x", 1, &version, "folder");
    Promise(mHandle == kNoBrelHandle || status == kStatusOk || status == 24,
            "a file's check fails only for want of the generation");
  }

  void lookUp() const {
    std::uint32_t TUI = 1;
    const Status status = BrelFindTuiByName(mHandle, "TASK_ID_APPLICATION_DEBUG_VAL", &TUI);
    Promise(status == (mHandle != kNoBrelHandle ? kStatusOk : kStatusFailed),
            "a name is looked up while there is an engine");
    Promise(status != kStatusOk || TUI == 0x38240, "the table stays as it is");
  }

  // ---- What comes in ----

  std::string payload() {
    const std::uint8_t size = mInput.byte();
    return size < 0xF0 ? mInput.bytes(size) : std::string((size & 0xF) * 1000u, 'x');
  }

  /// An answer in good form, or a broadcast.
  void answer(std::uint32_t target) {
    WireTask wire{};
    const std::uint8_t sequenceByte = mInput.byte(), form = mInput.byte();
    wire.TUI = std::uint32_t{sequenceByte} << 24 | (form & 3u) << 19 | (target != 0 ? target : 8u << 12);
    wire.errorCode = form >> 4;
    const std::string bytes = payload();
    wire.payloadSize = static_cast<std::uint32_t>(bytes.size());
    deliver(KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, 0, wire, bytes);
  }

  /// Anything else.
  void rawMessage() {
    const std::uint32_t ID = KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION + (mInput.byte() == 1 ? 1u : 0u);
    const std::string body = mInput.bytes(mInput.byte());
    if (body.size() < sizeof(KelResponseHeader) + sizeof(WireTask)) return Pipe::deliver(ID, body);
    std::uint16_t row = 0;
    WireTask wire;
    std::memcpy(&row, body.data(), sizeof row);
    std::memcpy(&wire, body.data() + sizeof(KelResponseHeader), sizeof wire);
    deliver(ID, row, wire, body.substr(sizeof(KelResponseHeader) + sizeof wire));
  }

  void deliver(std::uint32_t ID, std::uint16_t row, const WireTask& wire, const std::string& bytes) {
    // What the adapter does not hand on changes no sequence; that it does not is for it to show.
    if (mSequences.wouldRefuse(wire.TUI)) return;
    const std::uint32_t number = GetCoreSeqNum(GetTuiSeqNum(wire.TUI));
    if (number == GetCoreSeqNum(mSending) && mSending != kNoNumber && Pipe::answers.refuseSend()) return;
    if (ID == KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION && row == 0 && wire.payloadSize <= bytes.size()) {
      mSequences.delivered(wire.TUI);
    }
    KelResponseHeader header{};
    header.handle = row;
    std::string body(reinterpret_cast<const char*>(&header), sizeof header);
    body.append(reinterpret_cast<const char*>(&wire), sizeof wire);
    Pipe::deliver(ID, body + bytes);
  }

  Input mInput;
  Sequences mSequences;
  std::uint32_t mHandle = kNoBrelHandle;
  std::uint32_t mSending = kNoNumber;  ///< sequence byte of the request that is being sent
  bool mVersionControl = false;
  bool mBroadcasts = true;
  bool mAlerts = true;
};

}  // namespace
}  // namespace kel::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kel::fuzz;
  static const kel::test::CoreProcess& process = *new kel::test::CoreProcess;
  static_cast<void>(process);
  Pipe::install();
  Program(Input(data, size)).run();
  return 0;
}
