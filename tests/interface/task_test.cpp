// SPDX-License-Identifier: MIT
// Synchronous tasks through the exports.
#include "interface/client.h"

namespace kel::test {
namespace {

using TaskTest = ClientTest;

struct SentRequest {
  std::uint32_t TUI, payloadSize, seqTUI, responseExpected;
};

/// The words of the request that the device had last.
SentRequest LastRequest() {
  std::array<std::uint32_t, 7> body{};
  EXPECT_EQ(SluiceHubSim_GetRequest(SLUICEHUBSIM_LAST, nullptr, body.data(), sizeof body), 1u);
  return {body[3], body[4], body[5], body[6]};
}

void DropRequests() {
  SluiceHubSimRule drop{};
  drop.flags = SLUICEHUBSIM_DROP;
  drop.times = 1;
  SluiceHubSim_AddRule(&drop);
}
void RefuseRequests() {
  SluiceHubSimRule refuse{};
  refuse.L4status = 5;
  SluiceHubSim_AddRule(&refuse);
}

TEST_F(TaskTest, AValTaskReturnsThePayloadOfItsAnswerAndNoMore) {
  const std::uint64_t conn = connect();
  const Answer answer = SendValues(conn, {7, 8, 9});
  EXPECT_EQ(answer.result, KEL_OK);
  EXPECT_EQ(answer.payload, Bytes({7, 8, 9}));
}

TEST_F(TaskTest, ARefTaskCarriesBytes) {
  const std::uint64_t conn = connect();
  const std::string bytes("any\0bytes", 9);
  EXPECT_EQ(Send(conn, kDebugRef, bytes.data(), 9).payload, bytes);
}

TEST_F(TaskTest, AnEmptyAnswerIsABlockOfSizeZero) {
  const std::uint64_t conn = connect();
  const Answer answer = Send(conn, kDebugRef, nullptr, 0);
  EXPECT_EQ(answer.result, KEL_OK);
  EXPECT_TRUE(answer.hasPayload);
  EXPECT_EQ(answer.payload, "");
}

TEST_F(TaskTest, AnUnknownNameSendsNothingAndLeavesTheOutputsAlone) {
  const std::uint64_t conn = connect();
  for (const char* name : {"NO_SUCH_TASK", "", "task_id_application_debug_val"}) {
    std::uint32_t size = 3;
    void* payload = &size;
    EXPECT_EQ(KEL_SendReceiveKEL(conn, name, 1, nullptr, 0, &payload, &size, nullptr), KEL_E_TASK) << name;
    EXPECT_EQ(payload, &size);
    EXPECT_EQ(size, 3u);
  }
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(TaskTest, ATaskWithoutANameIsAnUnknownOne) {
  EXPECT_EQ(Send(connect(), nullptr, nullptr, 0).result, KEL_E_TASK);
}

TEST_F(TaskTest, ARefusedRequestGivesNoPayload) {
  const std::uint64_t conn = connect();
  SluiceHubSimRule refuse{};
  refuse.L4status = 5;
  SluiceHubSim_AddRule(&refuse);
  std::uint32_t size = 3;
  void* payload = &size;
  EXPECT_EQ(KEL_SendReceiveKEL(conn, kDebugVal, 1, nullptr, 0, &payload, &size, nullptr), KEL_E_TASK);
  EXPECT_EQ(payload, nullptr);
  EXPECT_EQ(size, 0u);
}

TEST_F(TaskTest, AnAnswerThatDoesNotComeInTimeGivesNoPayload) {
  folder.writeSettings("RxWaitTimeout=20\n");
  const std::uint64_t conn = connect();
  DropDebugTasks(1);
  std::uint32_t size = 3;
  void* payload = &size;
  EXPECT_EQ(KEL_SendReceiveKEL(conn, kDebugVal, 1, nullptr, 0, &payload, &size, nullptr), KEL_E_TASK);
  EXPECT_EQ(payload, nullptr);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(Requests(), 1u);
}

TEST_F(TaskTest, WhatAnAnswerSaysIsNotLookedAt) {
  const std::uint64_t conn = connect();
  SluiceHubSimRule odd{};
  odd.flags = SLUICEHUBSIM_TYPE | SLUICEHUBSIM_DATA;
  odd.type = 1;
  odd.errorCode = 99;
  odd.data = "REF";
  odd.dataSize = 3;
  SluiceHubSim_AddRule(&odd);
  const Answer answer = SendValues(conn, {});
  EXPECT_EQ(answer.result, KEL_OK);
  EXPECT_EQ(answer.payload, "REF");
}

TEST_F(TaskTest, WithNoResponseExpectedTheCallReturnsOnceTheRequestIsSent) {
  const std::uint64_t conn = connect();
  std::uint32_t size = 3;
  void* payload = &size;
  EXPECT_EQ(
      KEL_SendReceiveKELEx(conn, kDebugVal, 1, nullptr, 0, 0x12345678, 0, nullptr, &payload, &size, nullptr, nullptr),
      KEL_OK);
  EXPECT_EQ(payload, nullptr);
  EXPECT_EQ(size, 0u);
  const SentRequest request = LastRequest();
  EXPECT_EQ(request.responseExpected, 0u);
  EXPECT_EQ(request.seqTUI, 0x12345678u);
}

TEST_F(TaskTest, EveryResponseExpectedButZeroCountsAsOne) {
  const std::uint64_t conn = connect();
  for (const std::uint32_t responseExpected : {1u, 2u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
    std::uint32_t size = 0;
    void* payload = nullptr;
    EXPECT_EQ(KEL_SendReceiveKELEx(conn, kDebugVal, 1, nullptr, 0, 0x12345678, responseExpected, nullptr, &payload,
                                   &size, nullptr, nullptr),
              KEL_OK);
    EXPECT_EQ(size, 12u) << responseExpected;
    EXPECT_NE(payload, nullptr);
    std::free(payload);
    EXPECT_EQ(LastRequest().responseExpected, 1u);
  }
}

TEST_F(TaskTest, ResultTypeAndFourthParameterAreNeverWritten) {
  const std::uint64_t conn = connect();
  std::uint32_t type = 4711, parameter = 4712, size = 0;
  void* payload = nullptr;
  EXPECT_EQ(KEL_SendReceiveKELEx(conn, kDebugVal, 1, nullptr, 0, 0, 1, &type, &payload, &size, &parameter, nullptr),
            KEL_OK);
  std::free(payload);
  EXPECT_EQ(type, 4711u);
  EXPECT_EQ(parameter, 4712u);
}

TEST_F(TaskTest, ResultTypeAndFourthParameterMayBeNull) {
  const std::uint64_t conn = connect();
  std::uint32_t size = 0;
  void* payload = nullptr;
  EXPECT_EQ(KEL_SendReceiveKELEx(conn, kDebugVal, 1, nullptr, 0, 0, 1, nullptr, &payload, &size, nullptr, nullptr),
            KEL_OK);
  EXPECT_NE(payload, nullptr);
  std::free(payload);
}

TEST_F(TaskTest, AnAnswerThatIsNotAskedForIsDropped) {
  const std::uint64_t conn = connect();
  void* payload = nullptr;
  std::uint32_t size = 0;
  EXPECT_EQ(KEL_SendReceiveKEL(conn, kDebugRef, 1, "text", 4, nullptr, nullptr, nullptr), KEL_OK);
  EXPECT_EQ(KEL_SendReceiveKEL(conn, kDebugRef, 1, "text", 4, nullptr, &size, nullptr), KEL_OK);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(KEL_SendReceiveKEL(conn, kDebugRef, 1, "text", 4, &payload, nullptr, nullptr), KEL_OK);
  EXPECT_EQ(std::string(static_cast<const char*>(payload), 4), "text");
  std::free(payload);
}

TEST_F(TaskTest, ASequenceNumberNeedNotBeAskedFor) {
  const std::uint64_t conn = connect();
  for (const std::uint32_t responseExpected : {0u, 1u}) {
    EXPECT_EQ(KEL_SendReceiveAsyncKELEx(conn, kDebugRef, 1, "text", 4, 0, responseExpected, nullptr, nullptr, nullptr),
              KEL_OK);
  }
  // Refused, it closes nobody's sequence: here there is one under each number that was ever given out.
  DropRequests();
  std::uint32_t open = 0;
  ASSERT_EQ(KEL_SendReceiveAsyncKEL(conn, kDebugRef, 1, "text", 4, &open, nullptr, nullptr), KEL_OK);
  RefuseRequests();
  EXPECT_EQ(KEL_SendReceiveAsyncKELEx(conn, kDebugRef, 1, "text", 4, 0, 0, nullptr, nullptr, nullptr),
            KEL_E_ASYNC_TASK);
}

TEST_F(TaskTest, TheShortFormExpectsAResponseAndGivesNoSequenceWord) {
  const std::uint64_t conn = connect();
  ASSERT_EQ(SendValues(conn, {}).result, KEL_OK);
  const SentRequest request = LastRequest();
  EXPECT_EQ(request.responseExpected, 1u);
  EXPECT_EQ(request.TUI, kDebugValTui);
  // Sequence number 0, then the task, with the connection's socket in the low byte.
  EXPECT_EQ(request.seqTUI, kDebugValTui & 0xFFFFFF00);
}

}  // namespace
}  // namespace kel::test
