// SPDX-License-Identifier: MIT
// What becomes of the sequencer's operations when the heap is exhausted.
#include <functional>
#include <thread>

#include "sequencer/sequencer_test.h"
#include "support/failing_heap.h"
#include "support/process_resources.h"

namespace kel::test {
namespace {

class SequencerMemory : public QuietSequencer {
 protected:
  /// Has `operation` fail for want of each object that it makes, and see every time that other threads get on.
  /// `expected` is told the status of a failure. Ends with the first run in which nothing failed, and gives its status.
  template <class Status>
  Status failEach(const std::function<Status()>& operation, Status expected) {
    for (int objects = 0;; ++objects) {
      Status status;
      bool failed = false;
      {
        const FailingHeap heap(objects);
        status = operation();
        failed = heap.failed();
      }
      if (!failed) {
        EXPECT_GT(objects, 0) << "it made nothing";
        return status;
      }
      EXPECT_EQ(status, expected) << "after " << objects << " objects";
      std::thread([this] { EXPECT_EQ(sequencer->FreeSequence(kUnknown), SEQ_FREE_FAILED); }).join();
    }
  }
};

// A sequence has its place in the table. Where the system's events need memory, a thread's first ones come before.
TEST_F(SequencerMemory, AnOpeningNeedsNone) {
  sequencer->FreeSequence(assign().seqNum);
  const FailingHeap heap;
  EXPECT_EQ(assign().status, SEQ_ASSIGN_OK);
  EXPECT_FALSE(heap.failed());
}

// Clients know the growth of their process that comes of it.
TEST_F(SequencerMemory, ARefusedOpeningKeepsTheMemoryOfASequence) {
  assignAll();
  EXPECT_EQ(
      [this] {
        const FailingHeap heap(0);
        return assign().status;
      }(),
      SEQ_ASSIGN_FAILED);
  const auto before = HeapBytes();
  if (!before) GTEST_SKIP() << "the heap is not counted on this system";
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(assign().status, SEQ_ASSIGN_NO_FREE_NUMBER);
  EXPECT_GE(*HeapBytes(), *before + 1000 * sizeof(sequence_element));
}

TEST_F(SequencerMemory, ARefusedOpeningKeepsNoneWhereBlocksAreReleased) {
  sequencer->mKeptBlocks.setReleased(true);
  assignAll();
  const auto before = HeapBytes();
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(assign().status, SEQ_ASSIGN_NO_FREE_NUMBER);
  EXPECT_LT(HeapBytes().value_or(0), before.value_or(0) + 1000);
}

TEST_F(SequencerMemory, AnAnswerThatFindsNoneIsNotFiledAndTheSequenceStaysAsItWas) {
  const Opened opened = assign();
  insertData(opened.seqNum, "first");
  EXPECT_EQ(failEach<SeqStatus>(
                [&] {
                  const SeqStatus status = insertData(opened.seqNum, "second").status;
                  if (status != SEQ_INSERT_OK) {
                    std::thread([&] { EXPECT_EQ(retrieveData(opened.seqNum).text(), "first"); }).join();
                  }
                  return status;
                },
                SEQ_INSERT_FAILED),
            SEQ_INSERT_OK);
  EXPECT_EQ(retrieveData(opened.seqNum).text(), "second");
}

TEST_F(SequencerMemory, AnAnswerThatFindsNoneIsNotQueued) {
  const Opened opened = assign();
  {
    const FailingHeap heap(0);
    EXPECT_EQ(insertAsyncData(opened.seqNum, "lost").status, SEQ_INSERT_FAILED);
  }
  EXPECT_EQ(insertAsyncData(opened.seqNum, "queued").status, SEQ_INSERT_OK);
  EXPECT_EQ(retrieveNext(opened.seqNum).text(), "queued");
  EXPECT_EQ(retrieveNext(opened.seqNum).status, SEQ_RETRIEVE_EMPTY);
}

// Behind the first few entries the queue grows by one object for each 32 or so. Its own lock stays with the thread that
// met the end of memory.
TEST_F(SequencerMemory, AQueueThatCannotGrowKeepsItsOwnLockAndNotTheTables) {
  const Opened opened = assign();
  std::uint32_t queued = 0;
  for (bool failed = false; !failed;) {
    const FailingHeap heap(1);  // the copy can be made
    const SeqStatus status = insertAsyncData(opened.seqNum, "queued").status;
    failed = heap.failed();
    EXPECT_EQ(status, failed ? SEQ_INSERT_FAILED : SEQ_INSERT_OK);
    if (!failed) ++queued;
    ASSERT_LT(queued, 10000u);
  }
  std::thread([&] { EXPECT_TRUE(isOpen(opened.seqNum)); }).join();
  for (std::uint32_t i = 0; i < queued; ++i) EXPECT_EQ(retrieveNext(opened.seqNum).text(), "queued");
  EXPECT_EQ(retrieveNext(opened.seqNum).status, SEQ_RETRIEVE_EMPTY);
}

// A message of a stream looks its sequence up, which may still hold the opening that a client waited for.
TEST_F(SequencerMemory, ALookupThatFindsNoneLeavesOutTheAnswerAlone) {
  const Opened opened = assign();
  insertData(opened.seqNum, "filed");
  sequence_snapshot snapshot;
  SeqStatus status;
  {
    const FailingHeap heap(0);
    status = sequencer->RetrieveBySeqNum(opened.seqNum, &snapshot);
  }
  EXPECT_EQ(status, SEQ_RETRIEVE_OK);
  EXPECT_NE(snapshot.apiType, BREL_NO_API_TYPE);
  EXPECT_NE(snapshot.stopEvent, nullptr);
  EXPECT_EQ(snapshot.buffer, nullptr);
  EXPECT_EQ(snapshot.bufferSize, 0u);
  std::thread([&] { EXPECT_EQ(retrieveData(opened.seqNum).text(), "filed"); }).join();
}

TEST_F(SequencerMemory, NothingElseNeedsAny) {
  const Opened opened = assign();
  insertAsyncData(opened.seqNum, "queued");
  const FailingHeap heap;
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(sequencer->InsertAckBySeqNum(opened.seqNum), SEQ_INSERT_OK);
    EXPECT_EQ(sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, nullptr, kListener), SEQ_INSERT_OK);
  }
  EXPECT_EQ(retrieveNext(opened.seqNum).text(), "queued");
  EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK);
  EXPECT_FALSE(heap.failed());
}

// However far the numbers have rotated.
TEST_F(SequencerMemory, ANumberCanAlwaysBeGivenBack) {
  for (int i = 0; i < 300; ++i) {
    const Opened opened = assign();
    const FailingHeap heap;
    ASSERT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK) << i;
    ASSERT_FALSE(heap.failed());
  }
}

}  // namespace
}  // namespace kel::test
