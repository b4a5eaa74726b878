// SPDX-License-Identifier: MIT
// Answers that cannot be handled: the lines of each, and the lock that stays with the thread that met it.
#include <future>
#include <thread>

#include "async/async_test.h"
#include "async/said.h"
#include "support/left_thread.h"

namespace kel::test {
namespace {

using ::testing::IsEmpty;

/// How long a thing that must not come is waited for.
constexpr auto kWhile = std::chrono::milliseconds(150);

std::atomic<std::uint32_t> gBroadcasts{0};
std::atomic<std::uint32_t> gAlerts{0};

void OnBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
  ++gBroadcasts;
}
void OnAlert(Status) { ++gAlerts; }

class KeptLockTest : public AsyncTest {
 protected:
  KeptLockTest() { folder.writeSettings("LogToConsole=1\n"); }
  void SetUp() override {
    EngineSays([this] {
      startEngine(OnBroadcast, OnAlert);
      plain = InvokeAsync(handle, kDebugRef, OnTask).seqNum;
      stream = InvokeAsync(handle, kDebugRef, OnTask, OnStream).seqNum;
      other = InvokeAsync(handle, kDebugRef, OnTask).seqNum;
    });
    leavesEngines = true;
    ::testing::internal::CaptureStdout();
  }
  void TearDown() override { ::testing::internal::GetCapturedStdout(); }

  /// Has a thread handle a record of that sequence byte and end; `data` false: a record that is not there.
  Transcript handledInVain(std::uint32_t sequenceByte, bool data = true) {
    ::testing::internal::GetCapturedStdout();
    Transcript said = EngineSays([&] {
      std::thread([&] {
        auto record = Record(kDebugRefTui | sequenceByte << 24, 0, 0, "answer");
        EXPECT_FALSE(engine->HandleSequenceResponse(sequenceByte, 0, data ? record.data() : nullptr,
                                                    static_cast<std::uint32_t>(record.size())));
      }).join();
    });
    ::testing::internal::CaptureStdout();
    return said;
  }

  /// Brings a broadcast, an alert and an answer of another task, and has the engine taken down: none comes to its end.
  void expectNothingComesThrough() {
    const std::size_t calls = gCalls.waitFor(0).size();
    SluiceHubSim_Broadcast(0, kDebugValTui, 1, "lost", 4, 1);
    BrelEngineAlertsCallback(BrelGetDorvHandle(handle), 3);
    EXPECT_TRUE(Deliver(handle, kDebugRefTui, other, "answer"));
    static std::promise<void> finalized;
    LeaveToItself([kept = handle] {
      BrelFinalize(kept);
      finalized.set_value();
    });
    EXPECT_EQ(finalized.get_future().wait_for(kWhile), std::future_status::timeout);
    EXPECT_EQ(gBroadcasts, 0u);
    EXPECT_EQ(gAlerts, 0u);
    EXPECT_EQ(gCalls.waitFor(0).size(), calls);
  }

  std::uint32_t plain = 0;
  std::uint32_t stream = 0;
  std::uint32_t other = 0;
};

Transcript NotHandled(std::uint32_t seqNum, const std::string& text, const std::string& consoleText) {
  return Handling(seqNum, text + ". \n", consoleText, "error");
}

// ---------------------------------------------------------------------------------------------------------------------
// Each reason. The thread that met it has ended when the others are turned away.
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(KeptLockTest, WithNothingAmissEverythingComesThrough) {
  SluiceHubSim_Broadcast(0, kDebugValTui, 1, "taken", 5, 1);
  BrelEngineAlertsCallback(BrelGetDorvHandle(handle), 3);
  EXPECT_TRUE(Deliver(handle, kDebugRefTui, other, "answer"));
  gCalls.waitFor(1);
  while (gBroadcasts == 0 || gAlerts == 0) std::this_thread::yield();
  engine.reset();
  EXPECT_EQ(BrelFinalize(handle), kStatusOk);
}

TEST_F(KeptLockTest, AnAnswerForANumberThatWasFreed) {
  EXPECT_EQ(handledInVain(40), GettingCallbacks(40) + NotHandled(40, "could not retrieve data",
                                                                 "could not retrieve data related to sequence number"));
  expectNothingComesThrough();
}

TEST_F(KeptLockTest, AnAnswerWithoutData) {
  EXPECT_EQ(handledInVain(plain, false), GettingCallbacks(plain) + Retrieved(plain) +
                                             NotHandled(plain, "NULL buffer", "NULL buffer for sequence number"));
  expectNothingComesThrough();
}

TEST_F(KeptLockTest, AStreamMessageForATaskThatIsNoStream) {
  EXPECT_EQ(
      handledInVain(plain | kStreamClass),
      Begun(plain) + HandlingStream(plain, false) +
          Said("error", "HandleSequenceResponse", plain,
               "got stream seqNumType for sequence number which is not a stream. \n",
               "got stream seqNumType for sequence number " + std::to_string(plain) + " which is not a stream. \n"));
  EXPECT_TRUE(isOpen(plain));
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
  expectNothingComesThrough();
}

TEST_F(KeptLockTest, AStreamEndForATaskThatIsNoStream) {
  EXPECT_EQ(
      handledInVain(plain | kStreamEndClass),
      Begun(plain) + HandlingStream(plain, true) +
          Said("error", "HandleSequenceResponse", plain,
               "got stream seqNumType for sequence number which is not a stream. \n",
               "got stream seqNumType for sequence number " + std::to_string(plain) + " which is not a stream. \n"));
  EXPECT_TRUE(isOpen(plain));
  expectNothingComesThrough();
}

Transcript OfNoKnownClass(std::uint32_t seqNum) {
  return Begun(seqNum) + Said("error", "HandleSequenceResponse", seqNum, "undefined seqNumType (4) arrived. \n",
                              "could undefined seqNumType (4) arrived for seqNum  \n");
}

TEST_F(KeptLockTest, AnAnswerOfNoKnownClassForATask) {
  EXPECT_EQ(handledInVain(plain | kUnknownClass), OfNoKnownClass(plain));
  EXPECT_TRUE(isOpen(plain));
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
  expectNothingComesThrough();
}

TEST_F(KeptLockTest, AnAnswerOfNoKnownClassForAStream) {
  EXPECT_EQ(handledInVain(stream | kUnknownClass), OfNoKnownClass(stream));
  EXPECT_TRUE(isOpen(stream));
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
  expectNothingComesThrough();
}

TEST_F(KeptLockTest, AnAckThatCannotBeNoted) {
  gDuringCall = [this](const Call&) { inside().freeElementOnly(stream); };
  EXPECT_EQ(handledInVain(stream),
            (Begun(stream) + HandlingAck(stream) + Firing(stream, "invokeAsyncTaskCallback", "BREL_INVOKE_TASK"))
                    .freed(stream) +
                CheckingEnd(stream) + InfoNotInserted(stream) +
                NotHandled(stream, "could not insert ack", "could not insert ack related to sequence number"));
  expectNothingComesThrough();
}

TEST_F(KeptLockTest, AnEndThatFindsNoSequence) {
  gDuringCall = [this](const Call&) { inside().freeElementOnly(stream); };
  EXPECT_EQ(handledInVain(stream | kStreamEndClass),
            (Begun(stream) + HandlingStream(stream, true) + Firing(stream, "invokeStreamCallback", "BREL_INVOKE_TASK"))
                    .freed(stream) +
                CheckingEnd(stream) +
                NotHandled(stream, "could not retrieve ack", "could not retrieve ack related to sequence number"));
  expectNothingComesThrough();
}

TEST_F(KeptLockTest, AnEndWhoseThreadCannotBeDisposedOf) {
  platform::closeHandle(inside().element(plain).asyncThreadHandle);
  const platform::Handle stopEvent = std::exchange(inside().element(plain).stopEvent, nullptr);
  EXPECT_EQ(
      handledInVain(plain),
      Begun(plain) + HandlingAck(plain) + Firing(plain, "invokeAsyncTaskCallback", "BREL_INVOKE_TASK") +
          CheckingEnd(plain) +
          Handling(plain, "running sequence end routine. \n", "running sequence end routine for sequence number") +
          Retrieved(plain) +
          SaidOf("error", "DisposeAsyncThread", plain, "NULL stop event. \n",
                 "NULL stop event related to sequence number") +
          NotHandled(plain, "could not dispose asyncThread", "could not dispose asyncThread for sequence number"));
  platform::closeHandle(stopEvent);
  gCalls.waitFor(1);
  expectNothingComesThrough();
}

// ---------------------------------------------------------------------------------------------------------------------
// By the sequence's own thread
// ---------------------------------------------------------------------------------------------------------------------

class OwnThreadTest : public KeptLockTest {
 protected:
  void waitForLog(const std::string& text) {
    while (LogText("Brel.logs").find(text) == std::string::npos) std::this_thread::yield();
  }
};

TEST_F(OwnThreadTest, TheThreadGoesOnAndTheSequenceIsStillAnswered) {
  EXPECT_TRUE(Deliver(handle, kDebugRefTui, plain | kStreamClass, "refused"));
  waitForLog("which is not a stream. ");
  expectNothingComesThrough();
  // Its own thread has the lock, and may enter it again.
  Deliver(handle, kDebugRefTui, plain, "answer");
  EXPECT_EQ(gCalls.waitFor(1).back().data, "answer");
  waitUntilFreed(plain);
  // It has ended now, with the lock, and what waits behind it still waits.
  platform::sleepFor(static_cast<std::uint32_t>(kWhile.count()));
  EXPECT_EQ(gBroadcasts, 0u);
  EXPECT_EQ(gAlerts, 0u);
  EXPECT_EQ(gCalls.waitFor(0).size(), 1u);
}

TEST_F(OwnThreadTest, AStreamWithARecordOfNoKnownClassGoesOnForItself) {
  EXPECT_TRUE(Deliver(handle, kDebugRefTui, stream | kUnknownClass, "refused"));
  waitForLog("undefined seqNumType (4) arrived. ");
  EXPECT_TRUE(Deliver(handle, kDebugRefTui, stream, "ack"));
  EXPECT_TRUE(Deliver(handle, kDebugRefTui, stream | kStreamClass, "one"));
  Deliver(handle, kDebugRefTui, stream | kStreamEndClass, "end");
  EXPECT_EQ(gCalls.waitFor(3).back().data, "end");
  waitUntilFreed(stream);
  expectNothingComesThrough();
}

TEST_F(OwnThreadTest, ARecordWithoutDataIsTakenAndRefused) {
  platform::Handle syncDataEvent = nullptr, aSyncDataEvent = nullptr;
  AsyncListener* listener = nullptr;
  bool isAsync = false, isStream = false;
  inside().sequencer().InsertAsyncDataBySeqNum(plain, nullptr, 0, &syncDataEvent, &aSyncDataEvent, &listener, &isAsync,
                                               &isStream);
  platform::setEvent(aSyncDataEvent);
  waitForLog("NULL buffer. ");
  EXPECT_THAT(LogText("Brel.logs"), ::testing::HasSubstr("RetrieveNextAsyncBuffer - (0) - NULL data. \n"));
  expectNothingComesThrough();
}

}  // namespace
}  // namespace kel::test
