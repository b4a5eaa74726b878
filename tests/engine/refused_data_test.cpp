// SPDX-License-Identifier: MIT
// Data that comes in and cannot be filed, or be announced to whoever waits for it.
#include <sstream>

#include "async/engine_inside.h"
#include "engine/IncomingData.h"
#include "engine/engine_test.h"
#include "platform/platform.h"
#include "support/platform_calls.h"
#include "support/transcript.h"

namespace kel::test {
namespace {

constexpr std::uint32_t kBroadcastWord = 5u << 12;
constexpr const char* kCallback = "BrelEngineCallback";
constexpr const char* kAlertsCallback = "BrelEngineAlertsCallback";

/// What a listener prints that cannot set its data event.
constexpr const char* kNotTaken =
    "recvData - inserting buffer to queue \nrecvData - set data event \nproblem setting mDataEvent\n";

/// A handle as the log shows it, and as the console does.
std::string Logged(platform::Handle handle) {
  std::ostringstream text;
  text << handle;
  return text.str();
}
std::string Printed(platform::Handle handle) { return std::to_string(HandleNumber(handle)); }

class RefusedDataTest : public EngineTest {
 protected:
  RefusedDataTest() { folder.writeSettings("LogToConsole=1\n"); }
  void SetUp() override {
    recorder.of(
        [this] { handle = start([](char*, std::uint32_t, void*, std::uint32_t, std::uint32_t) {}, [](Status) {}); });
  }
  void TearDown() override {
    recorder.of([this] { EXPECT_EQ(BrelFinalize(handle), kStatusOk); });
  }

  /// Opens sequence 0 and hides what that says.
  sequence_snapshot open(bool isAsync) {
    sequence_snapshot opened;
    std::uint32_t seqNum = 4711;
    recorder.of([&] {
      EXPECT_EQ(EngineInside(*GetBrelInst(handle))
                    .sequencer()
                    .AssignSequence(BREL_INVOKE_TASK, 1, &seqNum, kDebugValTui, &opened.syncDataEvent,
                                    &opened.aSyncDataEvent, &opened.stopEvent, nullptr, nullptr, &opened.streamSeqNum,
                                    &opened.streamEndSeqNum, isAsync, false),
                SEQ_ASSIGN_OK);
    });
    EXPECT_EQ(seqNum, 0u);
    return opened;
  }
  /// What is said of a record that is refused.
  Transcript refused(std::uint32_t word, PlatformCall call, std::uint32_t after = 0) {
    return recorder.of([&] {
      const auto record = Record(word, 0, 0, "");
      const FailingCall failing(call, after);
      EXPECT_EQ(BrelEngineCallback(BrelGetDorvHandle(handle), record.data(), static_cast<std::uint32_t>(record.size())),
                0u);
    });
  }
  static Transcript received() { return Transcript().info(kCallback, "callback - callback received \n"); }
  static Transcript answerReceived() {
    return received().info(kCallback, "Got callback with ACK for sequence number 0 \n").retrieved(0);
  }

  Recorder recorder;
  std::uint32_t handle = kNoBrelHandle;
};

TEST_F(RefusedDataTest, ABroadcastThatItsListenerDoesNotTake) {
  EXPECT_EQ(refused(kBroadcastWord, PlatformCall::kSetEvent),
            received().printed(kNotTaken).error(kCallback, "could not insert data to broadcastListener \n"));
}

TEST_F(RefusedDataTest, AnAlertThatItsListenerDoesNotTake) {
  EXPECT_EQ(recorder.of([&] {
    const FailingCall failing(PlatformCall::kSetEvent);
    EXPECT_EQ(BrelEngineAlertsCallback(BrelGetDorvHandle(handle), 3), 0u);
  }),
            Transcript()
                .logged("error", kAlertsCallback, "callback - errorCode = 3 \n")
                .printed("Alerts callback - errorCode = 3 \n")
                .printed(kNotTaken)
                .error(kAlertsCallback, "could not insert data to alertsListener \n"));
}

// The look-up of the sequence gets the table's mutex, and the filing does not.
TEST_F(RefusedDataTest, AnAnswerThatCannotBeFiledForTheWaitingClient) {
  open(false);
  EXPECT_EQ(refused(kDebugValTui, PlatformCall::kWaitForOne, 1),
            answerReceived().error(kCallback, "could not insert Sync data to sequence number 0 \n"));
}

TEST_F(RefusedDataTest, AnAnswerThatCannotBeQueuedForItsListener) {
  open(true);
  EXPECT_EQ(refused(kDebugValTui, PlatformCall::kWaitForOne, 1),
            answerReceived().error(kCallback, "could not insert Async data to sequence number 0 \n"));
}

TEST_F(RefusedDataTest, AnAnswerThatCannotBeAnnouncedToTheWaitingClient) {
  const platform::Handle event = open(false).syncDataEvent;
  EXPECT_EQ(refused(kDebugValTui, PlatformCall::kSetEvent),
            answerReceived()
                .printed("InsertDataBySeqNum - inserted data for sequence number 0 \n")
                .logged("error", kCallback,
                        "callback - problem setting syncDataEvent " + Logged(event) + " for sequence number 0 \n")
                .printed("callback - problem setting syncDataEvent " + Printed(event) + " for sequence number 0 \n"));
}

TEST_F(RefusedDataTest, AnAnswerThatCannotBeAnnouncedToItsListener) {
  const platform::Handle event = open(true).aSyncDataEvent;
  EXPECT_EQ(refused(kDebugValTui, PlatformCall::kSetEvent),
            answerReceived()
                .printed("InsertAsyncDataBySeqNum - inserted async data for sequence number 0 \n")
                .logged("error", kCallback,
                        "callback - problem setting aSyncDataEvent " + Logged(event) + " for sequence number 0 \n")
                .printed("callback - problem setting aSyncDataEvent " + Printed(event) + " for sequence number 0 \n"));
}

}  // namespace
}  // namespace kel::test
