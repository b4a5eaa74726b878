// SPDX-License-Identifier: MIT
// What a lookup gives out.
#include <thread>

#include "sequencer/sequencer_test.h"
#include "support/platform_calls.h"

namespace kel::test {
namespace {

TEST_F(Sequencer, LooksUpAllOfASequence) {
  Opened opened;
  sequencer->AssignSequence(BREL_ISSUE_COMMAND, 5, &opened.seqNum, 0xB8241, &opened.syncDataEvent,
                            &opened.aSyncDataEvent, &opened.stopEvent, OnAnswer, OnStream, &opened.streamSeqNum,
                            &opened.streamEndSeqNum, true, false);
  insertData(opened.seqNum, "filed");
  sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, opened.stopEvent, kListener);

  sequence_snapshot snapshot;
  ASSERT_EQ(sequencer->RetrieveBySeqNum(opened.seqNum, &snapshot), SEQ_RETRIEVE_OK);
  EXPECT_EQ(snapshot.apiType, BREL_ISSUE_COMMAND);
  EXPECT_EQ(snapshot.commandID, 5u);
  EXPECT_EQ(snapshot.TUI, 0xB8241u);
  EXPECT_EQ(snapshot.syncDataEvent, opened.syncDataEvent);
  EXPECT_EQ(snapshot.aSyncDataEvent, opened.aSyncDataEvent);
  EXPECT_EQ(snapshot.stopEvent, opened.stopEvent);
  ASSERT_EQ(snapshot.bufferSize, 5u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(snapshot.buffer), 5), "filed");
  EXPECT_NE(snapshot.asyncBuffersQueue, nullptr);
  EXPECT_EQ(snapshot.callbackFunc, OnAnswer);
  EXPECT_EQ(snapshot.streamCallbackFunc, OnStream);
  EXPECT_EQ(snapshot.asyncThreadHandle, opened.stopEvent);
  EXPECT_EQ(snapshot.asyncListenerInstance, kListener);
  EXPECT_EQ(snapshot.streamSeqNum, 64u);
  EXPECT_EQ(snapshot.streamEndSeqNum, 128u);
  EXPECT_TRUE(snapshot.isAsync);
  EXPECT_FALSE(snapshot.isStream);
  EXPECT_FALSE(snapshot.ackArrived);
  std::free(snapshot.buffer);
}

TEST_F(Sequencer, LooksUpNothingUnderAnUnknownNumber) {
  assign();
  sequence_snapshot snapshot;
  snapshot.apiType = BREL_ISSUE_COMMAND;
  snapshot.commandID = snapshot.TUI = snapshot.bufferSize = snapshot.streamSeqNum = snapshot.streamEndSeqNum = 7;
  snapshot.syncDataEvent = snapshot.aSyncDataEvent = snapshot.stopEvent = snapshot.asyncThreadHandle = &snapshot;
  snapshot.callbackFunc = snapshot.streamCallbackFunc = OnAnswer;
  snapshot.asyncListenerInstance = kListener;
  snapshot.isAsync = snapshot.isStream = snapshot.ackArrived = true;
  EXPECT_EQ(sequencer->RetrieveBySeqNum(kUnknown, &snapshot), SEQ_RETRIEVE_NOT_FOUND);
  EXPECT_EQ(snapshot.apiType, BREL_NO_API_TYPE);
  EXPECT_EQ(snapshot.commandID, 0u);
  EXPECT_EQ(snapshot.TUI, 0u);
  EXPECT_EQ(snapshot.syncDataEvent, nullptr);
  EXPECT_EQ(snapshot.aSyncDataEvent, nullptr);
  EXPECT_EQ(snapshot.stopEvent, nullptr);
  EXPECT_EQ(snapshot.buffer, nullptr);
  EXPECT_EQ(snapshot.bufferSize, 0u);
  EXPECT_EQ(snapshot.asyncBuffersQueue, nullptr);
  EXPECT_EQ(snapshot.callbackFunc, nullptr);
  EXPECT_EQ(snapshot.streamCallbackFunc, nullptr);
  EXPECT_EQ(snapshot.asyncThreadHandle, nullptr);
  EXPECT_EQ(snapshot.asyncListenerInstance, nullptr);
  EXPECT_EQ(snapshot.streamSeqNum, 0u);
  EXPECT_EQ(snapshot.streamEndSeqNum, 0u);
  EXPECT_FALSE(snapshot.isAsync || snapshot.isStream || snapshot.ackArrived);
}

TEST_F(Sequencer, CopiesTheAnswerForEachLookup) {
  const Opened opened = assign();
  insertData(opened.seqNum, "filed");
  const Taken one = retrieveData(opened.seqNum), other = retrieveData(opened.seqNum);
  EXPECT_NE(one.buffer, other.buffer);
  *one.buffer = 'x';
  EXPECT_EQ(other.text(), "filed");
  EXPECT_EQ(retrieveData(opened.seqNum).text(), "filed");
}

/// Each narrow lookup, asked for the sequence `number`. What it gives out must be what `expected` holds.
class NarrowLookup : public Sequencer {
 protected:
  void expectAll(std::uint32_t number, SeqStatus status, const sequence_snapshot& expected) {
    sequence_snapshot s;
    EXPECT_EQ(sequencer->RetrieveSyncDataEventBySeqNum(number, &s.syncDataEvent), status);
    EXPECT_EQ(s.syncDataEvent, expected.syncDataEvent);
    EXPECT_EQ(sequencer->RetrieveASyncDataEventBySeqNum(number, &s.aSyncDataEvent), status);
    EXPECT_EQ(s.aSyncDataEvent, expected.aSyncDataEvent);

    EXPECT_EQ(sequencer->RetrieveAsyncThreadInfoBySeqNum(number, &s.stopEvent, &s.asyncThreadHandle,
                                                         &s.asyncListenerInstance),
              status);
    EXPECT_EQ(s.stopEvent, expected.stopEvent);
    EXPECT_EQ(s.asyncThreadHandle, expected.asyncThreadHandle);
    EXPECT_EQ(s.asyncListenerInstance, expected.asyncListenerInstance);

    s = {};
    EXPECT_EQ(sequencer->RetrieveAsyncListenerInfoBySeqNum(number, &s.asyncThreadHandle, &s.asyncListenerInstance),
              status);
    EXPECT_EQ(s.asyncThreadHandle, expected.asyncThreadHandle);
    EXPECT_EQ(s.asyncListenerInstance, expected.asyncListenerInstance);

    EXPECT_EQ(sequencer->RetrieveCallbacksBySeqNum(number, &s.apiType, &s.commandID, &s.TUI, &s.callbackFunc,
                                                   &s.streamCallbackFunc, &s.isStream),
              status);
    EXPECT_EQ(s.apiType, expected.apiType);
    EXPECT_EQ(s.commandID, expected.commandID);
    EXPECT_EQ(s.TUI, expected.TUI);
    EXPECT_EQ(s.callbackFunc, expected.callbackFunc);
    EXPECT_EQ(s.streamCallbackFunc, expected.streamCallbackFunc);
    EXPECT_EQ(s.isStream, expected.isStream);

    EXPECT_EQ(sequencer->RetrieveAckBySeqNum(number, &s.ackArrived), status);
    EXPECT_EQ(s.ackArrived, expected.ackArrived);

    s = {};
    EXPECT_EQ(sequencer->RetrieveSequenceTypeInfoBySeqNum(number, &s.syncDataEvent, &s.aSyncDataEvent, &s.isAsync,
                                                          &s.isStream),
              status);
    EXPECT_EQ(s.syncDataEvent, expected.syncDataEvent);
    EXPECT_EQ(s.aSyncDataEvent, expected.aSyncDataEvent);
    EXPECT_EQ(s.isAsync, expected.isAsync);
    EXPECT_EQ(s.isStream, expected.isStream);

    const Taken taken = retrieveData(number);
    EXPECT_EQ(taken.status, status);
    EXPECT_EQ(taken.TUI, expected.TUI);
    EXPECT_EQ(taken.size, expected.bufferSize);
    EXPECT_EQ(taken.buffer != nullptr, expected.bufferSize != 0);
    EXPECT_EQ(taken.isStream, expected.isStream);
  }
};

TEST_F(NarrowLookup, GivesOutItsPartOfASequence) {
  const Opened opened = assign(0x38243, true, true);
  insertData(opened.seqNum, "filed");
  sequencer->InsertAckBySeqNum(opened.seqNum);
  sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, opened.stopEvent, kListener);
  expectAll(opened.seqNum, SEQ_RETRIEVE_OK, retrieve(opened.seqNum));
}

TEST_F(NarrowLookup, GivesOutItsPartOfAPlainSequence) {
  const Opened opened = assign();
  expectAll(opened.seqNum, SEQ_RETRIEVE_OK, retrieve(opened.seqNum));
}

TEST_F(NarrowLookup, GivesOutNothingOfAnUnknownNumber) {
  expectAll(kUnknown, SEQ_RETRIEVE_NOT_FOUND, sequence_snapshot{});
}

TEST_F(Sequencer, TellsTaskAndStreamWithEachQueuedAnswerAndWithNone) {
  const Opened opened = assign(0x38243, true, true);
  insertAsyncData(opened.seqNum, "queued");
  for (const SeqStatus status : {SEQ_RETRIEVE_OK, SEQ_RETRIEVE_EMPTY}) {
    const Taken taken = retrieveNext(opened.seqNum);
    EXPECT_EQ(taken.status, status);
    EXPECT_EQ(taken.TUI, 0x38243u);
    EXPECT_TRUE(taken.isStream);
  }
}

// Nobody may ask this; it must not do harm.
TEST_F(Sequencer, HasNoQueuedAnswerForAnUnknownNumber) {
  const Taken taken = retrieveNext(kUnknown);
  EXPECT_EQ(taken.status, SEQ_RETRIEVE_FAILED);
  EXPECT_EQ(taken.buffer, nullptr);
  EXPECT_EQ(taken.size, 0u);
}

// A task that is refused may close a sequence of which another thread is about to take an answer.
TEST_F(QuietSequencer, HasNoQueuedAnswerForANumberThatIsFreedMeanwhile) {
  const Opened opened = assign();
  insertAsyncData(opened.seqNum, "queued");
  const AfterReleaseMutex betweenTheTwoSteps(
      [&] { std::thread([&] { EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK); }).join(); });
  const Taken taken = retrieveNext(opened.seqNum);
  EXPECT_EQ(taken.status, SEQ_RETRIEVE_FAILED);
  EXPECT_EQ(taken.buffer, nullptr);
  EXPECT_EQ(taken.size, 0u);
}

TEST_F(QuietSequencer, HasNoQueuedAnswerOfAnotherSequenceThatHasTheNumberByNow) {
  assignAll();
  insertAsyncData(7, "queued");
  const AfterReleaseMutex betweenTheTwoSteps([&] {
    std::thread([&] {
      EXPECT_EQ(sequencer->FreeSequence(7), SEQ_FREE_OK);
      EXPECT_EQ(assign().seqNum, 7u);
      EXPECT_EQ(insertAsyncData(7, "another's").status, SEQ_INSERT_OK);
    }).join();
  });
  EXPECT_EQ(retrieveNext(7).status, SEQ_RETRIEVE_FAILED);
  EXPECT_EQ(retrieveNext(7).text(), "another's");
}

}  // namespace
}  // namespace kel::test
