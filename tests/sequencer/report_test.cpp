// SPDX-License-Identifier: MIT
// What the sequencer reports, and where.
#include "sequencer/sequencer_test.h"
#include "support/log_file.h"

namespace kel::test {
namespace {

const char* const kLog = "Brel_Tasks_Sequencer.logs";

class SequencerReport : public Sequencer {
 protected:
  SequencerReport() { sequencer->mLogToConsole = 1; }

  static std::string line(const std::string& function, const std::string& text) {
    return LogEntry("info", "BrelTasksSequencer", function, text);
  }

  LogFile log{kLog};
};

TEST_F(SequencerReport, IsSilentOnTheConsoleUnlessSwitchedOn) {
  sequencer = std::make_unique<BrelTasksSequencer>();
  EXPECT_EQ(sequencer->mLogToConsole, 0u);
  testing::internal::CaptureStdout();
  const Opened opened = assign();
  insertData(opened.seqNum, "filed");
  insertData(kUnknown, "filed");
  retrieve(opened.seqNum);
  sequencer->FreeSequence(opened.seqNum);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_NE(log.fresh(), "");
}

TEST_F(SequencerReport, TellsOfASequencesLifeOnBothOutlets) {
  testing::internal::CaptureStdout();
  assign();
  const Opened opened = assign(0x34161, true, true);
  insertData(opened.seqNum, "filed");
  insertAsyncData(opened.seqNum, "queued");
  sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, opened.stopEvent, kListener);
  sequencer->InsertAckBySeqNum(opened.seqNum);
  retrieve(opened.seqNum);
  retrieveNext(opened.seqNum);
  sequencer->FreeSequence(opened.seqNum);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "AssignSequence - assigned sequence number 0 \n"
            "AssignSequence - assigned sequence number 1 \n"
            "InsertDataBySeqNum - inserted data for sequence number 1 \n"
            "InsertAsyncDataBySeqNum - inserted async data for sequence number 1 \n"
            "InsertAsyncListenerInfoBySeqNum - inserted async listener info for sequence number 1 \n"
            "InsertAckBySeqNum - inserted Ack for sequence number 1 \n"
            "RetrieveBySeqNum - retrieved data for sequence number 1 \n"
            "RetrieveBySeqNum - retrieved data for sequence number 1 \n"
            "FreeSequence - freed sequence number 1 \n");
  EXPECT_EQ(log.fresh(),
            line("AssignSequence", "assigned sequence number 0 \n") +
                line("AssignSequence", "assigned sequence number 1 \n") +
                line("InsertDataBySeqNum", "inserted data for sequence number 1 \n") +
                line("InsertAsyncDataBySeqNum", "allocated memory for asyncBuffer number 1. asyncBufferSize = 6 \n") +
                line("InsertAsyncDataBySeqNum", "inserted async data for sequence number 1 \n") +
                line("InsertAsyncListenerInfoBySeqNum", "inserted async listener info for sequence number 1 \n") +
                line("InsertAckBySeqNum", "inserted Ack for sequence number 1 \n") +
                line("RetrieveBySeqNum", "retrieved data for sequence number 1 \n") +
                line("RetrieveBySeqNum", "retrieved data for sequence number 1 \n") +
                line("FreeSequence", "freed sequence number 1 \n"));
}

TEST_F(SequencerReport, CountsQueuedBuffersOfAllSequencesButNoEmptyOnes) {
  assign();
  assign();
  log.fresh();
  insertAsyncData(0, "x");
  insertAsyncData(1, nullptr, 0);
  insertAsyncData(1, "xyz");
  sequencer->FreeSequence(0);
  insertAsyncData(1, "xy");
  EXPECT_EQ(log.fresh(),
            line("InsertAsyncDataBySeqNum", "allocated memory for asyncBuffer number 1. asyncBufferSize = 1 \n") +
                line("InsertAsyncDataBySeqNum", "inserted async data for sequence number 0 \n") +
                line("InsertAsyncDataBySeqNum", "inserted async data for sequence number 1 \n") +
                line("InsertAsyncDataBySeqNum", "allocated memory for asyncBuffer number 2. asyncBufferSize = 3 \n") +
                line("InsertAsyncDataBySeqNum", "inserted async data for sequence number 1 \n") +
                line("FreeSequence", "freed sequence number 0 \n") +
                line("InsertAsyncDataBySeqNum", "allocated memory for asyncBuffer number 3. asyncBufferSize = 2 \n") +
                line("InsertAsyncDataBySeqNum", "inserted async data for sequence number 1 \n"));
}

TEST_F(SequencerReport, TellsOfAnUnknownNumberInTheSameWordsForEveryInsertion) {
  testing::internal::CaptureStdout();
  insertData(kUnknown, "x");
  insertAsyncData(kUnknown, "x");
  sequencer->InsertAsyncListenerInfoBySeqNum(kUnknown, nullptr, nullptr);
  sequencer->InsertAckBySeqNum(kUnknown);
  const std::string once = "InsertDataBySeqNum - could not find sequence number 40 \n";
  EXPECT_EQ(testing::internal::GetCapturedStdout(), once + once + once + once);
  EXPECT_EQ(log.fresh(), "");
}

TEST_F(SequencerReport, SaysNothingOfOtherUnknownNumbers) {
  testing::internal::CaptureStdout();
  retrieve(kUnknown);
  retrieveData(kUnknown);
  sequencer->FreeSequence(kUnknown);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(log.fresh(), "");
}

TEST_F(SequencerReport, SaysNothingOfARefusedSequence) {
  assignAll();
  log.fresh();
  testing::internal::CaptureStdout();
  EXPECT_EQ(assign().status, SEQ_ASSIGN_NO_FREE_NUMBER);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(log.fresh(), "");
}

TEST_F(SequencerReport, TellsOfWhatItFreesAtItsEnd) {
  assign();
  assign();
  log.fresh();
  testing::internal::CaptureStdout();
  sequencer.reset();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "FreeSequence - freed sequence number 0 \nFreeSequence - freed sequence number 1 \n");
  EXPECT_EQ(log.fresh(),
            line("FreeSequence", "freed sequence number 0 \n") + line("FreeSequence", "freed sequence number 1 \n"));
}

}  // namespace
}  // namespace kel::test
