// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <set>

#include "Client.h"

namespace kel::sim {
namespace {

TEST(L5Layer, ConnectionValuesAreNotZeroAndNeverComeAgain) {
  std::set<std::uint64_t> values{0};
  for (int i = 0; i < 100; ++i) {
    Client client;
    EXPECT_TRUE(values.insert(client.Connection()).second);
  }
}

TEST(L5Layer, HandlersRunOnOneThreadOfTheLibrary) {
  Client client;
  client.Exchange(kDebugVal, {1, 2, 3});
  client.Exchange(kDebugVal, {1, 2, 3});
  const auto messages = client.Messages();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_NE(messages[0].thread, std::this_thread::get_id());
  EXPECT_EQ(messages[0].thread, messages[1].thread);
}

TEST(L5Layer, AHandlerMaySendARequest) {
  Client client;
  bool first = true;
  client.WhenMessageComes([&] {
    if (std::exchange(first, false)) {
      EXPECT_EQ(client.Send(kDebugVal, {4, 5, 6}, 2).status, 0u);
    }
  });
  client.Send(kDebugVal, {1, 2, 3}, 1);
  const auto responses = client.WaitForResponses(2);
  ASSERT_EQ(responses.size(), 2u);
  EXPECT_EQ(responses[1].PayloadValues(), (Values{4, 5, 6}));
}

TEST(L5Layer, ADisconnectIsReportedWithReason17BeforeItReturns) {
  Client client(9);
  EXPECT_EQ(client.Disconnect(), 0u);
  // The client is not told of events after its disconnect has returned, so this one came before.
  const auto events = client.Events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].event, L5_EVENT_DISCONNECTED);
  EXPECT_EQ(events[0].reason, L5_RESULT_USER_REQUESTED_DISCONNECT);
  EXPECT_EQ(events[0].context, 9u);
}

TEST(L5Layer, NoHandlerRunsAfterADisconnect) {
  std::atomic<bool> closed{false};
  std::atomic<int> late{0};
  Client client;
  client.WhenMessageComes([&] {
    if (closed) ++late;
  });
  client.Send(kStreamer, {1000000, 0, 0});
  client.WaitForResponses(100);
  L5().L5Disconnect(client.Connection());
  closed = true;
  SluiceHubSim_WaitIdle(1000);
  EXPECT_EQ(late, 0);
}

TEST(L5Layer, AHandlerMayCloseItsOwnConnection) {
  Client client;
  std::uint32_t status = 77;
  client.WhenMessageComes([&] {
    status = L5().L5Disconnect(client.Connection());
    EXPECT_EQ(client.Events().size(), 1u);
  });
  client.Send(kStreamer, {1000, 0, 0});
  EXPECT_EQ(client.WaitForResponses(1).size(), 1u);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(SluiceHubSim_GetConnections(nullptr, 0), 0u);
}

TEST(L5Layer, AClosedConnectionIsUnknown) {
  Client client;
  client.Disconnect();
  EXPECT_EQ(client.Send(kDebugVal, {1, 2, 3}).status, SLUICEHUBSIM_STATUS_NO_CONNECTION);
  EXPECT_EQ(client.Disconnect(), SLUICEHUBSIM_STATUS_NO_CONNECTION);
}

TEST(L5Layer, AnUnknownAgentIsRefused) {
  const Client client;
  EXPECT_EQ(client.Ask(5, 1, {}).status, SLUICEHUBSIM_STATUS_NO_AGENT);
}

TEST(L5Layer, WithoutHandlersMessagesAreDropped) {
  std::uint64_t connection = 0;
  ASSERT_EQ(L5().L5Connect(nullptr, nullptr, nullptr, nullptr, 0, &connection), 0u);
  EXPECT_EQ(SluiceHubSim_DeliverMessage(connection, 1003, "x", 1, 1), 1u);
  EXPECT_EQ(L5().L5Disconnect(connection), 0u);
}

TEST(L5Layer, RepliesKeepToTheRoomThatTheSenderHas) {
  Client client;
  const Bytes body = Client::RequestBody(0x123, {}, 0, 1);
  std::uint32_t replyID = 7;
  std::uint8_t reply[16];
  std::memset(reply, 0xAA, sizeof reply);
  std::uint32_t size = 4;
  EXPECT_EQ(L5().SendReceiveMessage(client.Connection(), L5_AGENT_L4MSGPROXY, 1, body.data(),
                                    static_cast<std::uint32_t>(body.size()), &replyID, reply, &size),
            0u);
  EXPECT_EQ(size, 24u);
  EXPECT_EQ(reply[4], 0xAA);
}

TEST(L5Layer, ManyThreadsSendWhileConnectionsComeAndGo) {
  std::vector<std::thread> threads;
  for (std::uint8_t row = 0; row < 4; ++row) {
    threads.emplace_back([row] {
      for (int round = 0; round < 25; ++round) {
        Client client(row);
        client.Send(kStreamer, {1000000, 0, 0}, 2);
        for (int i = 0; i < 20; ++i) EXPECT_EQ(client.Send(kDebugVal, {1, 2, 3}).status, 0u);
        for (const Response& response : client.WaitForResponses(20)) {
          const bool isBroadcast = GetTuiTarget(response.head.TUI) == kTargetBroadcast;
          EXPECT_TRUE(isBroadcast || response.header.handle == row);
        }
        SluiceHubSim_Broadcast(0, kBroadcaster, 0, "abc", 3, round % 2);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(SluiceHubSim_GetConnections(nullptr, 0), 0u);
}

TEST(L5Layer, AProcessMayEndWithAConnectionOpen) {
  auto* client = new Client;
  client->LeaveOpen();
  client->Send(kStreamer, {1000000000, 0, 0});
  EXPECT_GE(client->WaitForResponses(10).size(), 10u);
}

}  // namespace
}  // namespace kel::sim
