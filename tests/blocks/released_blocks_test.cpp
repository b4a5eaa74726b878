// SPDX-License-Identifier: MIT
// Each place that is known to keep a block, with ReleaseBlocks on. A leak is reported when the test's process ends.
#include <thread>

#include "async/async_test.h"
#include "listeners/QueueListener.h"
#include "support/environment_variable.h"
#include "support/platform_calls.h"

namespace kel::test {
namespace {

class ReleasedBlocks : public AsyncTest {
 protected:
  /// With version control, or without.
  std::uint32_t connect(std::uint8_t versionControl = 0, const char* TUIsFilePath = nullptr,
                        const char* versionsVectorsPath = nullptr) {
    std::uint32_t connected = kNoBrelHandle;
    EXPECT_EQ(BrelInit(&connected, TUIsFilePath, versionControl, versionsVectorsPath, nullptr, [](std::uint32_t) {}),
              kStatusOk);
    return connected;
  }

  /// With number 0 taken by a task whose answer came when it was waited for no longer.
  std::uint32_t connectAndAnswerTooLate() {
    folder.writeSettings("RxWaitTimeout=0\n");
    const std::uint32_t connected = connect();
    DropRequests(0);
    EXPECT_EQ(InvokeVal(connected, {1, 2, 3}).status, kStatusFailed);
    EXPECT_TRUE(Deliver(connected, kDebugValTui, 0, "late"));
    return connected;
  }

  const EnvironmentVariable released{"KELHANDLER_RELEASE_BLOCKS", "1"};
};

TEST_F(ReleasedBlocks, OfSynchronousTasks) {
  const std::uint32_t connected = connect();
  EXPECT_EQ(InvokeVal(connected, {1, 2, 3}).payload, Bytes({1, 2, 3}));
  EXPECT_EQ(Invoke(connected, kDebugRef, "nobody waits", 12, 0, 0).status, kStatusOk);
  SluiceHubSimRule refuse = RuleFor(0);
  refuse.L4status = 1;
  refuse.times = 1;
  AddRule(refuse);
  EXPECT_NE(InvokeVal(connected, {1, 2, 3}).status, kStatusOk);
}

TEST_F(ReleasedBlocks, OfATaskThatIsNotAnsweredAndOfItsLateAnswers) {
  const std::uint32_t connected = connectAndAnswerTooLate();
  EXPECT_TRUE(Deliver(connected, kDebugValTui, 0, "later still"));
}

// Its sequences are then never closed.
TEST_F(ReleasedBlocks, OfATableThatItsLastOwnerLeftBehind) {
  const std::uint32_t connected = connectAndAnswerTooLate();
  const platform::Handle mutex = EngineInside(*GetBrelInst(connected)).sequencerMutex();
  std::thread([mutex] { platform::waitForOne(mutex, platform::kInfinite); }).join();
}

TEST_F(ReleasedBlocks, OfTasksThatFindNoNumber) {
  const std::uint32_t connected = connect();
  DropRequests(0);
  for (std::uint32_t i = 0; i < kSequenceNumbers; ++i) {
    EXPECT_EQ(InvokeAsync(connected, kDebugVal, OnTask).status, kStatusOk);
  }
  EXPECT_EQ(InvokeAsync(connected, kDebugVal, OnTask).status, kStatusFailed);
  EXPECT_EQ(InvokeVal(connected, {1, 2, 3}).status, kStatusFailed);
}

TEST_F(ReleasedBlocks, OfAsynchronousTasksAndStreams) {
  const std::uint32_t connected = connect();
  const std::uint32_t threeAtOnce[3] = {3, 0, 0};
  std::uint32_t seqNum = 0;
  EXPECT_EQ(BrelInvokeAsyncTask(connected, "TASK_ID_APPLICATION_DEBUG_STREAMER", 1, threeAtOnce, sizeof threeAtOnce, 0,
                                1, &seqNum, OnTask, OnStream),
            kStatusOk);
  EXPECT_EQ(InvokeAsync(connected, kDebugVal, OnTask).status, kStatusOk);
  EXPECT_EQ(gCalls.waitFor(6).size(), 6u);
}

TEST_F(ReleasedBlocks, OfARecordThatToldOfATimeOut) {
  folder.writeSettings("RxWaitTimeout=0\n");
  const std::uint32_t connected = connect();
  DropRequests(0);
  gDuringCall = [](const Call& call) { EXPECT_EQ(call.data.size(), sizeof(task)); };
  EXPECT_EQ(InvokeAsync(connected, kDebugVal, OnTask).status, kStatusOk);
  EXPECT_EQ(gCalls.waitFor(1).at(0).errorCode, 2u);
}

TEST_F(ReleasedBlocks, OfAThreadThatDoesNotStart) {
  const std::uint32_t connected = connect();
  const FailingCall fails(PlatformCall::kCreateThread);
  EXPECT_EQ(InvokeAsync(connected, kDebugVal, OnTask).status, kStatusFailed);
}

TEST_F(ReleasedBlocks, OfAThreadWhosePriorityCannotBeRaisedAreItsOwn) {
  if (HandleValuesComeAgain()) GTEST_SKIP() << "a closed handle's value is the next object's on this system";
  const std::uint32_t connected = connect();
  const FailingCall fails(PlatformCall::kSetThreadPriority);
  EXPECT_EQ(InvokeAsync(connected, kDebugVal, OnTask).status, kStatusFailed);
}

TEST_F(ReleasedBlocks, OfAnAlert) {
  const std::uint32_t connected = connect();
  EXPECT_EQ(BrelEngineAlertsCallback(BrelGetDorvHandle(connected), 4), 1u);
}

TEST_F(ReleasedBlocks, OfTheVersionControl) {
  folder.write("KEL_ALLTASKS.csv", "TASK_ID_VERSIONS_GET_UIDS,  0, 8, KEL_TRACE, 1, VAL, 98560, 0x18100\n");
  const std::uint32_t connected = connect(1);
  char path[] = "a/file.bin", onlyAPath[] = "a/path/";
  std::uint64_t userVersion = 0;
  EXPECT_EQ(BrelValidateVersion(connected, path, "bytes", 5, &userVersion, nullptr), kStatusOk);
  EXPECT_EQ(BrelValidateVersion(connected, onlyAPath, "bytes", 5, &userVersion, nullptr), kStatusNoFileName);

  const std::uint32_t without = connect();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(BrelValidateVersion(without, path, "bytes", 5, &userVersion, "."), kStatusOk);
  }
}

TEST_F(ReleasedBlocks, OfTheTextsOfAConnection) {
  folder.writeSettings("RequestStructDumpFilename=request.bin\nUpperDriverIpAddress=\n");
  connect(1, "no such table", "no such folder");
}

TEST_F(ReleasedBlocks, OfARefusedConnect) {
  folder.write("KEL_ALLTASKS.csv", "this is no task table");
  std::uint32_t refused = 0;
  EXPECT_EQ(BrelInit(&refused, nullptr, 0, nullptr, nullptr, nullptr), kStatusFailed);
}

TEST(ReleasedBlocksOfAListener, AreThoseThatNobodyTookFromItsQueue) {
  BroadcastListener listener;
  listener.mKeptBlocks.setReleased(true);
  platform::Handle dataEvent = nullptr, stopEvent = nullptr;
  ASSERT_EQ(listener.init(
                0, [](auto...) { return 1u; }, &dataEvent, &stopEvent, nullptr),
            LISTENER_INIT_OK);
  EXPECT_EQ(listener.recvData("first", 5), LISTENER_DATA_TAKEN);
  EXPECT_EQ(listener.recvData("second", 6), LISTENER_DATA_TAKEN);
}

}  // namespace
}  // namespace kel::test
