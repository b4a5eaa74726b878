// SPDX-License-Identifier: MIT
// An answer that came and that the waiting thread still does not get: what is said of each reason.
#include <functional>
#include <sstream>

#include "engine/engine_test.h"
#include "support/transcript.h"

namespace {

using kel::BrelTasksSequencer;
using kel::SeqStatus;

/// What the sequencer gives to a thread that was woken.
struct Retrieved {
  SeqStatus status;
  std::uint8_t** buffer;
  std::uint32_t* size;
  bool* isStream;
};

/// Runs behind each look-up of an answer.
std::function<void(BrelTasksSequencer& sequencer, std::uint32_t seqNum, Retrieved& retrieved)> gAfterRetrieval;

}  // namespace

// The linker sends the engine's calls of BrelTasksSequencer::RetrieveDataBySeqNum() here.
extern "C" {

SeqStatus __real__ZN3kel18BrelTasksSequencer20RetrieveDataBySeqNumEjPjPPhS1_Pb(BrelTasksSequencer*, std::uint32_t,
                                                                               std::uint32_t*, std::uint8_t**,
                                                                               std::uint32_t*, bool*);
SeqStatus __wrap__ZN3kel18BrelTasksSequencer20RetrieveDataBySeqNumEjPjPPhS1_Pb(BrelTasksSequencer* sequencer,
                                                                               std::uint32_t seqNum, std::uint32_t* TUI,
                                                                               std::uint8_t** buffer,
                                                                               std::uint32_t* size, bool* isStream);

SeqStatus __wrap__ZN3kel18BrelTasksSequencer20RetrieveDataBySeqNumEjPjPPhS1_Pb(BrelTasksSequencer* sequencer,
                                                                               std::uint32_t seqNum, std::uint32_t* TUI,
                                                                               std::uint8_t** buffer,
                                                                               std::uint32_t* size, bool* isStream) {
  Retrieved retrieved{__real__ZN3kel18BrelTasksSequencer20RetrieveDataBySeqNumEjPjPPhS1_Pb(sequencer, seqNum, TUI,
                                                                                           buffer, size, isStream),
                      buffer, size, isStream};
  if (gAfterRetrieval) gAfterRetrieval(*sequencer, seqNum, retrieved);
  return retrieved.status;
}

}  // extern "C"

namespace kel::test {
namespace {

constexpr const char* kIssue = "IssueCommandBase";

class AnswerTest : public EngineTest {
 protected:
  ~AnswerTest() override { gAfterRetrieval = nullptr; }

  void SetUp() override {
    folder.writeSettings("LogToConsole=1\n");
    recorder.of([this] { handle = start(); });
    AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));
  }
  void TearDown() override {
    recorder.of([this] { EXPECT_EQ(BrelFinalize(handle), kStatusOk); });
  }

  /// All that a task says whose answer comes, with `spoil` run when the waiting thread has looked it up.
  Transcript spoilt(std::function<void(BrelTasksSequencer&, std::uint32_t, Retrieved&)> spoil) {
    gAfterRetrieval = [this, spoil](BrelTasksSequencer& sequencer, std::uint32_t seqNum, Retrieved& retrieved) {
      sequencer.RetrieveSyncDataEventBySeqNum(seqNum, &mDataEvent);
      spoil(sequencer, seqNum, retrieved);
    };
    return recorder.of([this] {
      const Answer answer = InvokeVal(handle, {1, 2, 3});
      EXPECT_EQ(answer.status, kStatusFailed);
      EXPECT_TRUE(answer.written);
      EXPECT_FALSE(answer.hasPayload);
    });
  }

  /// The task up to the look-up, and the test's own look at the event.
  static Transcript lookedUp() {
    return Transcript()
        .printed("\nTUI = " + std::to_string(kDebugValTui) + "\n")
        .assigned(0)
        .info(kIssue, "assigned sequence number 0 \n")
        .sentAndAnswered(kIssue, 0)
        .waited("info", kIssue, "dataEvent was signaled. \n")
        .retrieved(0)
        .retrieved(0);
  }
  /// The line of the failure, where it names the event.
  Transcript failure(const std::string& logText, const std::string& consoleText) const {
    std::ostringstream event;
    event << mDataEvent;
    return Transcript()
        .logged("error", kIssue, "- GetRxMsgBuf - " + logText + "0, event handle " + event.str() + " \n")
        .printed("IssueCommandBase - GetRxMsgBuf - " + consoleText + "0, event handle " +
                 std::to_string(HandleNumber(mDataEvent)) + " \n");
  }

  Recorder recorder;
  std::uint32_t handle = kNoBrelHandle;

 private:
  platform::Handle mDataEvent = nullptr;
};

TEST_F(AnswerTest, CannotBeFound) {
  const Transcript said = spoilt([](auto&, auto, Retrieved& retrieved) {
    std::free(*retrieved.buffer);
    retrieved.status = SEQ_RETRIEVE_NOT_FOUND;
  });
  EXPECT_EQ(said, lookedUp() +=
                  failure("could not find data for sequence number ", "could not find data for sequence number "));
}

TEST_F(AnswerTest, HasNoData) {
  const Transcript said = spoilt([](auto&, auto, Retrieved& retrieved) {
    std::free(*retrieved.buffer);
    *retrieved.buffer = nullptr;
  });
  // The console has the word "for" twice.
  EXPECT_EQ(said,
            lookedUp() += failure("data was NULL for sequence number ", "data was NULL for for sequence number "));
}

TEST_F(AnswerTest, HasDataOfSizeZero) {
  const Transcript said = spoilt([](auto&, auto, Retrieved& retrieved) {
    std::free(*retrieved.buffer);  // nobody reads it
    *retrieved.size = 0;
  });
  EXPECT_EQ(said,
            lookedUp() += failure("data size was 0 for sequence number ", "data size was 0 for sequence number "));
}

TEST_F(AnswerTest, HasASequenceThatCannotBeFreed) {
  const Transcript said = spoilt([](BrelTasksSequencer& sequencer, std::uint32_t seqNum, Retrieved& retrieved) {
    std::free(*retrieved.buffer);
    EXPECT_EQ(sequencer.FreeSequence(seqNum), SEQ_FREE_OK);
  });
  EXPECT_EQ(said, lookedUp().freed(0) += failure("could not free sequence number ", "could not free sequence number "));
}

TEST_F(AnswerTest, IsTheAckOfAStreamThatIsGone) {
  const Transcript said = spoilt([](BrelTasksSequencer& sequencer, std::uint32_t seqNum, Retrieved& retrieved) {
    std::free(*retrieved.buffer);
    *retrieved.isStream = true;
    EXPECT_EQ(sequencer.FreeSequence(seqNum), SEQ_FREE_OK);
  });
  EXPECT_EQ(said,
            lookedUp()
                .freed(0)
                .printed("InsertDataBySeqNum - could not find sequence number 0 \n")
                .logged("error", kIssue, "- GetRxMsgBuf - could not insert ack related to sequence number 0 \n")
                .printed("IssueCommandBase - GetRxMsgBuf - could not insert ack related to sequence number 0 \n"));
}

}  // namespace
}  // namespace kel::test
