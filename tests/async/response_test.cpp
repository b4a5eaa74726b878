// SPDX-License-Identifier: MIT
// What becomes of the one answer to an asynchronous task, and of its failing to come.
#include "async/async_test.h"
#include "async/said.h"
#include "support/failing_heap.h"

namespace kel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ResponseTest : public AsyncTest {
 protected:
  ResponseTest() { folder.writeSettings("LogToConsole=1\n"); }
  void SetUp() override {
    EngineSays([this] { startEngine(); });
  }
  void TearDown() override {
    engine.reset();
    if (!leavesEngines) EngineSays([this] { BrelFinalize(handle); });
  }

  /// Handles a record, or with `errorCode` the lack of one, on this thread, with the sequence's own thread kept waiting
  /// until that is done.
  Transcript handleNow(std::uint32_t seqNum, std::uint32_t errorCode, std::vector<std::uint8_t> record = {}) {
    return EngineSays([&] {
      {
        const platform::InSection inLock(inside().initLock());
        const HeldSequences held(inside());
        EXPECT_TRUE(engine->HandleSequenceResponse(seqNum, errorCode, record.empty() ? nullptr : record.data(),
                                                   static_cast<std::uint32_t>(record.size())));
      }
      while (inside().threads() > mStays) std::this_thread::yield();
      waitForOwnThreads();
    });
  }
  template <class Ask>
  std::uint32_t open(Ask ask) {
    Asked asked;
    EngineSays([&] { asked = ask(); });
    EXPECT_EQ(asked.status, kStatusOk);
    return asked.seqNum;
  }
  std::uint32_t openTask(KEL_AsyncCallback callback = OnTask, KEL_StreamCallback streamCallback = nullptr) {
    return open([&] { return InvokeAsync(handle, kDebugRef, callback, streamCallback, 1, 77); });
  }
  std::uint32_t openCommand() {
    return open([&] { return IssueAsync(handle, kDebugRefTui, OnCommand, nullptr, 1, 88); });
  }
  /// So many sequences are still open after what comes next.
  void staysOpen(std::int32_t count) { mStays = count; }

 private:
  void waitForOwnThreads() {
    while (engine.use_count() > 2 + mStays) std::this_thread::yield();
    std::shared_ptr<BrelEngine>(engine).reset();
  }

  std::int32_t mStays = 0;
};

std::string Text(const std::vector<std::uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }

Transcript Signalled(std::uint32_t seqNum) {
  return Handling(seqNum, "error code signalled. \n", "error code signalled for sequence number", "error");
}

// ---------------------------------------------------------------------------------------------------------------------
// Answers
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ResponseTest, AnAnswerEndsATask) {
  const std::uint32_t seqNum = openTask();
  EXPECT_EQ(handleNow(seqNum, 0, Record(kDebugRefTui | seqNum << 24, 13, 0xAB, "answer")),
            (Begun(seqNum) + HandlingAck(seqNum) + Firing(seqNum, "invokeAsyncTaskCallback", "BREL_INVOKE_TASK") +
             CheckingEnd(seqNum) + Ended(seqNum) + Handled(seqNum))
                .freed(seqNum));
  EXPECT_THAT(gCalls.waitFor(1), ElementsAre(Call{Of::kTask, 0, 77, seqNum, 0, 1, "answer", 6, 0xAB}));
  EXPECT_FALSE(isOpen(seqNum));
}

// Its error code is overwritten, and its size leaves the head out.
TEST_F(ResponseTest, AnAnswerToACommandIsGivenAsAWholeRecord) {
  const std::uint32_t seqNum = openCommand();
  EXPECT_EQ(handleNow(seqNum, 0, Record(kDebugValTui | seqNum << 24, 13, 0xAB, "answer")),
            (Begun(seqNum) + HandlingAck(seqNum) + Firing(seqNum, "issueAsyncCommandCallback", "BREL_ISSUE_COMMAND") +
             CheckingEnd(seqNum) + Ended(seqNum) + Handled(seqNum))
                .freed(seqNum));
  const std::string whole = Text(Record(kDebugValTui | seqNum << 24, 0, 0xAB, "answer"));
  EXPECT_THAT(gCalls.waitFor(1), ElementsAre(Call{Of::kCommand, 0, 88, seqNum, 0, 0, whole, 6, 0}));
}

TEST_F(ResponseTest, AnEmptyAnswerIsOneAsWell) {
  const std::uint32_t seqNum = openTask();
  handleNow(seqNum, 0, Record(kDebugRefTui | seqNum << 24, 0, 0, ""));
  EXPECT_THAT(gCalls.waitFor(1), ElementsAre(Call{Of::kTask, 0, 77, seqNum, 0, 1, "", 0, 0}));
}

TEST_F(ResponseTest, TheFlagTellsEveryTypeButVal) {
  const std::uint32_t expected[] = {0, 1, 1, 1};
  for (std::uint32_t type = 0; type < 4; ++type) {
    const std::uint32_t seqNum = openTask();
    handleNow(seqNum, 0, Record((kDebugRefTui & ~0x180000u) | type << 19 | seqNum << 24, 0, 0, "answer"));
    EXPECT_EQ(gCalls.waitFor(type + 1).back().isRef, expected[type]);
  }
}

TEST_F(ResponseTest, TheTaskOfTheAnswerIsNotLookedAt) {
  const std::uint32_t seqNum = openTask();
  handleNow(seqNum, 0, Record(seqNum << 24, 0, 0, "answer"));
  EXPECT_THAT(gCalls.waitFor(1), ElementsAre(Call{Of::kTask, 0, 77, seqNum, 0, 0, "answer", 6, 0}));
}

TEST_F(ResponseTest, WithoutACallbackTheTaskEndsAllTheSame) {
  const std::uint32_t seqNum = openTask(nullptr);
  EXPECT_EQ(handleNow(seqNum, 0, Record(kDebugRefTui | seqNum << 24, 0, 0, "answer")),
            (Begun(seqNum) + HandlingAck(seqNum) +
             Handling(seqNum, "NULL seqCallbackFunc. \n", "NULL seqCallbackFunc for sequence number", "warning") +
             CheckingEnd(seqNum) + Ended(seqNum) + Handled(seqNum))
                .freed(seqNum));
  EXPECT_FALSE(isOpen(seqNum));
}

TEST_F(ResponseTest, ACallbackOfAFixedTaskIsNotCalled) {
  const std::uint32_t seqNum = openTask();
  inside().element(seqNum).apiType = BREL_FIXED_TASK;
  EXPECT_EQ(
      handleNow(seqNum, 0, Record(kDebugRefTui | seqNum << 24, 0, 0, "answer")),
      (Begun(seqNum) + HandlingAck(seqNum))
              .logged("error", "HandleSequenceResponse",
                      "(" + std::to_string(seqNum) + ") - Error: apiType = 2. Unspecified handling. \n")
              .printed("HandleSequenceResponse - Error: apiType = &d. Unspecified handling. Sequence number 2 \n") +
          (CheckingEnd(seqNum) + Ended(seqNum) + Handled(seqNum)).freed(seqNum));
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
}

// A client may do whatever frees its own sequence meanwhile: the end finds nothing left to do.
TEST_F(ResponseTest, ASequenceThatIsGoneByTheEndIsNoFault) {
  const std::uint32_t seqNum = openTask();
  gDuringCall = [this](const Call& call) { EXPECT_TRUE(inside().freeElementOnly(call.sequenceByte)); };
  staysOpen(1);
  EXPECT_EQ(
      handleNow(seqNum, 0, Record(kDebugRefTui | seqNum << 24, 0, 0, "answer")),
      (Begun(seqNum) + HandlingAck(seqNum) + Firing(seqNum, "invokeAsyncTaskCallback", "BREL_INVOKE_TASK"))
              .freed(seqNum) +
          CheckingEnd(seqNum) +
          Handling(seqNum, "running sequence end routine. \n", "running sequence end routine for sequence number") +
          Handling(seqNum, "finished sequence end routine. \n", "finished sequence end routine for sequence number") +
          Handled(seqNum));
  leavesEngines = true;
}

TEST_F(ResponseTest, BeforeTheEngineIsUpAnAnswerIsDropped) {
  const std::uint32_t seqNum = openTask();
  inside().initialized() = false;
  staysOpen(1);
  EXPECT_EQ(handleNow(seqNum, 0, Record(kDebugRefTui | seqNum << 24, 0, 0, "answer")), Transcript());
  EXPECT_EQ(handleNow(seqNum, 2), Transcript());
  EXPECT_EQ(handleNow(40, 0, Record(40 << 24, 0, 0, "")), Transcript());
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
  EXPECT_TRUE(isOpen(seqNum));
  // The lock was left: the next one is handled.
  inside().initialized() = true;
  staysOpen(0);
  handleNow(seqNum, 0, Record(kDebugRefTui | seqNum << 24, 0, 0, "answer"));
  EXPECT_EQ(gCalls.waitFor(1).size(), 1u);
}

// ---------------------------------------------------------------------------------------------------------------------
// Time-outs
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ResponseTest, ATimeOutOfATaskIsTheErrorTwoWithAnEmptyRecord) {
  const std::uint32_t seqNum = openTask();
  EXPECT_EQ(handleNow(seqNum, 2),
            (GettingCallbacks(seqNum) + Retrieved(seqNum) + Signalled(seqNum) + FiringCallback(seqNum) +
             HandlingAck(seqNum) + Firing(seqNum, "invokeAsyncTaskCallback", "BREL_INVOKE_TASK") + CheckingEnd(seqNum) +
             Ended(seqNum) + Handled(seqNum))
                .freed(seqNum));
  // A REF task, and yet the flag is 0.
  EXPECT_THAT(gCalls.waitFor(1),
              ElementsAre(Call{Of::kTask, 2, 77, seqNum, 0, 0, Text(Record(kDebugRefTui, 2, 0, "")), 0, 0}));
}

TEST_F(ResponseTest, ATimeOutOfACommandIsARecordOfSixteenBytes) {
  openTask();
  const std::uint32_t seqNum = openCommand();
  staysOpen(1);
  EXPECT_EQ(handleNow(seqNum, 2),
            (GettingCallbacks(seqNum) + Retrieved(seqNum) + Signalled(seqNum) + FiringCallback(seqNum) +
             HandlingAck(seqNum) + Firing(seqNum, "issueAsyncCommandCallback", "BREL_ISSUE_COMMAND") +
             CheckingEnd(seqNum) + Ended(seqNum) + Handled(seqNum))
                .freed(seqNum));
  EXPECT_THAT(gCalls.waitFor(1),
              ElementsAre(Call{Of::kCommand, 0, 88, seqNum, 0, 0, Text(Record(kDebugRefTui, 2, 0, "")), 16, 0}));
}

TEST_F(ResponseTest, ATimeOutComesByItself) {
  EngineSays([this] {
    leavesEngines = BrelFinalize(handle) != kStatusOk;
    folder.writeSettings("RxWaitTimeout=1\n");
    engine.reset();
    startEngine();
    {
      // Until the request is through, which takes longer than the answer has.
      const platform::InSection held(inside().initLock());
      EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).status, kStatusOk);
      EXPECT_EQ(IssueAsync(handle, kDebugRefTui, OnCommand).status, kStatusOk);
      EXPECT_EQ(InvokeAsync(handle, kDebugRef, nullptr).status, kStatusOk);
    }
    waitForThreads();
  });
  const auto calls = gCalls.waitFor(2);
  EXPECT_THAT(calls, ::testing::UnorderedElementsAre(
                         Call{Of::kTask, 2, 1, 0, 0, 0, Text(Record(kDebugRefTui, 2, 0, "")), 0, 0},
                         Call{Of::kCommand, 0, 1, 1, 0, 0, Text(Record(kDebugRefTui, 2, 0, "")), 16, 0}));
  EXPECT_EQ(inside().threads(), 0);
  for (std::uint32_t seqNum = 0; seqNum < 3; ++seqNum) EXPECT_FALSE(isOpen(seqNum));
  EXPECT_FALSE(Deliver(handle, kDebugRefTui, 0, "late"));
}

TEST_F(ResponseTest, OtherErrorsAreHandedOnAsTheyAre) {
  const std::uint32_t seqNum = openTask();
  handleNow(seqNum, 4711);
  const auto calls = gCalls.waitFor(1);
  EXPECT_EQ(calls[0].errorCode, 4711u);
  EXPECT_EQ(calls[0].data, Text(Record(kDebugRefTui, 4711, 0, "")));
}

TEST_F(ResponseTest, AnErrorIsToldAlsoWhereThereIsNoMemoryForItsRecord) {
  const std::uint32_t seqNum = openTask();
  {
    const HeldSequences held(inside());  // keeps the sequence's own thread waiting
    const FailingHeap exhausted(0);
    EXPECT_TRUE(engine->HandleSequenceResponse(seqNum, kErrorCodeTimeout, nullptr, 0));
    EXPECT_TRUE(exhausted.failed());
  }
  const auto calls = gCalls.waitFor(1);
  EXPECT_EQ(calls[0].errorCode, kErrorCodeTimeout);
  EXPECT_EQ(calls[0].data, Text(Record(kDebugRefTui, kErrorCodeTimeout, 0, "")));
}

TEST(ErrorRecord, HasNoSequenceByteAndNoPayload) {
  std::uint8_t* buffer = nullptr;
  std::uint32_t size = 0;
  BuildErrorResponse(0xFF0B8241, 9, &buffer, &size);
  EXPECT_EQ(size, 16u);
  EXPECT_EQ(std::vector<std::uint8_t>(buffer, buffer + size), Record(kDebugRefTui, 9, 0, ""));
  std::free(buffer);
}

// ---------------------------------------------------------------------------------------------------------------------
// The queue, and the way by an engine's handle
// ---------------------------------------------------------------------------------------------------------------------

class QueueTest : public ResponseTest {
 protected:
  /// Puts something into a sequence's queue without waking its thread.
  void file(std::uint32_t seqNum, const void* data, std::uint32_t size) {
    platform::Handle syncDataEvent = nullptr, aSyncDataEvent = nullptr;
    AsyncListener* listener = nullptr;
    bool isAsync = false, isStream = false;
    EXPECT_EQ(
        inside().sequencer().InsertAsyncDataBySeqNum(seqNum, static_cast<const std::uint8_t*>(data), size,
                                                     &syncDataEvent, &aSyncDataEvent, &listener, &isAsync, &isStream),
        SEQ_INSERT_OK);
  }
  Transcript next(std::uint32_t seqNum, std::uint32_t expected) {
    mBuffer = &mUnset;
    return EngineSays([&] { EXPECT_EQ(engine->RetrieveNextAsyncBuffer(seqNum, &mBuffer, &mSize), expected); });
  }

  std::uint8_t mUnset = 0;
  std::uint8_t* mBuffer = nullptr;
  std::uint32_t mSize = 4711;
};

TEST_F(QueueTest, TheNextAnswerGoesToTheCaller) {
  const std::uint32_t seqNum = openTask();
  EngineSays([&] { file(seqNum, "answer", 6); });
  EXPECT_EQ(next(seqNum, 0), Taken(seqNum));
  EXPECT_EQ(std::string(mBuffer, mBuffer + mSize), "answer");
  std::free(mBuffer);
}

TEST_F(QueueTest, AnEmptyQueueIsNoFault) {
  const std::uint32_t seqNum = openTask();
  EXPECT_EQ(next(seqNum, 2), FoundEmpty(seqNum));
  EXPECT_EQ(mBuffer, nullptr);
  EXPECT_EQ(mSize, 0u);
}

TEST_F(QueueTest, AnAnswerWithoutDataIsToldAndTaken) {
  const std::uint32_t seqNum = openTask();
  EngineSays([&] { file(seqNum, nullptr, 0); });
  EXPECT_EQ(next(seqNum, 0), Retrieved(seqNum) +
                                 SaidOf("error", "RetrieveNextAsyncBuffer", seqNum, "NULL data. \n",
                                        "NULL data related to sequence number") +
                                 SaidOf("info", "RetrieveNextAsyncBuffer", seqNum, "retrieved data. \n",
                                        "retrieved data related to sequence number"));
  EXPECT_EQ(mBuffer, nullptr);
  EXPECT_EQ(mSize, 0u);
}

TEST_F(QueueTest, WithoutTheTableOfSequencesNothingCanBeTaken) {
  inside().closeSequencerMutex();
  EXPECT_EQ(next(7, 1), SaidOf("error", "RetrieveNextAsyncBuffer", 7, "could not retrieve data. \n",
                               "could not retrieve data related to sequence number"));
}

TEST_F(QueueTest, AnEngineThatIsGoneIsToldByEachFunction) {
  std::uint8_t* buffer = &mUnset;
  std::uint32_t size = 4711;
  for (const std::uint32_t gone : {handle + 1, 15u, 16u, kNoBrelHandle}) {
    EXPECT_EQ(ProcessSequenceData(gone, 0, 2, nullptr, 0), 0u);
    EXPECT_EQ(RetrieveNextAsyncBufferByHandle(gone, nullptr, 0, &buffer, &size), 7u);
    EXPECT_FALSE(FreeSequenceByHandle(gone, 0));
  }
}

TEST_F(QueueTest, AnEngineIsFoundByItsHandle) {
  const std::uint32_t seqNum = openTask();
  EngineSays([&] {
    file(seqNum, "answer", 6);
    EXPECT_EQ(RetrieveNextAsyncBufferByHandle(handle, nullptr, seqNum, &mBuffer, &mSize), 0u);
    std::free(mBuffer);
    EXPECT_EQ(RetrieveNextAsyncBufferByHandle(handle, nullptr, seqNum, &mBuffer, &mSize), 2u);
    {
      const InPlaceOfThread inPlace(inside());
      EXPECT_EQ(ProcessSequenceData(handle, seqNum, 2, nullptr, 0), 1u);
    }
    waitForThreads();
    EXPECT_FALSE(FreeSequenceByHandle(handle, seqNum));
  });
  EXPECT_EQ(gCalls.waitFor(1).size(), 1u);
  EngineSays([&] {
    const std::uint32_t other = InvokeAsync(handle, kDebugRef, OnTask).seqNum;
    EXPECT_TRUE(FreeSequenceByHandle(handle, other));
  });
  EXPECT_EQ(inside().threads(), 0);
  leavesEngines = true;  // with a thread whose sequence is gone
}

}  // namespace
}  // namespace kel::test
