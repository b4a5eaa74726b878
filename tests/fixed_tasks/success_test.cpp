// SPDX-License-Identifier: MIT
// The fixed tasks that go well: what goes out, what comes back, what is said.
#include <thread>

#include "fixed_tasks/fixed_task_test.h"

namespace kel::test {
namespace {

class EachFixedTaskSucceeds : public EachFixedTask {};

TEST_P(EachFixedTaskSucceeds, AndSaysSo) {
  const Operation& operation = GetParam();
  const std::uint32_t handle = startTold();
  const std::string answer = operation.reads ? "traces/yesterday.log" : Bytes({0, 7, 8});
  answerWith(operation.TUI, operation.reads ? 1 : 0, answer);

  Outcome outcome;
  const Transcript said = recorder.of([&] { outcome = operation.call(handle); });

  EXPECT_EQ(outcome.status, kStatusOk);
  EXPECT_EQ(outcome.written, operation.reads);
  EXPECT_EQ(outcome.data, operation.reads ? answer : "");
  EXPECT_EQ(said, succeeded(operation, answer));
}

TEST_P(EachFixedTaskSucceeds, WithARequestOfItsTasksForm) {
  const Operation& operation = GetParam();
  const std::uint32_t handle = start();
  operation.call(handle);
  operation.call(handle);  // this one has number 1

  const WireTask request = LastRequest();
  EXPECT_EQ(request.TUI, operation.TUI);
  EXPECT_EQ(request.responseExpected, 1u);
  // The sequence byte ahead of the TUI, whose low byte makes room for the connection's socket.
  EXPECT_EQ(request.seqTUI, 1u << 24 | (operation.TUI & 0xFFFF00));
  EXPECT_EQ(request.payloadSize, operation.request.size());
  const std::vector<std::uint8_t> message = LastMessage();
  EXPECT_EQ(std::string(message.begin() + sizeof(KelRequestHeader) + sizeof(WireTask), message.end()),
            operation.request);
}

TEST_P(EachFixedTaskSucceeds, WithTheDeviceAsItIs) { EXPECT_EQ(GetParam().call(start()).status, kStatusOk); }

TEST_P(EachFixedTaskSucceeds, AndLeavesItsSequenceNumberFree) {
  const std::uint32_t handle = start();
  for (int i = 0; i < 200; ++i) ASSERT_EQ(GetParam().call(handle).status, kStatusOk);
  EXPECT_EQ(LastRequest().seqTUI >> 24, 199u % 64);
}

INSTANTIATE_TEST_SUITE_P(Operations, EachFixedTaskSucceeds, ::testing::ValuesIn(kOperations), OperationName);

using FixedTaskResults = FixedTaskTest;

TEST_F(FixedTaskResults, APathThatIsSetIsThePathThatIsGot) {
  const std::uint32_t handle = start();
  EXPECT_EQ(CallGetTraceFilePath(handle).data, "BrelTrace.log");
  EXPECT_EQ(BrelSetTraceFilePath(handle, "C:\\traces\\%s %n.log"), kStatusOk);
  EXPECT_EQ(CallGetTraceFilePath(handle).data, "C:\\traces\\%s %n.log");
}

TEST_F(FixedTaskResults, APathOfFormatDirectivesIsPrintedAsItIs) {
  const std::uint32_t handle = startTold();
  answerAtOnce();
  Transcript said = recorder.of([&] { EXPECT_EQ(BrelSetTraceFilePath(handle, "%s%n%d"), kStatusOk); });
  const Operation& set = kOperations[1];
  EXPECT_EQ(said, opened(set)
                      .sentAndAnswered(set.name, 0)
                      .info(set.name, "filePath sent to driver is: %s%n%d \n")
                      .answerTaken(set.name, 0)
                      .info(set.name, "response received from Dorv \n"));
}

TEST_F(FixedTaskResults, AnEmptyPathIsSentAsOneZeroByte) {
  const std::uint32_t handle = start();
  EXPECT_EQ(BrelSetTraceFilePath(handle, ""), kStatusOk);
  EXPECT_EQ(LastRequest().payloadSize, 1u);
  EXPECT_EQ(LastMessage().back(), 0u);
  EXPECT_EQ(CallGetTraceFilePath(handle).data, "");
}

TEST_F(FixedTaskResults, APathBeyondTheRecordCapacityIsSentWhole) {
  const std::uint32_t handle = start();
  const std::string path(20'000, 'p');
  EXPECT_EQ(BrelSetTraceFilePath(handle, path.c_str()), kStatusOk);
  EXPECT_EQ(LastRequest().payloadSize, 20'001u);
  EXPECT_EQ(CallGetTraceFilePath(handle).data, path);
}

TEST_F(FixedTaskResults, APathThatNobodyHasEndedEndsWithItsPayload) {
  const std::uint32_t handle = startTold();
  answerWith(0x160C0, 1, "unended");
  Outcome outcome;
  const Transcript said = recorder.of([&] { outcome = CallGetTraceFilePath(handle); });
  EXPECT_EQ(outcome.data, "unended");
  EXPECT_EQ(said, succeeded(kOperations[0], "unended"));
}

TEST_F(FixedTaskResults, APathEndsAtItsFirstZeroByte) {
  const std::uint32_t handle = startTold();
  answerWith(0x160C0, 1, std::string("path\0rest", 9));
  const Transcript said = recorder.of([&] { EXPECT_EQ(CallGetTraceFilePath(handle).data, "path"); });
  EXPECT_EQ(said, succeeded(kOperations[0], "path"));
}

class EachReadingTask : public EachFixedTask {};

TEST_P(EachReadingTask, GivesABlockOfNoBytesForAnEmptyAnswer) {
  const std::uint32_t handle = startTold();
  answerWith(GetParam().TUI, 1, "");
  Outcome outcome;
  const Transcript said = recorder.of([&] { outcome = GetParam().call(handle); });
  EXPECT_EQ(outcome.status, kStatusOk);
  EXPECT_TRUE(outcome.written);
  EXPECT_EQ(outcome.data, "");
  EXPECT_EQ(outcome.size, IsGetTraceFilePath(GetParam()) ? 4711u : 0u);
  EXPECT_EQ(said, succeeded(GetParam(), ""));
}

INSTANTIATE_TEST_SUITE_P(Operations, EachReadingTask, ::testing::Values(kOperations[0], kOperations[2], kOperations[4]),
                         OperationName);

TEST_F(FixedTaskResults, SeveritiesThatAreSetAreThoseThatAreGot) {
  const std::uint32_t handle = start();
  EXPECT_EQ(CallReader(handle, BrelGetTraceSeverityMultiple).data, std::string(256, '\0'));
  const std::string severities = Severities();
  EXPECT_EQ(BrelSetTraceSeverityMultiple(handle, reinterpret_cast<const std::uint8_t*>(severities.data())), kStatusOk);
  EXPECT_EQ(CallReader(handle, BrelGetTraceSeverityMultiple).data, severities);
}

TEST_F(FixedTaskResults, ABlockIsAnyBytesOfAnySize) {
  const std::uint32_t handle = start();
  std::string bytes;
  for (int i = 0; i < 9'000; ++i) bytes += static_cast<char>(i * 7);
  answerWith(0x18140, 1, bytes);
  const Outcome outcome = CallReader(handle, BrelGetAllStatistics);
  EXPECT_EQ(outcome.data, bytes);
  EXPECT_EQ(outcome.size, 9'000u);
}

TEST_F(FixedTaskResults, StatisticsCountUntilTheyAreReset) {
  const std::uint32_t handle = start();
  CallReader(handle, BrelGetAllStatistics);
  std::uint32_t total = 0;
  std::memcpy(&total, CallReader(handle, BrelGetAllStatistics).data.data(), sizeof total);
  EXPECT_EQ(total, 2u);
  EXPECT_EQ(BrelResetStatisticsBuffer(handle), kStatusOk);
  std::memcpy(&total, CallReader(handle, BrelGetAllStatistics).data.data(), sizeof total);
  EXPECT_EQ(total, 1u);
}

TEST_F(FixedTaskResults, TheSizeOfTheStatisticsIsHadWithoutThem) {
  const std::uint32_t handle = start();
  answerWith(0x18140, 1, std::string(77, 's'));
  std::uint32_t size = 4711;
  EXPECT_EQ(BrelGetAllStatisticsSize(handle, &size), kStatusOk);
  EXPECT_EQ(size, 77u);
}

TEST_F(FixedTaskResults, SeveralTasksAtOnceGetTheirOwnAnswers) {
  const std::uint32_t handle = start();
  std::vector<std::thread> clients;
  for (int client = 0; client < 4; ++client) {
    clients.emplace_back([handle] {
      for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(CallGetTraceFilePath(handle).data, "BrelTrace.log");
        EXPECT_EQ(CallReader(handle, BrelGetTraceSeverityMultiple).data, std::string(256, '\0'));
        EXPECT_EQ(BrelResetStatisticsBuffer(handle), kStatusOk);
      }
    });
  }
  for (std::thread& client : clients) client.join();
}

}  // namespace
}  // namespace kel::test
