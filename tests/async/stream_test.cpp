// SPDX-License-Identifier: MIT
// Streams: each state, what moves it on, and what the client gets.
#include "async/async_test.h"

namespace kel::test {
namespace {

using ::testing::ElementsAre;

constexpr const char* kStreamer = "TASK_ID_APPLICATION_DEBUG_STREAMER";
constexpr std::uint32_t kStreamerTui = 0x38243;

class StreamTest : public AsyncTest {
 protected:
  StreamTest() {
    for (const char* level : {"Info", "Warn", "Err"}) registry.set("Software\\Brel\\ALogger", level, 0);
    startEngine();
  }

  std::uint32_t open(KEL_AsyncCallback callback = OnTask) {
    const Asked asked = InvokeAsync(handle, kStreamer, callback, OnStream);
    EXPECT_EQ(asked.status, kStatusOk);
    return asked.seqNum;
  }
  void deliver(std::uint32_t sequenceByte, const std::string& payload) {
    EXPECT_TRUE(Deliver(handle, kStreamerTui, sequenceByte, payload));
  }
  void ack(std::uint32_t seqNum) { deliver(seqNum, "ack"); }
  void message(std::uint32_t seqNum, const std::string& payload) { deliver(seqNum | kStreamClass, payload); }
  /// Whether it was taken is no matter: a thread that is still at earlier ones may handle it, and be gone, before it is
  /// announced.
  void end(std::uint32_t seqNum, const std::string& payload = "end") {
    Deliver(handle, kStreamerTui, seqNum | kStreamEndClass, payload);
  }
  bool ackSeen(std::uint32_t seqNum) {
    bool seen = false;
    EXPECT_EQ(inside().sequencer().RetrieveAckBySeqNum(seqNum, &seen), SEQ_RETRIEVE_OK);
    return seen;
  }
  /// Waits for so many calls, and for what the threads still do behind the last of them.
  std::vector<std::string> data(std::size_t count) {
    std::vector<std::string> all;
    for (const Call& call : gCalls.waitFor(count)) all.push_back(call.data);
    const platform::InSection done(inside().initLock());
    return all;
  }
};

TEST_F(StreamTest, AStreamGoesFromItsAckOverItsMessagesToItsEnd) {
  for (int i = 0; i < 5; ++i) open();
  const std::uint32_t seqNum = open();
  ASSERT_EQ(seqNum, 5u);
  ack(seqNum);
  message(seqNum, "one");
  message(seqNum, "");
  EXPECT_TRUE(isOpen(seqNum));
  end(seqNum, "last");
  EXPECT_THAT(
      gCalls.waitFor(4),
      ElementsAre(Call{Of::kTask, 0, 1, 5, 0, 0, "ack", 3, 0}, Call{Of::kStream, 0, 1, 69, 0, 0, "one", 3, 0},
                  Call{Of::kStream, 0, 1, 69, 0, 0, "", 0, 0}, Call{Of::kStream, 0, 1, 133, 1, 0, "last", 4, 0}));
  waitUntilFreed(seqNum);
  while (inside().threads() != 5) std::this_thread::yield();
}

TEST_F(StreamTest, TheCallbacksOfACommandGetWholeRecords) {
  const Asked asked = IssueAsync(handle, kDebugRefTui, OnCommand, OnCommandStream, 1, 9);
  ack(asked.seqNum);
  EXPECT_TRUE(Deliver(handle, kDebugRefTui, kStreamClass, "one", 7));
  Deliver(handle, kDebugRefTui, kStreamEndClass, "last", 8);
  const auto text = [](const std::vector<std::uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); };
  EXPECT_THAT(gCalls.waitFor(3),
              ElementsAre(Call{Of::kCommand, 0, 9, 0, 0, 0, text(Record(kStreamerTui, 0, 0, "ack")), 3, 0},
                          Call{Of::kCommandStream, 0, 9, 64, 0, 0,
                               text(Record(kDebugRefTui | kStreamClass << 24, 0, 7, "one")), 3, 0},
                          Call{Of::kCommandStream, 0, 9, 128, 1, 0,
                               text(Record(kDebugRefTui | kStreamEndClass << 24, 0, 8, "last")), 4, 0}));
  waitForThreads();
  EXPECT_EQ(inside().threads(), 0);
}

TEST_F(StreamTest, MessagesMayComeAheadOfTheAck) {
  const std::uint32_t seqNum = open();
  message(seqNum, "early");
  EXPECT_THAT(data(1), ElementsAre("early"));
  EXPECT_FALSE(ackSeen(seqNum));
  ack(seqNum);
  EXPECT_THAT(data(2), ElementsAre("early", "ack"));
  EXPECT_TRUE(ackSeen(seqNum));
  end(seqNum);
  waitForThreads();
  EXPECT_FALSE(isOpen(seqNum));
}

TEST_F(StreamTest, AnAckBehindTheEndDoesNotEndTheStream) {
  const std::uint32_t seqNum = open();
  end(seqNum);
  EXPECT_THAT(data(1), ElementsAre("end"));
  EXPECT_TRUE(isOpen(seqNum));
  ack(seqNum);
  EXPECT_THAT(data(2), ElementsAre("end", "ack"));
  EXPECT_TRUE(ackSeen(seqNum));
  EXPECT_TRUE(isOpen(seqNum));
  EXPECT_EQ(inside().threads(), 1);
  // Nothing but the general stop ends it now, and that calls nobody.
  engine.reset();
  EXPECT_EQ(BrelFinalize(handle), kStatusOk);
  EXPECT_EQ(gCalls.waitFor(0).size(), 2u);
}

TEST_F(StreamTest, ASecondEndFindsTheAckSeen) {
  const std::uint32_t seqNum = open();
  end(seqNum, "first");
  message(seqNum, "more");
  ack(seqNum);
  end(seqNum, "second");
  waitForThreads();
  EXPECT_THAT(data(4), ElementsAre("first", "more", "ack", "second"));
  EXPECT_FALSE(isOpen(seqNum));
}

TEST_F(StreamTest, EachAckIsHandedOn) {
  const std::uint32_t seqNum = open();
  ack(seqNum);
  ack(seqNum);
  EXPECT_THAT(data(2), ElementsAre("ack", "ack"));
  EXPECT_TRUE(isOpen(seqNum));
}

TEST_F(StreamTest, WithoutACallbackForItTheAckIsSeenAllTheSame) {
  const std::uint32_t seqNum = open(nullptr);
  ack(seqNum);
  end(seqNum);
  waitForThreads();
  EXPECT_THAT(data(1), ElementsAre("end"));
  EXPECT_FALSE(isOpen(seqNum));
}

TEST_F(StreamTest, WithoutAStreamCallbackTheMessagesAreDroppedAndTheEndEndsIt) {
  const std::uint32_t seqNum = open();
  inside().element(seqNum).streamCallbackFunc = nullptr;
  ack(seqNum);
  message(seqNum, "one");
  end(seqNum);
  waitForThreads();
  EXPECT_THAT(data(1), ElementsAre("ack"));
  EXPECT_FALSE(isOpen(seqNum));
}

TEST_F(StreamTest, AStreamOfAFixedTaskCallsNobodyAndEnds) {
  const std::uint32_t seqNum = open();
  inside().element(seqNum).apiType = BREL_FIXED_TASK;
  ack(seqNum);
  message(seqNum, "one");
  end(seqNum);
  waitForThreads();
  EXPECT_EQ(gCalls.waitFor(0).size(), 0u);
  EXPECT_FALSE(isOpen(seqNum));
}

// Such an error comes of no thread of the library, and reads as an acknowledgement.
TEST_F(StreamTest, AnErrorCountsAsTheAck) {
  const std::uint32_t seqNum = open();
  EXPECT_EQ(ProcessSequenceData(handle, seqNum, 2, nullptr, 0), 1u);
  const auto calls = gCalls.waitFor(1);
  EXPECT_EQ(calls[0].of, Of::kTask);
  EXPECT_EQ(calls[0].errorCode, 2u);
  EXPECT_TRUE(ackSeen(seqNum));
  end(seqNum);
  waitForThreads();
  EXPECT_FALSE(isOpen(seqNum));
}

TEST_F(StreamTest, AStreamHasNoTimeOut) {
  engine.reset();
  BrelFinalize(handle);
  folder.writeSettings("RxWaitTimeout=1\n");
  startEngine();
  const std::uint32_t seqNum = open();
  ack(seqNum);
  EXPECT_THAT(data(1), ElementsAre("ack"));
  platform::sleepFor(60);  // were there one, it would have come by now
  message(seqNum, "late");
  EXPECT_THAT(data(2), ElementsAre("ack", "late"));
  EXPECT_TRUE(isOpen(seqNum));
}

TEST_F(StreamTest, AFinishedStreamsNumberIsUsedAgain) {
  for (std::uint32_t i = 0; i < 130; ++i) {
    const std::uint32_t seqNum = open();
    ASSERT_EQ(seqNum, i % 64);
    ack(seqNum);
    end(seqNum);
    waitUntilFreed(seqNum);
  }
}

TEST_F(StreamTest, StreamsOfOneEngineDoNotMix) {
  std::vector<std::uint32_t> open64;
  for (std::uint32_t i = 0; i < kSequenceNumbers; ++i) {
    open64.push_back(InvokeAsync(handle, kStreamer, OnTask, OnStream, 1, 1000 + i).seqNum);
  }
  for (const std::uint32_t seqNum : open64) ack(seqNum);
  for (int i = 0; i < 3; ++i) {
    for (const std::uint32_t seqNum : open64) message(seqNum, std::to_string(seqNum));
  }
  for (const std::uint32_t seqNum : open64) end(seqNum, std::to_string(seqNum));
  for (const Call& call : gCalls.waitFor(64 * 5)) {
    EXPECT_EQ(call.commandID, 1000 + GetCoreSeqNum(call.sequenceByte));
    if (call.of == Of::kStream) {
      EXPECT_EQ(call.data, std::to_string(GetCoreSeqNum(call.sequenceByte)));
    }
  }
  waitForThreads();
  EXPECT_EQ(inside().threads(), 0);
}

// ---------------------------------------------------------------------------------------------------------------------
// A stream that a waiting client opens
// ---------------------------------------------------------------------------------------------------------------------

class WaitingStreamTest : public StreamTest {
 protected:
  /// The device acknowledges, and leaves the rest to the test.
  std::uint32_t openAndWait() {
    SluiceHubSim_ClearRules();
    AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));
    const Answer answer = Invoke(handle, kDebugRef, "ask", 3, 0, 1, OnStream);
    EXPECT_EQ(answer.status, kStatusOk);
    EXPECT_EQ(answer.payload, "ask");
    return LastRequest().seqTUI >> 24;
  }
};

TEST_F(WaitingStreamTest, TheWaitForTheAckCountsAsHavingSeenIt) {
  const std::uint32_t seqNum = openAndWait();
  EXPECT_TRUE(ackSeen(seqNum));
  message(seqNum, "one");
  end(seqNum);
  waitForThreads();
  EXPECT_THAT(data(2), ElementsAre("one", "end"));
  EXPECT_FALSE(isOpen(seqNum));
}

TEST_F(WaitingStreamTest, ALaterAckGoesToNobody) {
  const std::uint32_t seqNum = openAndWait();
  ack(seqNum);
  message(seqNum, "one");
  EXPECT_THAT(data(1), ElementsAre("one"));
}

// The thread that waits for the acknowledgement notes it, and here nobody does.
TEST_F(WaitingStreamTest, WithoutAWaitTheStreamDoesNotEndByItsEnd) {
  SluiceHubSim_ClearRules();
  AddRule(RuleFor(0, SLUICEHUBSIM_DROP));
  EXPECT_EQ(Invoke(handle, kDebugRef, "ask", 3, 0, 0, OnStream).status, kStatusOk);
  ack(0);
  message(0, "one");
  end(0);
  EXPECT_THAT(data(2), ElementsAre("one", "end"));
  EXPECT_FALSE(ackSeen(0));
  EXPECT_TRUE(isOpen(0));
}

TEST_F(WaitingStreamTest, AnAckThatDoesNotComeInTimeLeavesTheStreamOpen) {
  engine.reset();
  BrelFinalize(handle);
  folder.writeSettings("RxWaitTimeout=0\n");
  startEngine();
  EXPECT_EQ(Invoke(handle, kDebugRef, "ask", 3, 0, 1, OnStream).status, kStatusFailed);
  EXPECT_TRUE(isOpen(0));
  message(0, "one");
  EXPECT_THAT(data(1), ElementsAre("one"));
  EXPECT_EQ(inside().threads(), 1);
}

}  // namespace
}  // namespace kel::test
