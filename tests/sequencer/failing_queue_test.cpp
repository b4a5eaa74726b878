// SPDX-License-Identifier: MIT
// What the sequencer does with a queue that fails.
#include "support/failing_queue.h"

#include <thread>

#include "sequencer/sequencer_test.h"
#include "support/log_file.h"

namespace kel::test {
namespace {

class SequencerOfFailingQueue : public Sequencer {
 protected:
  SequencerOfFailingQueue() { sequencer->mLogToConsole = 1; }

  /// What `operation` prints while that call of the queue fails. Other threads find the table's mutex free afterwards.
  template <class Operation>
  std::string printedWith(QueueCall call, Operation operation) {
    testing::internal::CaptureStdout();
    {
      const FailingQueue failing(call);
      operation(failing);
    }
    const std::string printed = testing::internal::GetCapturedStdout();
    std::thread([this] { EXPECT_EQ(sequencer->FreeSequence(kUnknown), SEQ_FREE_FAILED); }).join();
    return printed;
  }

  static std::string line(const std::string& level, const std::string& function, const std::string& text) {
    return LogEntry(level, "BrelTasksSequencer", function, text);
  }

  LogFile log{"Brel_Tasks_Sequencer.logs"};
};

TEST_F(SequencerOfFailingQueue, LosesTheNumberOfASequenceThatHasNone) {
  EXPECT_EQ(printedWith(QueueCall::kInit, [this](auto&) { EXPECT_EQ(assign().status, SEQ_ASSIGN_FAILED); }), "");
  EXPECT_FALSE(isOpen(0));
  EXPECT_EQ(assign().seqNum, 1u);
  EXPECT_EQ(numbersLeft(), 62u);
}

TEST_F(SequencerOfFailingQueue, KeepsTheCopyOfAnAnswerThatIsNotQueued) {
  const Opened opened = assign();
  log.fresh();
  std::uint8_t* kept = nullptr;
  EXPECT_EQ(printedWith(QueueCall::kInsert,
                        [&](const FailingQueue& failing) {
                          EXPECT_EQ(insertAsyncData(opened.seqNum, "lost").status, SEQ_INSERT_FAILED);
                          kept = failing.refused();
                        }),
            "InsertAsyncDataBySeqNum - problem inserting to asyncBuffersQueue - 6\n");
  EXPECT_EQ(log.fresh(), line("info", "InsertAsyncDataBySeqNum",
                              "allocated memory for asyncBuffer number 1. asyncBufferSize = 4 \n") +
                             line("error", "InsertAsyncDataBySeqNum", "problem inserting to asyncBuffersQueue - 6 \n"));
  EXPECT_EQ(std::string(kept, kept + 4), "lost");
  std::free(kept);
  EXPECT_EQ(retrieveNext(opened.seqNum).status, SEQ_RETRIEVE_EMPTY);
}

TEST_F(SequencerOfFailingQueue, GivesNothingOutThatCannotBeTakenAndDoesNotCallThatEmpty) {
  const Opened opened = assign();
  insertAsyncData(opened.seqNum, "queued");
  printedWith(QueueCall::kExtract, [&](auto&) {
    const Taken taken = retrieveNext(opened.seqNum);
    EXPECT_EQ(taken.status, SEQ_RETRIEVE_OK);
    EXPECT_EQ(taken.buffer, nullptr);
    EXPECT_EQ(taken.size, 0u);
  });
  EXPECT_EQ(retrieveNext(opened.seqNum).text(), "queued");
}

TEST_F(SequencerOfFailingQueue, ClosesASequenceWhoseAnswersCannotBeTaken) {
  const Opened opened = assign();
  log.fresh();
  EXPECT_EQ(
      printedWith(QueueCall::kExtract, [&](auto&) { EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK); }),
      "FreeSequence - problem extracting from asyncBuffersQueue \n"
      "FreeSequence - freed sequence number 0 \n");
  EXPECT_EQ(log.fresh(), line("error", "FreeSequence", "problem extracting from asyncBuffersQueue \n") +
                             line("info", "FreeSequence", "freed sequence number 0 \n"));
  EXPECT_FALSE(platform::setEvent(opened.stopEvent));
  EXPECT_EQ(numbersLeft(), 64u);
}

TEST_F(SequencerOfFailingQueue, ClosesASequenceWhoseQueueDoesNotShutDownAndTellsOfAFailure) {
  const Opened opened = assign();
  log.fresh();
  EXPECT_EQ(printedWith(QueueCall::kShutdown,
                        [&](auto&) { EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_FAILED); }),
            "FreeSequence - freed sequence number 0 \n");
  EXPECT_EQ(log.fresh(), line("info", "FreeSequence", "freed sequence number 0 \n"));
  EXPECT_FALSE(platform::setEvent(opened.stopEvent));
  EXPECT_EQ(numbersLeft(), 64u);
}

}  // namespace
}  // namespace kel::test
