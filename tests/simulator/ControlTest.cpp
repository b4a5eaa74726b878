// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cwchar>
#include <string>

#include "Client.h"
#include "logging/Trace.h"

namespace kel::sim {
namespace {

TEST(Control, AnyMessageCanBeDelivered) {
  Client client;
  EXPECT_EQ(SluiceHubSim_DeliverMessage(client.Connection(), 4711, "abc", 3, 1), 1u);
  EXPECT_EQ(client.Messages().at(0).ID, 4711u);
  EXPECT_EQ(client.Messages().at(0).body, (Bytes{'a', 'b', 'c'}));
  EXPECT_EQ(SluiceHubSim_DeliverMessage(client.Connection() + 1, 4711, "abc", 3, 1), 0u);
}

TEST(Control, ABroadcastToAllReachesEachConnectionUnderItsOwnRow) {
  Client first(1);
  Client second(2);
  EXPECT_EQ(SluiceHubSim_Broadcast(0, MakeSeqTUI(kDebugRef, 9), 0xABCD, "abc", 3, 1), 2u);
  for (Client* client : {&first, &second}) {
    const auto responses = client->WaitForResponses(1);
    EXPECT_EQ(responses.at(0).header.handle, client == &first ? 1 : 2);
    EXPECT_EQ(responses.at(0).head.TUI, (kDebugRef & ~0xF000u) | 0x5000u);
    EXPECT_EQ(responses.at(0).head.seqTUI, 0xABCDu);
    EXPECT_EQ(responses.at(0).payload, (Bytes{'a', 'b', 'c'}));
  }
}

TEST(Control, AHandlerMayDeliverToItsOwnConnectionAndWait) {
  Client client;
  bool first = true;
  client.WhenMessageComes([&] {
    if (std::exchange(first, false)) SluiceHubSim_DeliverMessage(0, 2, "b", 1, 1);
  });
  SluiceHubSim_DeliverMessage(0, 1, "a", 1, 1);
  EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
  EXPECT_EQ(client.Messages().size(), 2u);
}

TEST(Control, EventsCarryReasonAndContext) {
  Client client(6);
  SluiceHubSim_DeliverEvent(client.Connection(), 8, 99, 1);
  const auto events = client.Events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].event, 8u);
  EXPECT_EQ(events[0].reason, 99u);
  EXPECT_EQ(events[0].context, 6u);
}

TEST(Control, AfterALostLinkSendsFailAndNothingComes) {
  Client client;
  client.Send(kStreamer, {1000000, 1, 0});
  client.WaitForResponses(2);
  EXPECT_EQ(SluiceHubSim_LoseLink(client.Connection(), 5, 1), 1u);
  EXPECT_EQ(client.Events().at(0).reason, 5u);
  EXPECT_EQ(client.Send(kDebugVal, {}).status, SLUICEHUBSIM_STATUS_LINK_LOST);
  EXPECT_TRUE(SluiceHubSim_WaitIdle(0));
  EXPECT_EQ(client.Disconnect(), 0u);
  EXPECT_EQ(client.Events().at(1).reason, L5_RESULT_USER_REQUESTED_DISCONNECT);
}

TEST(Control, ListsTheOpenConnections) {
  const Client first;
  const Client second;
  std::uint64_t values[3] = {};
  EXPECT_EQ(SluiceHubSim_GetConnections(values, 1), 2u);
  EXPECT_EQ(values[0], first.Connection());
  EXPECT_EQ(values[1], 0u);
  EXPECT_EQ(SluiceHubSim_GetConnections(values, 3), 2u);
  EXPECT_EQ(values[1], second.Connection());
}

TEST(Control, CountsRequestsAndResponses) {
  Client client;
  client.Exchange(kDebugVal, {1, 2, 3});
  EXPECT_TRUE(SluiceHubSim_WaitForRequests(1, 0));
  EXPECT_FALSE(SluiceHubSim_WaitForRequests(2, 10));
  EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
  SluiceHubSimCounts counts;
  SluiceHubSim_GetCounts(&counts);
  EXPECT_EQ(counts.messages, 2u);
  EXPECT_EQ(counts.requests, 1u);
  EXPECT_EQ(counts.requestBytes, 40u);
  EXPECT_EQ(counts.responses, 1u);
  EXPECT_EQ(counts.responseBytes, 40u);
}

TEST(Control, TheRequestLogHasTheLast64Messages) {
  Client client;
  SluiceHubSimRequest request;
  std::uint8_t body[4] = {};
  ASSERT_TRUE(SluiceHubSim_GetRequest(0, &request, body, sizeof body));
  EXPECT_EQ(request.connection, client.Connection());
  EXPECT_EQ(request.agent, L5_AGENT_KELPROXY);
  EXPECT_EQ(request.messageID, KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID);
  EXPECT_EQ(request.size, 1u);
  EXPECT_EQ(body[0], 3);

  for (int i = 0; i < 64; ++i) client.Send(kDebugVal, {1, 2, 3});
  EXPECT_FALSE(SluiceHubSim_GetRequest(0, nullptr, nullptr, 0));
  EXPECT_TRUE(SluiceHubSim_GetRequest(1, nullptr, nullptr, 0));
  EXPECT_FALSE(SluiceHubSim_GetRequest(65, nullptr, nullptr, 0));
  EXPECT_TRUE(SluiceHubSim_GetRequest(SLUICEHUBSIM_LAST, &request, body, sizeof body));
  EXPECT_EQ(request.size, 40u);
  EXPECT_EQ(body[0] | body[1] << 8, kKelRequestOpcode);
}

TEST(Control, AnEmptyRequestLogHasNoLastMessage) {
  EXPECT_FALSE(SluiceHubSim_GetRequest(SLUICEHUBSIM_LAST, nullptr, nullptr, 0));
}

TEST(Control, KelProxyAgentAnswersAsItIsTold) {
  const Client client;
  const SluiceHubSimSocketReply told{0, 1002, 2, 77, 9};
  SluiceHubSim_SetSocketReply(&told);
  const auto reply = client.Ask(L5_AGENT_KELPROXY, KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID, {0});
  EXPECT_EQ(reply.ID, 1002u);
  EXPECT_EQ(reply.size, 2u);
  EXPECT_EQ(reply.body.errorWord & 0xFF, 77u);
  EXPECT_EQ(client.ReleaseSocket(0), 9u);
  SluiceHubSim_SetSocketReply(nullptr);
  EXPECT_EQ(client.AcquireSocket(), 1);
}

TEST(Control, ResultsCanBeForced) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_INIT, 12);
  EXPECT_EQ(SLUICE_HUB_Init(), 12u);
  SluiceHubSim_UnforceResult(SLUICEHUBSIM_INIT);
  EXPECT_EQ(SLUICE_HUB_Init(), 0u);
  EXPECT_EQ(SluiceHubSim_Calls(SLUICEHUBSIM_INIT), 2u);
  SluiceHubSim_ForceResult(SLUICEHUBSIM_FUNCTION_COUNT, 1);
}

TEST(Control, AForcedConnectOpensNothing) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 0);
  const Client client;
  EXPECT_EQ(client.ConnectStatus(), 0u);
  EXPECT_EQ(client.Connection(), 0u);
  EXPECT_EQ(SluiceHubSim_GetConnections(nullptr, 0), 0u);
}

TEST(Control, TheDispatcherTableCanBeMissing) {
  EXPECT_NE(SLUICE_HUB_GetServiceDispatcherFunctions(), nullptr);
  SluiceHubSim_ForceResult(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS, 0);
  EXPECT_EQ(SLUICE_HUB_GetServiceDispatcherFunctions(), nullptr);
}

TEST(Control, AForcedSendReachesNoAgent) {
  const Client client;
  SluiceHubSim_ForceResult(SLUICEHUBSIM_SEND_RECEIVE, 31);
  const auto reply = client.Send(kDebugVal, {});
  EXPECT_EQ(reply.status, 31u);
  EXPECT_EQ(reply.ID, 0xDEADu);
  EXPECT_FALSE(SluiceHubSim_WaitForRequests(1, 0));
}

TEST(Versions, AreValidatedByTheirFirstNumber) {
  EXPECT_EQ(IsVersionValidationEnabled(), 1u);
  const VersionArray own = SLUICE_HUB_GetVersion();
  const VersionArray expected{{4, 1, 0, 21, 0}};
  EXPECT_EQ(std::memcmp(&own, &expected, sizeof own), 0);
  EXPECT_EQ(ValidateVersion(L"user", own, expected), 0u);
  EXPECT_EQ(ValidateVersion(L"user", own, {{4, 2, 0, 0, 0}}), 1u);
  EXPECT_EQ(ValidateVersion(L"user", own, {{5, 1, 0, 21, 0}}), 2u);

  const std::uint32_t other[5] = {9, 8, 7, 6, 5};
  SluiceHubSim_SetVersion(other);
  EXPECT_EQ(SLUICE_HUB_GetVersion().number[4], 5u);
}

std::uint32_t gStatus = 0;
std::thread::id gStatusThread;

void NoteStatus(std::uint32_t status) {
  gStatus += status;
  gStatusThread = std::this_thread::get_id();
}

TEST(ControlStatus, ChangesAreToldOnAThreadOfTheLibrary) {
  const auto callback = reinterpret_cast<KEL_CtrlStatusCallback>(&NoteStatus);
  EXPECT_EQ(SLUICE_HUB_RegisterCtrlStatusUpdatesCB(callback), 0u);
  EXPECT_EQ(SLUICE_HUB_RegisterCtrlStatusUpdatesCB(callback), 0u);
  SluiceHubSim_SetCtrlStatus(3);
  EXPECT_EQ(SLUICE_HUB_GetCtrlStatus(), 3u);
  EXPECT_EQ(gStatus, 3u);
  EXPECT_NE(gStatusThread, std::this_thread::get_id());
  EXPECT_EQ(SLUICE_HUB_UnregisterCtrlStatusUpdatesCB(callback), 0u);
  EXPECT_NE(SLUICE_HUB_UnregisterCtrlStatusUpdatesCB(callback), 0u);
  SluiceHubSim_SetCtrlStatus(4);
  EXPECT_EQ(gStatus, 3u);
}

TEST(ControlStatus, ConnectionParametersAreKept) {
  EXPECT_EQ(SLUICE_HUB_SetConnParams(0x123456789ABCDEF0, 17), 0u);
  std::uint64_t params = 0;
  std::uint32_t value = 0;
  SluiceHubSim_GetConnParams(&params, &value);
  EXPECT_EQ(params, 0x123456789ABCDEF0u);
  EXPECT_EQ(value, 17u);
}

TEST(Traces, AreKeptByLevelWithTheirTextFormatted) {
  Beacon_WriteTrace(kTraceSource, kTraceProgress, L"file", L"function", 1, L"nobody asked");
  SluiceHubSim_KeepTraces(kTraceProgress | kTraceUnknownConnection);
  Beacon_WriteTrace(kTraceSource, kTraceEngineFailed, L"file", L"function", 2, L"other level");
  Beacon_WriteTrace(kTraceSource, kTraceProgress, L"file", L"function", 3, L"Conn=%x, returned %d", 0xABCDu, -5);
  ASSERT_EQ(SluiceHubSim_TraceCount(), 1u);
  SluiceHubSimTrace trace;
  ASSERT_TRUE(SluiceHubSim_GetTrace(0, &trace));
  EXPECT_EQ(trace.sourceMask, kTraceSource);
  EXPECT_EQ(trace.level, kTraceProgress);
  EXPECT_EQ(trace.line, 3u);
  EXPECT_STREQ(trace.file, L"file");
  EXPECT_STREQ(trace.function, L"function");
  EXPECT_STREQ(trace.text, L"Conn=abcd, returned -5");
  EXPECT_FALSE(SluiceHubSim_GetTrace(1, &trace));
  SluiceHubSim_ClearTraces();
  EXPECT_EQ(SluiceHubSim_TraceCount(), 0u);
}

TEST(Traces, TheNewest4096AreKept) {
  SluiceHubSim_KeepTraces(1);
  for (int i = 0; i < 5000; ++i) Beacon_WriteTrace(0, 1, nullptr, nullptr, static_cast<std::uint32_t>(i), nullptr);
  EXPECT_EQ(SluiceHubSim_TraceCount(), 4096u);
  SluiceHubSimTrace trace;
  SluiceHubSim_GetTrace(0, &trace);
  EXPECT_EQ(trace.line, 904u);
}

TEST(Traces, LongTextsAreCut) {
  SluiceHubSim_KeepTraces(1);
  const std::wstring longText(1000, L'x');
  Beacon_WriteTrace(0, 1, longText.c_str(), longText.c_str(), 0, L"%ls", longText.c_str());
  SluiceHubSimTrace trace;
  ASSERT_TRUE(SluiceHubSim_GetTrace(0, &trace));
  EXPECT_EQ(std::wcslen(trace.file), 63u);
  EXPECT_LE(std::wcslen(trace.text), 255u);
}

TEST(Control, ResetKeepsConnectionsAndForgetsTheRest) {
  SluiceHubSimRule rule{};
  rule.replyID = 3;
  SluiceHubSim_AddRule(&rule);
  SluiceHubSim_ForceResult(SLUICEHUBSIM_INIT, 5);
  SluiceHubSim_SetCtrlStatus(3);
  SluiceHubSim_KeepTraces(1);
  Client client;
  client.Send(kDebugVal, {});
  SluiceHubSim_Reset();
  EXPECT_EQ(SLUICE_HUB_Init(), 0u);
  EXPECT_EQ(SLUICE_HUB_GetCtrlStatus(), 0u);
  EXPECT_FALSE(SluiceHubSim_WaitForRequests(1, 0));
  EXPECT_EQ(client.Exchange(kDebugVal, {1, 2, 3}).PayloadValues(), (Values{1, 2, 3}));
}

}  // namespace
}  // namespace kel::sim
