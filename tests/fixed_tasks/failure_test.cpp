// SPDX-License-Identifier: MIT
// The fixed tasks that fail: the status, what is said, and what stays behind.
#include "engine/DorvBinding.h"
#include "fixed_tasks/fixed_task_test.h"

namespace kel::test {

struct GeneralStopEventOf {
  friend auto memberOf(GeneralStopEventOf);
};
template struct OpenMember<GeneralStopEventOf, &BrelEngine::mGeneralStopEvent>;

namespace {

/// Fails, with the outputs left as they were.
void ExpectFailed(const Outcome& outcome, Status status) {
  EXPECT_EQ(outcome.status, status);
  EXPECT_FALSE(outcome.written);
  EXPECT_EQ(outcome.size, 4711u);
}

// ---------------------------------------------------------------------------------------------------------------------
// Ahead of the send
// ---------------------------------------------------------------------------------------------------------------------

using FixedTaskArguments = FixedTaskTest;

TEST_F(FixedTaskArguments, ANullPathIsRefusedAndNothingIsSent) {
  const std::uint32_t handle = startTold();
  const Transcript said = recorder.of([&] { EXPECT_EQ(BrelSetTraceFilePath(handle, nullptr), 1u); });
  EXPECT_EQ(said, Transcript().error("SetTraceFilePath", "an empty filePath was input \n"));
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(FixedTaskArguments, ANullSeverityArrayIsRefusedAndNothingIsSent) {
  const std::uint32_t handle = startTold();
  const Transcript said = recorder.of([&] { EXPECT_EQ(BrelSetTraceSeverityMultiple(handle, nullptr), 1u); });
  EXPECT_EQ(said, Transcript().error("SetTraceSeverityMultiple", "an empty severityArray was input \n"));
  EXPECT_EQ(Requests(), 0u);
}

class EachFixedTaskFails : public EachFixedTask {
 protected:
  const Operation& operation = GetParam();

  /// Calls the operation, which is to fail.
  Transcript saidByFailing(std::uint32_t handle, Status status) {
    return recorder.of([&] { ExpectFailed(operation.call(handle), status); });
  }

  /// The sequence byte of the operation's next request.
  std::uint32_t nextSeqNum(std::uint32_t handle) {
    SluiceHubSim_ClearRules();
    operation.call(handle);
    return LastRequest().seqTUI >> 24;
  }
};

TEST_P(EachFixedTaskFails, WhenItsTaskIsNotInTheTable) {
  folder.write("KEL_ALLTASKS.csv", "ANOTHER_TASK,  0, 0, KEL_TRACE, 1, REF, 614400, 0x96000\n");
  const std::uint32_t handle = startTold();
  const Transcript said = saidByFailing(handle, 1);
  // The one that looks first has no TUI to print.
  Transcript expected = IsGetTraceFilePath(operation) ? Transcript() : begun(operation);
  EXPECT_EQ(said, expected.error(operation.name, "could not find TUI \n"));
  EXPECT_EQ(Requests(), 0u);
}

TEST_P(EachFixedTaskFails, WhenAllNumbersAreTakenByFailedSends) {
  const std::uint32_t handle = startTold();
  SluiceHubSimRule refuse = RuleFor(0);
  refuse.L4status = 1;
  refuse.times = 64;
  AddRule(refuse);
  recorder.of([&] {
    for (int i = 0; i < 64; ++i) ExpectFailed(operation.call(handle), 14);
  });
  SluiceHubSimCounts before, after;
  SluiceHubSim_GetCounts(&before);
  const Transcript said = saidByFailing(handle, 1);
  SluiceHubSim_GetCounts(&after);
  EXPECT_EQ(said, begun(operation).error(operation.name, "could not assign sequence number \n"));
  EXPECT_EQ(after.messages, before.messages);
}

TEST_P(EachFixedTaskFails, WhenAllNumbersAreTakenByWaitsThatFailed) {
  const std::uint32_t handle = startTold(0);
  DropRequests(operation.TUI, 64);
  recorder.of([&] {
    for (int i = 0; i < 64; ++i) ExpectFailed(operation.call(handle), 1);
  });
  EXPECT_EQ(saidByFailing(handle, 1), begun(operation).error(operation.name, "could not assign sequence number \n"));
  EXPECT_EQ(Requests(), 64u);
}

// ---------------------------------------------------------------------------------------------------------------------
// The send
// ---------------------------------------------------------------------------------------------------------------------

TEST_P(EachFixedTaskFails, WhenTheDeviceRefusesAndKeepsItsSequenceOpen) {
  const std::uint32_t handle = startTold();
  SluiceHubSimRule refuse = RuleFor(operation.TUI);
  refuse.L4status = 1;
  AddRule(refuse);
  EXPECT_EQ(saidByFailing(handle, 14), opened(operation).refused(operation.name));
  EXPECT_EQ(nextSeqNum(handle), 1u);
}

TEST_P(EachFixedTaskFails, WhenTheLinkIsNotOpen) {
  const std::uint32_t handle = startTold();
  ASSERT_EQ(Dorv_Disconnect(BrelGetDorvHandle(handle)), DORV_OK);
  EXPECT_EQ(saidByFailing(handle, 17), opened(operation).refused(operation.name));
}

TEST_P(EachFixedTaskFails, WithoutAnAdapterRowAndWithoutALineOfItsOwn) {
  const std::uint32_t handle = startTold();
  SetDorvHandle(handle, kNoDorvHandle);
  EXPECT_EQ(saidByFailing(handle, 14), opened(operation));
  SetDorvHandle(handle, 0);
  EXPECT_EQ(nextSeqNum(handle), 1u);
}

TEST_P(EachFixedTaskFails, WithTheStatusOfTheAdaptersCode) {
  const std::uint32_t handle = startTold();
  gDorv.Send = [](std::uint32_t, const task*, std::uint32_t) { return 2u; };
  EXPECT_EQ(saidByFailing(handle, 16), opened(operation, 0).refused(operation.name));
  gDorv.Send = [](std::uint32_t, const task*, std::uint32_t) { return 4u; };
  EXPECT_EQ(saidByFailing(handle, 18), opened(operation, 1).refused(operation.name));
  gDorv.Send = [](std::uint32_t, const task*, std::uint32_t) { return 5u; };
  EXPECT_EQ(saidByFailing(handle, 0), opened(operation, 2).refused(operation.name));
  gDorv.Send = Dorv_Send;
}

// ---------------------------------------------------------------------------------------------------------------------
// The wait
// ---------------------------------------------------------------------------------------------------------------------

TEST_P(EachFixedTaskFails, WhenNoAnswerComesInTimeAndKeepsItsSequenceOpen) {
  const std::uint32_t handle = startTold(10);
  DropRequests(operation.TUI);
  EXPECT_EQ(saidByFailing(handle, 1),
            unanswered(operation).waited("error", operation.name,
                                         "WAIT_TIMEOUT exceeded while waiting for Rx from Dorv. \n"));
  EXPECT_EQ(nextSeqNum(handle), 1u);
}

TEST_P(EachFixedTaskFails, WhenTheEngineIsStoppedMeanwhileAndKeepsItsSequenceOpen) {
  const std::uint32_t handle = startTold();
  DropRequests(operation.TUI);
  const platform::Handle stop = (*GetBrelInst(handle)).*memberOf(GeneralStopEventOf{});
  ASSERT_TRUE(platform::setEvent(stop));
  EXPECT_EQ(saidByFailing(handle, 1),
            unanswered(operation).waited("info", operation.name, "generalStopEvent was signaled. \n"));
  ASSERT_TRUE(platform::resetEvent(stop));
  EXPECT_EQ(nextSeqNum(handle), 1u);
}

TEST_P(EachFixedTaskFails, WhenItCannotWaitAndKeepsItsSequenceOpen) {
  const std::uint32_t handle = startTold();
  DropRequests(operation.TUI);
  auto& stop = (*GetBrelInst(handle)).*memberOf(GeneralStopEventOf{});
  const platform::Handle event = stop;
  stop = nullptr;
  EXPECT_EQ(saidByFailing(handle, 1),
            unanswered(operation).waited("error", operation.name, "Unknown Error on wait for Rx from Dorv. \n"));
  stop = event;
  EXPECT_EQ(nextSeqNum(handle), 1u);
}

// ---------------------------------------------------------------------------------------------------------------------
// The answer
// ---------------------------------------------------------------------------------------------------------------------

TEST_P(EachFixedTaskFails, WhenTheAnswerIsOfAnyOtherTypeAndLeavesNothingBehind) {
  const std::uint32_t handle = startTold();
  for (const std::uint32_t type : {operation.reads ? 0u : 1u, 2u, 3u}) {
    SluiceHubSim_ClearRules();
    answerWith(operation.TUI, type, Bytes({0, 0, 0}));
    const Transcript said = saidByFailing(handle, 19);
    EXPECT_EQ(said, answered(operation).error(operation.name, "wrong TYPE of ResponsBuffer received from Dorv \n"));
    // All numbers are free again, and the next round begins at 0.
    for (int i = 0; i < 63; ++i) recorder.of([&] { operation.call(handle); });
  }
}

TEST_P(EachFixedTaskFails, WhenTheEngineIsFinalised) {
  const std::uint32_t handle = start();
  ASSERT_EQ(BrelFinalize(handle), kStatusOk);
  ExpectFailed(operation.call(handle), 1);
}

INSTANTIATE_TEST_SUITE_P(Operations, EachFixedTaskFails, ::testing::ValuesIn(kOperations), OperationName);

class EachWritingTask : public EachFixedTask {};

TEST_P(EachWritingTask, FailsWhenTheFirstValueIsNotZero) {
  const std::uint32_t handle = startTold();
  answerWith(GetParam().TUI, 0, Bytes({5, 0, 0}));
  const Transcript said = recorder.of([&] { ExpectFailed(GetParam().call(handle), 1); });
  EXPECT_EQ(said, succeeded(GetParam(), ""));
}

TEST_P(EachWritingTask, LooksAtAllBytesOfTheFirstValue) {
  const std::uint32_t handle = start();
  answerWith(GetParam().TUI, 0, Bytes({0x01000000, 0, 0}));
  EXPECT_EQ(GetParam().call(handle).status, 1u);
}

TEST_P(EachWritingTask, TakesBytesThatTheAnswerDoesNotHaveForZero) {
  const std::uint32_t handle = start();
  answerWith(GetParam().TUI, 0, "");
  EXPECT_EQ(GetParam().call(handle).status, kStatusOk);
  SluiceHubSim_ClearRules();
  answerWith(GetParam().TUI, 0, std::string(3, '\0'));
  EXPECT_EQ(GetParam().call(handle).status, kStatusOk);
  SluiceHubSim_ClearRules();
  answerWith(GetParam().TUI, 0, std::string("\0\1", 2));
  EXPECT_EQ(GetParam().call(handle).status, 1u);
}

TEST_P(EachWritingTask, LooksAtNothingBehindTheFirstValue) {
  const std::uint32_t handle = start();
  answerWith(GetParam().TUI, 0, Bytes({0, 5, 6}));
  EXPECT_EQ(GetParam().call(handle).status, kStatusOk);
}

INSTANTIATE_TEST_SUITE_P(Operations, EachWritingTask, ::testing::Values(kOperations[1], kOperations[3], kOperations[5]),
                         OperationName);

TEST_F(FixedTaskArguments, TheSizeOfTheStatisticsStaysAsItWasOnAFailure) {
  const std::uint32_t handle = start();
  answerWith(0x18140, 0, Bytes({0, 0, 0}));
  std::uint32_t size = 4711;
  EXPECT_EQ(BrelGetAllStatisticsSize(handle, &size), 19u);
  EXPECT_EQ(size, 4711u);
}

}  // namespace
}  // namespace kel::test
