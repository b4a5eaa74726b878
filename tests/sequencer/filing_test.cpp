// SPDX-License-Identifier: MIT
// What is filed under a number.
#include "sequencer/sequencer_test.h"
#include "support/private_member.h"

namespace kel::test {

struct SequencesOf {
  friend auto memberOf(SequencesOf);
};
template struct OpenMember<SequencesOf, &BrelTasksSequencer::mSequences>;

namespace {

TEST_F(Sequencer, FilesACopyOfTheAnswer) {
  const Opened opened = assign();
  std::string answer = "answer";
  EXPECT_EQ(insertData(opened.seqNum, answer).status, SEQ_INSERT_OK);
  answer = "xxxxxx";
  const Taken taken = retrieveData(opened.seqNum);
  EXPECT_EQ(taken.status, SEQ_RETRIEVE_OK);
  EXPECT_EQ(taken.text(), "answer");
}

TEST_F(Sequencer, FilesAnEmptyAnswerAsNone) {
  const Opened opened = assign();
  EXPECT_EQ(insertData(opened.seqNum, nullptr, 5).status, SEQ_INSERT_OK);
  Taken taken = retrieveData(opened.seqNum);
  EXPECT_EQ(taken.status, SEQ_RETRIEVE_OK);
  EXPECT_EQ(taken.buffer, nullptr);
  EXPECT_EQ(taken.size, 0u);

  EXPECT_EQ(insertData(opened.seqNum, "text", 0).status, SEQ_INSERT_OK);
  taken = retrieveData(opened.seqNum);
  EXPECT_EQ(taken.buffer, nullptr);
  EXPECT_EQ(taken.size, 0u);
}

// The earlier ones are nobody's any more, so the test frees them.
TEST_F(Sequencer, OverwritesAnEarlierAnswerAndDoesNotReleaseIt) {
  const Opened opened = assign();
  const auto filed = [&] { return ((*sequencer).*memberOf(SequencesOf{})).at(opened.seqNum)->buffer; };
  insertData(opened.seqNum, "first");
  std::uint8_t* const first = filed();
  insertData(opened.seqNum, "second one");
  std::uint8_t* const second = filed();
  EXPECT_EQ(retrieveData(opened.seqNum).text(), "second one");
  insertData(opened.seqNum, nullptr, 0);
  EXPECT_EQ(retrieveData(opened.seqNum).buffer, nullptr);
  std::free(first);
  std::free(second);
}

TEST_F(Sequencer, FilesAnswersOfAnySize) {
  const Opened opened = assign();
  for (const std::size_t size : {1u, 8208u, 8209u, 100'000u}) {
    const std::string answer(size, 'x');
    insertAsyncData(opened.seqNum, answer);
    EXPECT_EQ(retrieveNext(opened.seqNum).text(), answer);
  }
}

TEST_F(Sequencer, TellsWhoeverFilesWhomToWake) {
  const Opened stream = assign(0x34161, true, true);
  sequencer->InsertAsyncListenerInfoBySeqNum(stream.seqNum, stream.stopEvent, kListener);
  for (const Inserted& inserted : {insertData(stream.seqNum, "x"), insertAsyncData(stream.seqNum, "x")}) {
    EXPECT_EQ(inserted.status, SEQ_INSERT_OK);
    EXPECT_EQ(inserted.syncDataEvent, stream.syncDataEvent);
    EXPECT_EQ(inserted.aSyncDataEvent, stream.aSyncDataEvent);
    EXPECT_EQ(inserted.asyncListenerInstance, kListener);
    EXPECT_TRUE(inserted.isAsync);
    EXPECT_TRUE(inserted.isStream);
  }
  const Opened plain = assign();
  for (const Inserted& inserted : {insertData(plain.seqNum, "x"), insertAsyncData(plain.seqNum, "x")}) {
    EXPECT_EQ(inserted.syncDataEvent, plain.syncDataEvent);
    EXPECT_EQ(inserted.asyncListenerInstance, nullptr);
    EXPECT_FALSE(inserted.isAsync);
    EXPECT_FALSE(inserted.isStream);
  }
}

TEST_F(Sequencer, QueuesCopiesOfAnswersInTheirOrder) {
  const Opened opened = assign();
  std::string answer = "one";
  insertAsyncData(opened.seqNum, answer);
  answer = "two";
  insertAsyncData(opened.seqNum, answer);
  EXPECT_EQ(retrieveNext(opened.seqNum).text(), "one");
  EXPECT_EQ(retrieveNext(opened.seqNum).text(), "two");
  const Taken none = retrieveNext(opened.seqNum);
  EXPECT_EQ(none.status, SEQ_RETRIEVE_EMPTY);
  EXPECT_EQ(none.buffer, nullptr);
  EXPECT_EQ(none.size, 0u);
}

TEST_F(Sequencer, QueuesAnEmptyAnswerAsANullEntry) {
  const Opened opened = assign();
  EXPECT_EQ(insertAsyncData(opened.seqNum, nullptr, 0).status, SEQ_INSERT_OK);
  EXPECT_EQ(insertAsyncData(opened.seqNum, "text", 0).status, SEQ_INSERT_OK);
  EXPECT_EQ(insertAsyncData(opened.seqNum, nullptr, 4).status, SEQ_INSERT_OK);
  for (int i = 0; i < 3; ++i) {
    const Taken taken = retrieveNext(opened.seqNum);
    EXPECT_EQ(taken.status, SEQ_RETRIEVE_OK);
    EXPECT_EQ(taken.buffer, nullptr);
    EXPECT_EQ(taken.size, 0u);
  }
  EXPECT_EQ(retrieveNext(opened.seqNum).status, SEQ_RETRIEVE_EMPTY);
}

TEST_F(Sequencer, KeepsTheQueueApartFromTheFiledAnswer) {
  const Opened opened = assign();
  insertData(opened.seqNum, "filed");
  insertAsyncData(opened.seqNum, "queued");
  EXPECT_EQ(retrieveData(opened.seqNum).text(), "filed");
  EXPECT_EQ(retrieveNext(opened.seqNum).text(), "queued");
  EXPECT_EQ(retrieveData(opened.seqNum).text(), "filed");
}

TEST_F(Sequencer, KeepsTheQueuesOfSequencesApart) {
  const Opened one = assign(), other = assign();
  insertAsyncData(one.seqNum, "one");
  EXPECT_EQ(retrieveNext(other.seqNum).status, SEQ_RETRIEVE_EMPTY);
  EXPECT_EQ(retrieveNext(one.seqNum).text(), "one");
}

TEST_F(Sequencer, FilesAListenerAndErasesIt) {
  const Opened opened = assign();
  EXPECT_EQ(sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, opened.stopEvent, kListener), SEQ_INSERT_OK);
  EXPECT_EQ(retrieve(opened.seqNum).asyncThreadHandle, opened.stopEvent);
  EXPECT_EQ(retrieve(opened.seqNum).asyncListenerInstance, kListener);
  EXPECT_EQ(sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, nullptr, nullptr), SEQ_INSERT_OK);
  EXPECT_EQ(retrieve(opened.seqNum).asyncThreadHandle, nullptr);
  EXPECT_EQ(retrieve(opened.seqNum).asyncListenerInstance, nullptr);
}

TEST_F(Sequencer, KeepsAnAckForGood) {
  const Opened opened = assign();
  EXPECT_FALSE(retrieve(opened.seqNum).ackArrived);
  EXPECT_EQ(sequencer->InsertAckBySeqNum(opened.seqNum), SEQ_INSERT_OK);
  EXPECT_TRUE(retrieve(opened.seqNum).ackArrived);
  EXPECT_EQ(sequencer->InsertAckBySeqNum(opened.seqNum), SEQ_INSERT_OK);
  insertData(opened.seqNum, "x");
  EXPECT_TRUE(retrieve(opened.seqNum).ackArrived);
}

TEST_F(Sequencer, ChangesNothingElseWhenItFiles) {
  const Opened opened = assign(0x38243, true, true);
  insertAsyncData(opened.seqNum, "queued");
  insertData(opened.seqNum, "filed");
  sequencer->InsertAckBySeqNum(opened.seqNum);
  sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, opened.stopEvent, kListener);
  const sequence_snapshot snapshot = retrieve(opened.seqNum);
  EXPECT_EQ(snapshot.apiType, BREL_INVOKE_TASK);
  EXPECT_EQ(snapshot.commandID, 77u);
  EXPECT_EQ(snapshot.TUI, 0x38243u);
  EXPECT_EQ(snapshot.syncDataEvent, opened.syncDataEvent);
  EXPECT_EQ(snapshot.bufferSize, 5u);
  EXPECT_TRUE(snapshot.isAsync && snapshot.isStream && snapshot.ackArrived);
  EXPECT_EQ(retrieveNext(opened.seqNum).text(), "queued");
}

TEST_F(Sequencer, FilesNothingUnderAnUnknownNumber) {
  assign();
  for (const std::uint32_t number : {kUnknown, 64u, 128u, 0xFFFFFFFFu}) {
    EXPECT_EQ(insertData(number, "x").status, SEQ_INSERT_FAILED);
    EXPECT_EQ(insertAsyncData(number, "x").status, SEQ_INSERT_FAILED);
    EXPECT_EQ(sequencer->InsertAsyncListenerInfoBySeqNum(number, nullptr, kListener), SEQ_INSERT_FAILED);
    EXPECT_EQ(sequencer->InsertAckBySeqNum(number), SEQ_INSERT_FAILED);
    EXPECT_FALSE(isOpen(number));
  }
}

}  // namespace
}  // namespace kel::test
