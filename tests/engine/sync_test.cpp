// SPDX-License-Identifier: MIT
// Synchronous tasks: sequences, waits, failures, and what each leaves behind.
#include <chrono>
#include <future>
#include <thread>

#include "adapter/Dorv.h"
#include "engine/IncomingData.h"
#include "engine/engine_test.h"

namespace kel::test {
namespace {

class SyncTest : public EngineTest {
 protected:
  /// The number of the sequence under which the last request went out.
  static std::uint32_t lastSeqNum() { return LastRequest().seqTUI >> 24; }

  /// Delivers an answer of the debug task to a sequence. Whether it was filed stands in the log.
  static void answer(std::uint32_t seqNum, const Values& values) {
    EXPECT_EQ(SluiceHubSim_DeliverRecord(0, kDebugValTui | seqNum << 24, 0, 0, values.data(), sizeof values, 1), 1u);
  }

  /// Whether a record for that number finds a sequence.
  bool isOpen(std::uint32_t seqNum) {
    auto record = Record(kDebugValTui | seqNum << 24, 0, 0, "");
    return BrelEngineCallback(0, record.data(), static_cast<std::uint32_t>(record.size())) == 1;
  }

  void waitForLog(const std::string& text) {
    while (LogText("Brel.logs").find(text) == std::string::npos) std::this_thread::yield();
  }
};

TEST_F(SyncTest, TheNumbersRotateThroughSixtyFour) {
  const std::uint32_t handle = start();
  for (std::uint32_t i = 0; i < 200; ++i) {
    ASSERT_EQ(InvokeVal(handle, {i, i, i}).payload, Bytes({i, i, i}));
    ASSERT_EQ(lastSeqNum(), i % 64);
  }
}

TEST_F(SyncTest, ATaskWithoutAResponseTakesNoNumber) {
  const std::uint32_t handle = start();
  EXPECT_EQ(Invoke(handle, kDebugVal, nullptr, 0, 0x77000000, 0).status, kStatusOk);
  EXPECT_EQ(LastRequest().seqTUI, 0x77000000u);
  EXPECT_EQ(InvokeVal(handle, {}).status, kStatusOk);
  EXPECT_EQ(lastSeqNum(), 0u);
}

TEST_F(SyncTest, WithoutAResponseTheOutputsAreNullWhateverTheFarSideAnswers) {
  const std::uint32_t handle = start();
  const Answer unanswered = Invoke(handle, kDebugVal, nullptr, 0, 0, 0);
  EXPECT_EQ(unanswered.status, kStatusOk);
  EXPECT_TRUE(unanswered.written);
  EXPECT_FALSE(unanswered.hasPayload);
  engineLog.fresh();
  answer(0, {1, 2, 3});
  EXPECT_EQ(engineLog.fresh(),
            EngineLog()
                .info("BrelEngineCallback", "callback - callback received \n")
                .info("BrelEngineCallback", "Got callback with ACK for sequence number 0 \n")
                .error("BrelEngineCallback", "could not retrieve sequence type info for sequence number 0 \n")
                .text());
}

TEST_F(SyncTest, AnUnknownNameWritesNoOutput) {
  const std::uint32_t handle = start();
  const Answer answer = Invoke(handle, "NO_SUCH_TASK", nullptr, 0);
  EXPECT_EQ(answer.status, 1u);
  EXPECT_FALSE(answer.written);
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(SyncTest, AnAnswerMayComeBeforeTheSendReturns) {
  folder.writeSettings("RxWaitTimeout=0\n");  // only what is there already is taken
  const std::uint32_t handle = start();
  AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));
  EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).payload, Bytes({1, 2, 3}));
}

TEST_F(SyncTest, AnEmptyAnswerIsANonNullBlockOfSizeZero) {
  const std::uint32_t handle = start();
  AddRule(RuleFor(0, SLUICEHUBSIM_DATA));
  const Answer answer = InvokeVal(handle, {1, 2, 3});
  EXPECT_EQ(answer.status, kStatusOk);
  EXPECT_TRUE(answer.hasPayload);
  EXPECT_EQ(answer.payload, "");
}

TEST_F(SyncTest, TypeAndErrorOfAnAnswerAreNotLookedAt) {
  const std::uint32_t handle = start();
  SluiceHubSimRule odd = RuleFor(0, SLUICEHUBSIM_TYPE | SLUICEHUBSIM_DATA);
  odd.type = 1;
  odd.errorCode = 13;
  odd.data = "any";
  odd.dataSize = 3;
  AddRule(odd);
  EXPECT_EQ(InvokeVal(handle, {}).payload, "any");
}

// ---------------------------------------------------------------------------------------------------------------------
// Time-outs
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(SyncTest, ATimeOutGivesOneAndKeepsTheNumberTaken) {
  folder.writeSettings("RxWaitTimeout=20\n");
  const std::uint32_t handle = start();
  DropRequests(kDebugValTui, 1);
  AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));  // no other answer is late
  const auto begin = std::chrono::steady_clock::now();
  const Answer late = InvokeVal(handle, {});
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(19));
  EXPECT_EQ(late.status, 1u);
  EXPECT_TRUE(late.written);
  EXPECT_FALSE(late.hasPayload);
  EXPECT_TRUE(isOpen(0));
  // The numbers go on behind it, and when they come round it is left out.
  for (std::uint32_t i = 0; i < 64; ++i) {
    ASSERT_EQ(Invoke(handle, kDebugRef, "x", 1).status, kStatusOk);
    ASSERT_EQ(lastSeqNum(), i < 63 ? i + 1 : 1);
  }
}

TEST_F(SyncTest, ALateAnswerIsFiledAndNobodyReadsIt) {
  folder.writeSettings("RxWaitTimeout=20\n");
  const std::uint32_t handle = start();
  DropRequests(kDebugValTui, 1);
  AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));  // no other answer is late
  EXPECT_EQ(InvokeVal(handle, {}).status, 1u);
  engineLog.fresh();
  answer(0, {7, 7, 7});
  EXPECT_EQ(engineLog.fresh(), EngineLog()
                                   .info("BrelEngineCallback", "callback - callback received \n")
                                   .info("BrelEngineCallback", "Got callback with ACK for sequence number 0 \n")
                                   .info("BrelEngineCallback", "callback - Sequence buffer copied & event set \n")
                                   .text());
  EXPECT_TRUE(isOpen(0));
  EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).payload, Bytes({1, 2, 3}));
  EXPECT_EQ(lastSeqNum(), 1u);
}

TEST_F(SyncTest, SixtyFourTimeOutsUseUpTheNumbers) {
  folder.writeSettings("RxWaitTimeout=0\n");
  const std::uint32_t handle = start();
  DropRequests(kDebugValTui);
  for (std::uint32_t i = 0; i < 64; ++i) {
    ASSERT_EQ(InvokeVal(handle, {}).status, 1u);
    ASSERT_EQ(lastSeqNum(), i);
  }
  EXPECT_EQ(Requests(), 64u);
  engineLog.fresh();
  EXPECT_EQ(InvokeVal(handle, {}).status, 1u);
  EXPECT_EQ(engineLog.fresh(), EngineLog().error("IssueCommandBase", "could not assign sequence number \n").text());
  EXPECT_EQ(Requests(), 64u);

  // A late answer frees nothing; tasks without a response still go out; another engine has numbers of its own.
  for (std::uint32_t i = 0; i < 64; ++i) answer(i, {});
  EXPECT_EQ(InvokeVal(handle, {}).status, 1u);
  EXPECT_EQ(Invoke(handle, kDebugVal, nullptr, 0, 0, 0).status, kStatusOk);
  AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));
  const std::uint32_t other = start();
  EXPECT_EQ(Invoke(other, kDebugRef, "x", 1).status, kStatusOk);
  EXPECT_EQ(Invoke(handle, kDebugRef, "x", 1).status, 1u);

  EXPECT_EQ(BrelFinalize(handle), kStatusOk);
  const std::uint32_t next = start();
  EXPECT_EQ(Invoke(next, kDebugRef, "x", 1).status, kStatusOk);
  EXPECT_EQ(lastSeqNum(), 0u);
}

TEST_F(SyncTest, AWaitOfZeroEndsAtOnce) {
  folder.writeSettings("RxWaitTimeout=0\n");
  const std::uint32_t handle = start();
  SluiceHubSimRule late = RuleFor(0);
  late.delayMs = kLong;
  AddRule(late);
  EXPECT_EQ(InvokeVal(handle, {}).status, 1u);
}

TEST_F(SyncTest, AWaitEndsWhenTheEngineStopsItsThreads) {
  folder.writeSettings("RxWaitTimeout=30000\n");
  const std::uint32_t handle = start();
  // A stream without an end keeps a thread that the engine has to stop.
  SluiceHubSimRule endless = RuleFor(0x38243, SLUICEHUBSIM_STREAM | SLUICEHUBSIM_NO_END);
  AddRule(endless);
  const KEL_StreamCallback ignore = [](auto...) {};
  EXPECT_EQ(Invoke(handle, "TASK_ID_APPLICATION_DEBUG_STREAMER", nullptr, 0, 0, 1, ignore).status, kStatusOk);

  DropRequests(kDebugValTui);
  auto waiting = std::async(std::launch::async, [&] { return InvokeVal(handle, {}); });
  ASSERT_EQ(SluiceHubSim_WaitForRequests(2, kLong), 1u);
  waitForLog("IssueCommandBase - assigned sequence number 1 ");
  waitForLog("Send END");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(BrelFinalize(handle), kStatusOk);
  const Answer stopped = waiting.get();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(kLong));
  EXPECT_EQ(stopped.status, 1u);
  EXPECT_FALSE(stopped.hasPayload);
  EXPECT_THAT(LogText("Brel.logs"), ::testing::HasSubstr("- WaitForRx - generalStopEvent was signaled. \n"));
}

// ---------------------------------------------------------------------------------------------------------------------
// Sends that fail
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(SyncTest, ASendThatFailsFreesItsSequence) {
  const std::uint32_t handle = start();
  SluiceHubSimRule refuse = RuleFor(0);
  refuse.sendStatus = 5;
  refuse.times = 1;
  AddRule(refuse);
  refuse.sendStatus = 0;
  refuse.replyID = 5;
  AddRule(refuse);
  refuse.replyID = 0;
  refuse.L4status = 5;
  AddRule(refuse);
  for (std::uint32_t i = 0; i < 3; ++i) {
    const Answer answer = InvokeVal(handle, {});
    EXPECT_EQ(answer.status, 14u);
    EXPECT_TRUE(answer.written);
    EXPECT_FALSE(answer.hasPayload);
    EXPECT_FALSE(isOpen(i));
  }
  EXPECT_EQ(InvokeVal(handle, {}).status, kStatusOk);
  EXPECT_EQ(lastSeqNum(), 3u);
}

TEST_F(SyncTest, ASendWithoutAConnectionGivesSeventeen) {
  const std::uint32_t handle = start();
  EXPECT_EQ(Dorv_Disconnect(BrelGetDorvHandle(handle)), DORV_OK);
  EXPECT_EQ(InvokeVal(handle, {}).status, 17u);
  EXPECT_EQ(Invoke(handle, kDebugVal, nullptr, 0, 0, 0).status, 17u);
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(SyncTest, ASendOverALostLinkGivesFourteen) {
  const std::uint32_t handle = start();
  SluiceHubSim_LoseLink(0, 1, 1);
  EXPECT_EQ(InvokeVal(handle, {}).status, 14u);
}

TEST_F(SyncTest, ASendWithoutAnAdapterRowFailsWithoutALineOfItsOwn) {
  const std::uint32_t handle = start();
  SetDorvHandle(handle, kNoDorvHandle);
  engineLog.fresh();
  EXPECT_EQ(InvokeVal(handle, {}).status, 14u);
  EXPECT_EQ(engineLog.fresh(), EngineLog().info("IssueCommandBase", "assigned sequence number 0 \n").text());
  EXPECT_EQ(Requests(), 0u);
  SetDorvHandle(handle, 0);
}

TEST_F(SyncTest, ASendThatFailsWithoutASequenceTriesToFreeNumberZero) {
  folder.writeSettings("LogToConsole=1\n");
  const std::uint32_t handle = start();
  SluiceHubSimRule refuse = RuleFor(0);
  refuse.L4status = 1;
  AddRule(refuse);
  engineLog.fresh();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Invoke(handle, kDebugVal, nullptr, 0, 0, 0).status, 14u);
  EXPECT_THAT(::testing::internal::GetCapturedStdout(),
              ::testing::EndsWith("IssueCommandBase - Dorv_Send FAILED - command not sent \n"
                                  "FreeSequenceElementOnly - could not free sequence number 0 \n"));
  EXPECT_EQ(engineLog.fresh(), EngineLog()
                                   .info("SendToDorv", "Send START \n")
                                   .info("SendToDorv", "Send END \n")
                                   .error("IssueCommandBase", "Dorv_Send FAILED - command not sent \n")
                                   .error("FreeSequenceElementOnly", "(0) - could not free sequence number. \n")
                                   .text());
}

TEST_F(SyncTest, ASendThatFailsWithoutASequenceFreesNumberZeroOfWhoeverHasIt) {
  folder.writeSettings("RxWaitTimeout=0\n");
  const std::uint32_t handle = start();
  DropRequests(kDebugValTui, 2);
  EXPECT_EQ(InvokeVal(handle, {}).status, 1u);
  EXPECT_EQ(InvokeVal(handle, {}).status, 1u);
  ASSERT_TRUE(isOpen(0));
  SluiceHubSimRule refuse = RuleFor(kDebugRefTui);
  refuse.L4status = 1;
  AddRule(refuse);
  EXPECT_EQ(Invoke(handle, kDebugRef, nullptr, 0, 0, 0).status, 14u);
  EXPECT_FALSE(isOpen(0));
  EXPECT_TRUE(isOpen(1));
}

// ---------------------------------------------------------------------------------------------------------------------
// IssueCommand: the caller builds the record
// ---------------------------------------------------------------------------------------------------------------------

/// What a caller has of its call.
struct Issued {
  task* response;
  std::uint32_t size = 4711;
  task unset{};

  Issued() : response(&unset) {}
};

TEST_F(SyncTest, ARecordIsAnsweredWithAWholeRecord) {
  const std::uint32_t handle = start();
  auto record = Record(kDebugRefTui, 1, 0x12345678, "payload");
  Issued issued;
  EXPECT_EQ(
      BrelIssueCommand(handle, 1, reinterpret_cast<task*>(record.data()), &issued.response, &issued.size, nullptr),
      kStatusOk);
  ASSERT_EQ(issued.size, 16u + 7u);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(issued.response);
  // The answer's word has the number, its sequence word what the device made of the request's.
  EXPECT_EQ(std::vector<std::uint8_t>(bytes, bytes + issued.size),
            Record(kDebugRefTui, 0, kDebugRefTui & 0xFFFF00, "payload"));
  // The record is the caller's, with the sequence word that it was sent with, the socket apart.
  EXPECT_EQ(record, Record(kDebugRefTui, 1, kDebugRefTui, "payload"));
  std::free(issued.response);
}

TEST_F(SyncTest, ARecordThatWantsNoResponseGetsNone) {
  const std::uint32_t handle = start();
  auto record = Record(kDebugRefTui, 0, 0x12345678, "");
  Issued issued;
  EXPECT_EQ(
      BrelIssueCommand(handle, 1, reinterpret_cast<task*>(record.data()), &issued.response, &issued.size, nullptr),
      kStatusOk);
  EXPECT_EQ(issued.response, nullptr);
  EXPECT_EQ(issued.size, 0u);
  EXPECT_EQ(LastRequest().seqTUI, 0x12345678u);
}

TEST_F(SyncTest, ARecordThatTimesOutLeavesTheResponseAlone) {
  folder.writeSettings("RxWaitTimeout=0\n");
  const std::uint32_t handle = start();
  DropRequests(kDebugRefTui);
  auto record = Record(kDebugRefTui, 1, 0, "");
  Issued issued;
  EXPECT_EQ(
      BrelIssueCommand(handle, 1, reinterpret_cast<task*>(record.data()), &issued.response, &issued.size, nullptr), 1u);
  EXPECT_EQ(issued.response, &issued.unset);
  EXPECT_EQ(issued.size, 0u);
}

TEST_F(SyncTest, ARecordThatIsNotSentLeavesBothOutputsAlone) {
  const std::uint32_t handle = start();
  SluiceHubSimRule refuse = RuleFor(0);
  refuse.sendStatus = 1;
  AddRule(refuse);
  auto record = Record(kDebugRefTui, 1, 0, "");
  Issued issued;
  EXPECT_EQ(
      BrelIssueCommand(handle, 1, reinterpret_cast<task*>(record.data()), &issued.response, &issued.size, nullptr),
      14u);
  EXPECT_EQ(issued.response, &issued.unset);
  EXPECT_EQ(issued.size, 4711u);
}

// ---------------------------------------------------------------------------------------------------------------------
// Streams that a waiting client opens
// ---------------------------------------------------------------------------------------------------------------------

struct StreamMessage {
  std::uint32_t sequenceByte;
  std::uint32_t streamEnd;
  std::string payload;

  bool operator==(const StreamMessage&) const = default;
};

Noted<StreamMessage> gMessages;

void NoteMessage(std::uint32_t, std::uint32_t, std::uint32_t sequenceByte, std::uint32_t streamEnd, std::uint32_t,
                 void* data, std::uint32_t size, std::uint32_t) {
  gMessages.add({sequenceByte, streamEnd, std::string(static_cast<const char*>(data), size)});
}

constexpr const char* kStreamer = "TASK_ID_APPLICATION_DEBUG_STREAMER";

TEST_F(SyncTest, TheAckOfAStreamWakesTheWaitingClientAndTheRestGoesToTheCallback) {
  const std::uint32_t handle = start();
  const Values countAndInterval = {2, 0, 0};
  const Answer ack = Invoke(handle, kStreamer, countAndInterval.data(), sizeof countAndInterval, 0, 1, &NoteMessage);
  EXPECT_EQ(ack.status, kStatusOk);
  EXPECT_EQ(ack.payload.size(), 12u);
  EXPECT_THAT(gMessages.waitFor(3),
              ::testing::ElementsAre(StreamMessage{64, 0, Bytes({0, 2, 0})}, StreamMessage{64, 0, Bytes({1, 2, 0})},
                                     StreamMessage{128, 1, Bytes({2, 2, 0})}));
}

TEST_F(SyncTest, AStreamOutlivesItsAckAndEndsWithItsEnd) {
  const std::uint32_t handle = start();
  AddRule(RuleFor(0x38243, SLUICEHUBSIM_STREAM | SLUICEHUBSIM_NO_END));
  EXPECT_EQ(Invoke(handle, kStreamer, nullptr, 0, 0, 1, &NoteMessage).status, kStatusOk);
  EXPECT_EQ(SluiceHubSim_DeliverRecord(0, 0x38243 | 64 << 24, 0, 0, "more", 4, 1), 1u);
  EXPECT_EQ(SluiceHubSim_DeliverRecord(0, 0x38243 | 128 << 24, 0, 0, "last", 4, 1), 1u);
  EXPECT_THAT(gMessages.waitFor(2),
              ::testing::ElementsAre(StreamMessage{64, 0, "more"}, StreamMessage{128, 1, "last"}));
  waitForLog("DisposeAsyncThread - (0) - stopped async listener. ");
}

TEST_F(SyncTest, AStreamThatWantsNoResponseReturnsAtOnceAndFlows) {
  const std::uint32_t handle = start();
  SluiceHubSimRule early = RuleFor(0x38243, SLUICEHUBSIM_STREAM);
  early.streamCount = 1;
  AddRule(early);
  const Answer none = Invoke(handle, kStreamer, nullptr, 0, 0xFF, 0, &NoteMessage);
  EXPECT_EQ(none.status, kStatusOk);
  EXPECT_TRUE(none.written);
  EXPECT_FALSE(none.hasPayload);
  EXPECT_EQ(LastRequest().responseExpected, 0u);
  EXPECT_EQ(LastRequest().seqTUI, 0x38243u);  // number 0, and no socket in the low byte
  const auto messages = gMessages.waitFor(2);
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].sequenceByte, 64u);
  EXPECT_EQ(messages[1].sequenceByte, 128u);
}

TEST_F(SyncTest, AStreamThatIsNotSentIsTakenBack) {
  const std::uint32_t handle = start();
  SluiceHubSimRule refuse = RuleFor(0);
  refuse.L4status = 1;
  refuse.times = 1;
  AddRule(refuse);
  EXPECT_EQ(Invoke(handle, kStreamer, nullptr, 0, 0, 1, &NoteMessage).status, 14u);
  // Its thread frees the sequence.
  while (isOpen(0)) std::this_thread::yield();
  EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).payload, Bytes({1, 2, 3}));
  EXPECT_EQ(lastSeqNum(), 1u);
}

}  // namespace
}  // namespace kel::test
