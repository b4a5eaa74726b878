// SPDX-License-Identifier: MIT
// Requests for asynchronous tasks: who gets a sequence and a thread, what goes out, and what a refused request leaves.
#include "adapter/Dorv.h"
#include "async/async_test.h"
#include "platform/platform.h"
#include "support/platform_calls.h"
#include "support/process_resources.h"

namespace kel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kUnwritten = 4711;

class SendingTest : public AsyncTest {
 protected:
  SendingTest() {
    for (const char* level : {"Info", "Warn", "Err"}) registry.set("Software\\Brel\\ALogger", level, 0);
    startEngine();
  }

  /// Has the device refuse all requests from now on.
  static void refuseRequests() {
    SluiceHubSim_ClearRules();
    SluiceHubSimRule refuse = RuleFor(0);
    refuse.L4status = 1;
    AddRule(refuse);
  }
  void openAll() {
    for (std::uint32_t i = 0; i < kSequenceNumbers; ++i) {
      const Asked asked = InvokeAsync(handle, kDebugRef, OnTask);
      ASSERT_EQ(asked.status, kStatusOk);
      ASSERT_EQ(asked.seqNum, i);
    }
  }
  void answer(std::uint32_t seqNum) {
    EXPECT_TRUE(Deliver(handle, kDebugRefTui, seqNum, "answer"));
    waitUntilFreed(seqNum);
  }
};

TEST_F(SendingTest, ATaskReturnsAtOnceAndItsAnswerGoesToTheCallback) {
  const Asked asked = InvokeAsync(handle, kDebugRef, OnTask, nullptr, 1, 77, 0x12345678);
  EXPECT_EQ(asked.status, kStatusOk);
  EXPECT_EQ(asked.seqNum, 0u);
  EXPECT_EQ(inside().threads(), 1);
  EXPECT_EQ(LastRequest().TUI, kDebugRefTui);
  EXPECT_EQ(LastRequest().seqTUI, kDebugRefTui & 0xFFFF00);  // number 0 in its high byte, socket 0 in its low one
  EXPECT_EQ(LastRequest().responseExpected, 1u);
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());

  EXPECT_TRUE(Deliver(handle, kDebugRefTui, 0, "answer", 0xABCD));
  EXPECT_THAT(gCalls.waitFor(1), ElementsAre(Call{Of::kTask, 0, 77, 0, 0, 1, "answer", 6, 0xABCD}));
  waitForThreads();
  EXPECT_EQ(inside().threads(), 0);
  EXPECT_FALSE(isOpen(0));
}

TEST_F(SendingTest, TheDeviceItselfAnswersAsWell) {
  SluiceHubSim_ClearRules();
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).status, kStatusOk);
  const auto calls = gCalls.waitFor(1);
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].data, "ask");
}

TEST_F(SendingTest, TheAnswerMayComeBeforeTheSendReturns) {
  SluiceHubSim_ClearRules();
  AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));
  for (std::uint32_t i = 0; i < 70; ++i) {
    const Asked asked = InvokeAsync(handle, kDebugRef, OnTask);
    ASSERT_EQ(asked.status, kStatusOk);
    waitUntilFreed(asked.seqNum);
  }
  EXPECT_EQ(gCalls.waitFor(70).size(), 70u);
}

TEST_F(SendingTest, ARecordIsSentAsItIsAndStaysTheCallers) {
  InvokeAsync(handle, kDebugRef, OnTask);  // number 0
  auto record = Record(kDebugRefTui, 1, 0x12345678, "payload");
  std::uint32_t seqNum = kUnwritten;
  EXPECT_EQ(
      BrelIssueAsyncCommand(handle, 9, reinterpret_cast<task*>(record.data()), &seqNum, Opaque(OnCommand), nullptr),
      kStatusOk);
  EXPECT_EQ(seqNum, 1u);
  EXPECT_EQ(record, Record(kDebugRefTui, 1, kDebugRefTui | 1 << 24, "payload"));
  EXPECT_EQ(LastRequest().payloadSize, 7u);

  EXPECT_TRUE(Deliver(handle, kDebugRefTui, 1, "answer", 5));
  const auto whole = Record(kDebugRefTui | 1 << 24, 0, 5, "answer");
  EXPECT_THAT(gCalls.waitFor(1),
              ElementsAre(Call{Of::kCommand, 0, 9, 1, 0, 0, std::string(whole.begin(), whole.end()), 6, 0}));
}

TEST_F(SendingTest, ATaskThatWantsNoAnswerGetsNoNumberAndNoThread) {
  for (const std::uint8_t responseExpected : std::initializer_list<std::uint8_t>{0, 2, 255}) {
    const auto handles = OpenHandles();
    const Asked asked = InvokeAsync(handle, kDebugRef, OnTask, nullptr, responseExpected, 1, 0x77000000);
    EXPECT_EQ(asked.status, kStatusOk);
    EXPECT_EQ(asked.seqNum, kUnwritten);
    EXPECT_EQ(LastRequest().seqTUI, 0x77000000u);
    EXPECT_EQ(LastRequest().responseExpected, responseExpected);
    EXPECT_EQ(inside().threads(), 0);
    EXPECT_EQ(OpenHandles(), handles);
  }
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).seqNum, 0u);
}

TEST_F(SendingTest, AStreamOpensASequenceWhateverAnswerIsExpected) {
  for (std::uint32_t responseExpected : {0, 1}) {
    EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask, OnStream, static_cast<std::uint8_t>(responseExpected)).seqNum,
              2 * responseExpected);
    EXPECT_EQ(LastRequest().responseExpected, responseExpected);
    EXPECT_EQ(LastRequest().seqTUI >> 24, 2 * responseExpected);
    EXPECT_EQ(IssueAsync(handle, kDebugRefTui, OnCommand, OnCommandStream, responseExpected).seqNum,
              2 * responseExpected + 1);
  }
  EXPECT_EQ(inside().threads(), 4);
}

// ---------------------------------------------------------------------------------------------------------------------
// Numbers
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(SendingTest, ASixtyFifthSequenceIsRefused) {
  openAll();
  const auto handles = OpenHandles();
  for (KEL_StreamCallback streamCallback : {KEL_StreamCallback{nullptr}, KEL_StreamCallback{OnStream}}) {
    const Asked refused = InvokeAsync(handle, kDebugRef, OnTask, streamCallback);
    EXPECT_EQ(refused.status, kStatusFailed);
    EXPECT_EQ(refused.seqNum, kUnwritten);
  }
  EXPECT_EQ(IssueAsync(handle, kDebugRefTui, OnCommand).status, kStatusFailed);
  EXPECT_EQ(inside().threads(), 64);
  EXPECT_EQ(OpenHandles(), handles);
  EXPECT_EQ(Requests(), 64u);
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask, nullptr, 0).status, kStatusOk);  // needs no number
}

TEST_F(SendingTest, NumbersComeAgainInTheOrderOfTheirFreeing) {
  openAll();
  const std::vector<std::uint32_t> order = {5, 63, 0, 17};
  for (const std::uint32_t seqNum : order) answer(seqNum);
  for (const std::uint32_t seqNum : order) EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).seqNum, seqNum);
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).status, kStatusFailed);
}

TEST_F(SendingTest, ANumberThatWasFreedIsNotSeenBeforeTheOthers) {
  for (std::uint32_t i = 0; i < 130; ++i) {
    ASSERT_EQ(InvokeAsync(handle, kDebugRef, OnTask).seqNum, i % 64);
    answer(i % 64);
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// Requests that are refused
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(SendingTest, AnUnknownNameIsRefusedWithNothingMade) {
  const auto handles = OpenHandles();
  for (const char* name : {"NO_SUCH_TASK", "", static_cast<const char*>(nullptr)}) {
    const Asked refused = InvokeAsync(handle, name, OnTask, OnStream);
    EXPECT_EQ(refused.status, kStatusFailed);
    EXPECT_EQ(refused.seqNum, kUnwritten);
  }
  EXPECT_EQ(Requests(), 0u);
  EXPECT_EQ(OpenHandles(), handles);
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).seqNum, 0u);
}

TEST_F(SendingTest, ARequestThatIsNotSentLeavesNothingAndCallsNobody) {
  const auto handles = OpenHandles();
  refuseRequests();
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).status, 14u);
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask, OnStream).status, 14u);
  EXPECT_EQ(IssueAsync(handle, kDebugRefTui, OnCommand).status, 14u);
  for (std::uint32_t seqNum = 0; seqNum < 3; ++seqNum) waitUntilFreed(seqNum);
  waitForThreads();
  EXPECT_EQ(inside().threads(), 0);
  EXPECT_EQ(OpenHandles(), handles);
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
}

TEST_F(SendingTest, EachReasonOfTheAdapterHasItsStatus) {
  EXPECT_EQ(Dorv_Disconnect(BrelGetDorvHandle(handle)), DORV_OK);
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).status, 17u);
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask, nullptr, 0).status, 17u);
  const std::uint32_t row = BrelGetDorvHandle(handle);
  SetDorvHandle(handle, kNoDorvHandle);
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).status, 14u);
  SetDorvHandle(handle, row);
  waitForThreads();
  EXPECT_EQ(inside().threads(), 0);
}

TEST_F(SendingTest, WithoutAThreadTheRequestIsNotSent) {
  {
    const FailingCall noThread(PlatformCall::kCreateThread);
    const Asked refused = InvokeAsync(handle, kDebugRef, OnTask);
    EXPECT_EQ(refused.status, kStatusFailed);
    EXPECT_EQ(refused.seqNum, 0u);
    EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask, OnStream).status, kStatusFailed);
    EXPECT_EQ(Invoke(handle, kDebugRef, nullptr, 0, 0, 1, OnStream).status, kStatusFailed);
  }
  EXPECT_EQ(Requests(), 0u);
  EXPECT_EQ(inside().threads(), 0);
  for (std::uint32_t seqNum = 0; seqNum < 3; ++seqNum) EXPECT_FALSE(isOpen(seqNum));
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).seqNum, 3u);
}

TEST_F(SendingTest, AThreadWithoutItsPriorityCountsAsNotStarted) {
  if (HandleValuesComeAgain()) GTEST_SKIP() << "a closed handle's value is the next object's on this system";
  {
    const FailingCall noPriority(PlatformCall::kSetThreadPriority);
    EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).status, kStatusFailed);
  }
  EXPECT_EQ(Requests(), 0u);
  EXPECT_EQ(inside().threads(), 0);
  EXPECT_FALSE(isOpen(0));
  leavesEngines = true;  // the thread runs on, and nobody has a means to stop it
}

TEST_F(SendingTest, WithoutTheTableOfSequencesEveryRequestIsRefused) {
  inside().closeSequencerMutex();
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).status, kStatusFailed);
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask, nullptr, 0).status, kStatusOk);
  EXPECT_EQ(inside().threads(), 0);
}

// The number is the one in the client's variable, even if another task has it.
TEST_F(SendingTest, ARefusedRequestWithoutASequenceClosesThatOfTheClientsVariable) {
  InvokeAsync(handle, kDebugRef, OnTask);
  InvokeAsync(handle, kDebugRef, OnTask);
  refuseRequests();
  std::uint32_t seqNum = 1;
  EXPECT_EQ(BrelInvokeAsyncTask(handle, kDebugRef, 1, nullptr, 0, 0, 0, &seqNum, OnTask, nullptr), 14u);
  EXPECT_EQ(seqNum, 1u);
  EXPECT_TRUE(isOpen(0));
  EXPECT_FALSE(isOpen(1));
  EXPECT_FALSE(Deliver(handle, kDebugRefTui, 1, "answer"));
  EXPECT_EQ(inside().threads(), 2);
  leavesEngines = true;  // the thread of number 1 can no longer free it, and so is never counted off
}

TEST_F(SendingTest, ARefusedRequestWithoutASequenceChangesNothingIfTheNumberIsNotOpen) {
  InvokeAsync(handle, kDebugRef, OnTask);
  refuseRequests();
  for (const std::uint32_t value : {1u, 63u, 64u, kUnwritten}) {
    std::uint32_t seqNum = value;
    EXPECT_EQ(BrelInvokeAsyncTask(handle, kDebugRef, 1, nullptr, 0, 0, 0, &seqNum, OnTask, nullptr), 14u);
    EXPECT_EQ(seqNum, value);
  }
  EXPECT_TRUE(isOpen(0));
  SluiceHubSim_ClearRules();
  DropRequests(0);
  EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).seqNum, 1u);
}

}  // namespace
}  // namespace kel::test
