// SPDX-License-Identifier: MIT
// Handing numbers out and taking them back.
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "sequencer/sequencer_test.h"

namespace kel::test {
namespace {

TEST(SequencerStatus, HasTheNumbersThatCallersCompareWith) {
  EXPECT_EQ(SEQ_ASSIGN_FAILED, 0u);
  EXPECT_EQ(SEQ_ASSIGN_NO_FREE_NUMBER, 1u);
  EXPECT_EQ(SEQ_ASSIGN_OK, 2u);
  EXPECT_EQ(SEQ_FREE_FAILED, 3u);
  EXPECT_EQ(SEQ_FREE_OK, 4u);
  EXPECT_EQ(SEQ_INSERT_FAILED, 5u);
  EXPECT_EQ(SEQ_INSERT_OK, 6u);
  EXPECT_EQ(SEQ_RETRIEVE_FAILED, 7u);
  EXPECT_EQ(SEQ_RETRIEVE_OK, 8u);
  EXPECT_EQ(SEQ_RETRIEVE_NOT_FOUND, 9u);
  EXPECT_EQ(SEQ_RETRIEVE_EMPTY, 10u);
  EXPECT_EQ(BREL_ISSUE_COMMAND, 0u);
  EXPECT_EQ(BREL_INVOKE_TASK, 1u);
  EXPECT_EQ(BREL_FIXED_TASK, 2u);
  EXPECT_EQ(BREL_NO_API_TYPE, 3u);
}

TEST_F(QuietSequencer, AssignsTheNumbersFrom0To63InOrder) {
  for (std::uint32_t i = 0; i < 64; ++i) {
    const Opened opened = assign();
    EXPECT_EQ(opened.status, SEQ_ASSIGN_OK);
    EXPECT_EQ(opened.seqNum, i);
  }
}

TEST_F(QuietSequencer, RefusesASixtyFifthSequence) {
  assignAll();
  const Opened refused = assign();
  EXPECT_EQ(refused.status, SEQ_ASSIGN_NO_FREE_NUMBER);
  EXPECT_EQ(refused.seqNum, 999u);
  EXPECT_EQ(refused.syncDataEvent, nullptr);
  for (std::uint32_t i = 0; i < 64; ++i) EXPECT_TRUE(isOpen(i));

  EXPECT_EQ(sequencer->FreeSequence(17), SEQ_FREE_OK);
  EXPECT_EQ(assign().seqNum, 17u);
  EXPECT_EQ(assign().status, SEQ_ASSIGN_NO_FREE_NUMBER);
}

TEST_F(QuietSequencer, DoesNotAssignAFreedNumberBeforeTheOthers) {
  EXPECT_EQ(assign().seqNum, 0u);
  EXPECT_EQ(sequencer->FreeSequence(0), SEQ_FREE_OK);
  for (std::uint32_t i = 1; i < 64; ++i) EXPECT_EQ(assign().seqNum, i);
  EXPECT_EQ(assign().seqNum, 0u);
}

TEST_F(QuietSequencer, AssignsFreedNumbersInTheOrderOfTheirFreeing) {
  assignAll();
  for (const std::uint32_t number : {5u, 63u, 0u, 31u}) sequencer->FreeSequence(number);
  for (const std::uint32_t number : {5u, 63u, 0u, 31u}) EXPECT_EQ(assign().seqNum, number);
}

TEST_F(QuietSequencer, RotatesThroughAllNumbers) {
  for (std::uint32_t i = 0; i < 200; ++i) {
    const Opened opened = assign();
    ASSERT_EQ(opened.seqNum, i % 64);
    ASSERT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK);
  }
}

TEST_F(QuietSequencer, GivesAStreamThreeNumbersAndOneEntry) {
  for (std::uint32_t i = 0; i < 64; ++i) {
    const Opened stream = assign(0x34161, true, true);
    ASSERT_EQ(stream.status, SEQ_ASSIGN_OK);
    EXPECT_EQ(stream.streamSeqNum, i + 64);
    EXPECT_EQ(stream.streamEndSeqNum, i + 128);
    EXPECT_FALSE(isOpen(stream.streamSeqNum));
    EXPECT_FALSE(isOpen(stream.streamEndSeqNum));
  }
}

TEST_F(Sequencer, GivesEachSequenceThreeAutoResetEventsOfItsOwn) {
  const Opened one = assign(), other = assign();
  const std::set<platform::Handle> events = {one.syncDataEvent,   one.aSyncDataEvent,   one.stopEvent,
                                             other.syncDataEvent, other.aSyncDataEvent, other.stopEvent};
  EXPECT_EQ(events.size(), 6u);
  for (platform::Handle event : events) {
    EXPECT_EQ(platform::waitForOne(event, 0), platform::kWaitTimeout);
    EXPECT_TRUE(platform::setEvent(event));
    EXPECT_EQ(platform::waitForOne(event, 0), platform::kWaitObject);
    EXPECT_EQ(platform::waitForOne(event, 0), platform::kWaitTimeout);
  }
}

TEST_F(Sequencer, ClosesTheEventsOfAFreedSequence) {
  const Opened opened = assign();
  EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK);
  for (platform::Handle event : {opened.syncDataEvent, opened.aSyncDataEvent, opened.stopEvent}) {
    EXPECT_FALSE(platform::setEvent(event));
  }
  EXPECT_FALSE(isOpen(opened.seqNum));
}

TEST_F(QuietSequencer, FreesNothingForAnUnknownNumber) {
  EXPECT_EQ(sequencer->FreeSequence(0), SEQ_FREE_FAILED);
  EXPECT_EQ(sequencer->FreeSequence(64), SEQ_FREE_FAILED);
  EXPECT_EQ(sequencer->FreeSequence(0xFFFFFFFF), SEQ_FREE_FAILED);
  EXPECT_EQ(numbersLeft(), 64u);
}

TEST_F(QuietSequencer, DoesNotDuplicateANumberThatIsFreedTwice) {
  const Opened opened = assign();
  EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK);
  EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_FAILED);
  EXPECT_EQ(numbersLeft(), 64u);
}

TEST_F(QuietSequencer, FreesASequenceOfWhichAHandleWillNotClose) {
  for (platform::Handle Opened::*event : {&Opened::syncDataEvent, &Opened::aSyncDataEvent, &Opened::stopEvent}) {
    const Opened opened = assign();
    ASSERT_TRUE(platform::closeHandle(opened.*event));
    EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_FAILED);
    for (platform::Handle closed : {opened.syncDataEvent, opened.aSyncDataEvent, opened.stopEvent}) {
      EXPECT_FALSE(platform::setEvent(closed));
    }
    EXPECT_FALSE(isOpen(opened.seqNum));
  }
  EXPECT_EQ(numbersLeft(), 64u);
}

// The leak sanitizer sees what would stay behind.
TEST_F(Sequencer, ReleasesTheBuffersOfAFreedSequence) {
  const Opened opened = assign();
  insertData(opened.seqNum, "answer");
  insertAsyncData(opened.seqNum, "one");
  insertAsyncData(opened.seqNum, nullptr, 0);
  insertAsyncData(opened.seqNum, "two");
  EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK);
}

TEST_F(Sequencer, LeavesTheThreadOfAFreedSequenceOpen) {
  const Opened opened = assign();
  const platform::Handle thread = platform::createEvent(true, false);
  sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, thread, kListener);
  EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK);
  EXPECT_TRUE(platform::closeHandle(thread));
}

TEST_F(Sequencer, StartsANewSequenceUnderAnOldNumberEmpty) {
  for (std::uint32_t i = 0; i < 64; ++i) {
    const Opened opened = assign(0x34161, true, true);
    insertData(opened.seqNum, "answer");
    insertAsyncData(opened.seqNum, "queued");
    sequencer->InsertAckBySeqNum(opened.seqNum);
    sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, opened.stopEvent, kListener);
    sequencer->FreeSequence(opened.seqNum);
  }
  const Opened again = assign(0x38240);
  EXPECT_EQ(again.seqNum, 0u);
  const sequence_snapshot snapshot = retrieve(0);
  EXPECT_EQ(snapshot.TUI, 0x38240u);
  EXPECT_EQ(snapshot.bufferSize, 0u);
  EXPECT_EQ(snapshot.asyncThreadHandle, nullptr);
  EXPECT_EQ(snapshot.asyncListenerInstance, nullptr);
  EXPECT_FALSE(snapshot.isAsync || snapshot.isStream || snapshot.ackArrived);
  EXPECT_EQ(retrieveNext(0).status, SEQ_RETRIEVE_EMPTY);
}

TEST_F(Sequencer, FreesWhatIsOpenAtItsEnd) {
  std::vector<Opened> all;
  for (int i = 0; i < 5; ++i) all.push_back(assign());
  for (const Opened& opened : all) insertAsyncData(opened.seqNum, "queued");
  sequencer->FreeSequence(2);
  sequencer.reset();
  for (const Opened& opened : all) {
    for (platform::Handle event : {opened.syncDataEvent, opened.aSyncDataEvent, opened.stopEvent}) {
      EXPECT_FALSE(platform::setEvent(event));
    }
  }
}

TEST_F(QuietSequencer, ServesManyThreadsAtOnce) {
  std::mutex mutex;
  std::set<std::uint32_t> open;
  const auto work = [&](std::string text) {
    for (int round = 0; round < 100; ++round) {
      const Opened opened = assign();
      ASSERT_EQ(opened.status, SEQ_ASSIGN_OK);
      {
        const std::lock_guard lock(mutex);
        ASSERT_TRUE(open.insert(opened.seqNum).second);
      }
      ASSERT_EQ(insertData(opened.seqNum, text).status, SEQ_INSERT_OK);
      ASSERT_EQ(insertAsyncData(opened.seqNum, text + "!").status, SEQ_INSERT_OK);
      ASSERT_EQ(retrieveData(opened.seqNum).text(), text);
      ASSERT_EQ(retrieveNext(opened.seqNum).text(), text + "!");
      {
        const std::lock_guard lock(mutex);
        open.erase(opened.seqNum);
      }
      ASSERT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK);
    }
  };
  std::vector<std::thread> threads;
  for (const char* text : {"one", "two", "three", "four"}) threads.emplace_back(work, text);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(numbersLeft(), 64u);
}

}  // namespace
}  // namespace kel::test
