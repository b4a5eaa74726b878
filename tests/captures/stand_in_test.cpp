// SPDX-License-Identifier: MIT
// What the stand-in puts into a capture.
#include <gtest/gtest.h>

#include <algorithm>

#include "captures/pcapng_reader.h"
#include "simulator/Client.h"
#include "support/scratch_directory.h"

namespace kel::test {
namespace {

using sim::Client;
using sim::kDebugVal;
using sim::kStreamer;
using enum sim::CaptureKind;

constexpr char kFile[] = "some.pcapng";

/// A test whose L5 traffic is captured.
class CaptureTest : public testing::Test {
 protected:
  CaptureTest() { EXPECT_EQ(SluiceHubSim_StartCapture(kFile), 1u); }

  /// What was captured; to be read when no connection is open.
  static CaptureFile Captured() { return ReadCapture(kFile); }

  /// The reply to a request under a rule.
  static CapturedPacket ReplyUnder(const SluiceHubSimRule& rule) {
    SluiceHubSim_AddRule(&rule);
    {
      Client client;
      client.Send(kDebugVal, {1, 2, 3});
    }
    return Captured().packets.at(4);
  }

  const ScratchDirectory mFolder;
};

TEST_F(CaptureTest, ATaskIsSeenFromConnectToDisconnect) {
  {
    Client client(3);
    client.Exchange(kDebugVal, {7, 8, 9});
    SluiceHubSim_WaitIdle(10000);
  }
  const CaptureFile file = Captured();
  EXPECT_EQ(file.Kinds(), (std::vector{kConnect, kRequest, kReply, kRequest, kReply, kMessage, kDisconnect, kEvent}));
  ASSERT_EQ(file.packets.size(), 8u);
  for (const CapturedPacket& packet : file.packets) EXPECT_EQ(packet.Connection(), 1u);

  const CapturedPacket& socket = file.packets[1];
  EXPECT_EQ(socket.Agent(), L5_AGENT_KELPROXY);
  EXPECT_EQ(socket.ID(), KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID);
  EXPECT_EQ(socket.Body(), (sim::Bytes{3}));
  EXPECT_EQ(file.packets[2].ID(), KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID_RESPONSE);
  EXPECT_EQ(file.packets[2].Exchange(), socket.Exchange());

  const CapturedPacket& request = file.packets[3];
  EXPECT_EQ(request.Agent(), L5_AGENT_L4MSGPROXY);
  EXPECT_EQ(request.Body(), Client::RequestBody(kDebugVal, sim::ToBytes(sim::Values{7, 8, 9}), 0x01038200, 1));
  EXPECT_EQ(file.packets[4].Exchange(), request.Exchange());
  EXPECT_EQ(file.packets[4].Body().size(), sizeof(KelRequestReply));

  const sim::Response response(file.packets[5].Body());
  EXPECT_EQ(response.header.handle, 3u);
  EXPECT_EQ(response.PayloadValues(), (sim::Values{7, 8, 9}));
  EXPECT_EQ(file.packets[7].Status(), L5_RESULT_USER_REQUESTED_DISCONNECT);
  EXPECT_EQ(file.packets[7].comment, "its owner closed the connection");
}

TEST_F(CaptureTest, TheFileIsCompleteWhenTheLastConnectionIsClosed) {
  for (int round = 1; round <= 3; ++round) {
    { Client client; }
    const CaptureFile file = Captured();
    EXPECT_EQ(file.packets.size(), 5u * static_cast<unsigned>(round));
    EXPECT_EQ(file.received, file.packets.size());
    EXPECT_EQ(file.packets.back().Connection(), static_cast<unsigned>(round));
  }
}

TEST_F(CaptureTest, TimesNeverGoBackAndAreThoseOfTheWallClock) {
  const auto before = std::chrono::system_clock::now() - std::chrono::seconds(60);
  {
    Client client;
    for (int i = 0; i < 100; ++i) client.Send(kDebugVal, {1, 2, 3});
  }
  const CaptureFile file = Captured();
  EXPECT_TRUE(std::is_sorted(file.packets.begin(), file.packets.end(),
                             [](const auto& a, const auto& b) { return a.time < b.time; }));
  const auto time = std::chrono::system_clock::time_point(
      std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::nanoseconds(file.packets[0].time)));
  EXPECT_GT(time, before);
  EXPECT_LT(time, std::chrono::system_clock::now() + std::chrono::seconds(60));
}

TEST_F(CaptureTest, AResponseAheadOfTheReplyIsSeenThere) {
  SluiceHubSimRule rule{};
  rule.flags = SLUICEHUBSIM_BEFORE_REPLY;
  SluiceHubSim_AddRule(&rule);
  {
    Client client;
    client.Send(kDebugVal, {1, 2, 3});
  }
  const auto kinds = Captured().Kinds();
  EXPECT_EQ(std::vector(kinds.begin() + 3, kinds.begin() + 6), (std::vector{kRequest, kMessage, kReply}));
}

TEST_F(CaptureTest, TheRuleThatHeldIsTold) {
  SluiceHubSimRule rule{};
  rule.flags = SLUICEHUBSIM_DROP;
  rule.delayMs = 200;
  EXPECT_EQ(ReplyUnder(rule).comment, "rule 1: no response, 200 ms late");
}

TEST_F(CaptureTest, ARefusalHasItsStatusAndNoBody) {
  SluiceHubSimRule rule{};
  rule.sendStatus = 9;
  const CapturedPacket reply = ReplyUnder(rule);
  EXPECT_EQ(reply.Status(), 9u);
  EXPECT_TRUE(reply.Body().empty());
  EXPECT_EQ(reply.comment, "rule 1: send status 9");
}

TEST_F(CaptureTest, AReplyThatTellsMoreBytesThanItHasIsCaptured) {
  const SluiceHubSimSocketReply socket{
      .acquireStatus = 0, .replyID = 1001, .replySize = 90, .socketID = 4, .releaseStatus = 0};
  SluiceHubSim_SetSocketReply(&socket);
  { Client client; }
  const CapturedPacket reply = Captured().packets.at(2);
  EXPECT_EQ(reply.Body().size(), sizeof(KelRequestReply));
  EXPECT_EQ(reply.originalSize, 24u + 90u);
}

TEST_F(CaptureTest, ForcedResultsAreSeen) {
  {
    Client client;
    SluiceHubSim_ForceResult(SLUICEHUBSIM_SEND_RECEIVE, 5);
    client.Send(kDebugVal, {1, 2, 3});
    SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 6);
    std::uint64_t none = 0;
    sim::L5().L5Connect(nullptr, nullptr, nullptr, nullptr, 0, &none);
    SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_DISCONNECT, 7);
    sim::L5().L5Disconnect(client.Connection());
    SluiceHubSim_Reset();
  }
  const CaptureFile file = Captured();
  const auto status = [&](std::size_t i) { return file.packets.at(i).Status(); };
  EXPECT_EQ(file.packets.at(4).comment, "forced result");
  EXPECT_EQ(status(4), 5u);
  EXPECT_EQ(status(5), 6u);
  EXPECT_EQ(file.packets.at(5).Connection(), 0u);
  EXPECT_EQ(status(6), 7u);
  EXPECT_EQ(status(7), 0u);
}

TEST_F(CaptureTest, ALostLinkIsSeenOnBothSides) {
  {
    Client client;
    SluiceHubSim_LoseLink(0, 42, 1);
    client.Send(kDebugVal, {1, 2, 3});
  }
  const CaptureFile file = Captured();
  EXPECT_EQ(file.Kinds(), (std::vector{kConnect, kRequest, kReply, kEvent, kRequest, kReply, kDisconnect, kEvent}));
  EXPECT_EQ(file.packets.at(3).Status(), 42u);
  EXPECT_EQ(file.packets.at(3).comment, "the link was lost");
  EXPECT_EQ(file.packets.at(5).Status(), SLUICEHUBSIM_STATUS_LINK_LOST);
}

TEST_F(CaptureTest, AClosedConnectionIsNone) {
  Client client;
  client.Disconnect();
  client.Send(kDebugVal, {1, 2, 3});
  {
    Client other;  // its end has the file written
  }
  const CaptureFile file = Captured();
  EXPECT_EQ(file.packets.at(5).Connection(), 0u);
  EXPECT_EQ(file.packets.at(6).Status(), SLUICEHUBSIM_STATUS_NO_CONNECTION);
}

TEST_F(CaptureTest, AHandlerMayCloseTheLastConnection) {
  Client client;
  client.WhenMessageComes([&] { sim::L5().L5Disconnect(client.Connection()); });
  client.Send(kStreamer, {1000, 0, 0});
  client.WaitForResponses(1);
  EXPECT_EQ(Captured().Kinds().back(), kEvent);
}

TEST_F(CaptureTest, ManyThreadsAreCapturedWhileConnectionsComeAndGo) {
  constexpr std::size_t kThreads = 4, kRounds = 25, kRequests = 20;
  std::vector<std::thread> threads;
  for (std::size_t row = 0; row < kThreads; ++row) {
    threads.emplace_back([row] {
      for (std::size_t round = 0; round < kRounds; ++round) {
        Client client(static_cast<std::uint8_t>(row));
        for (std::size_t i = 0; i < kRequests; ++i) client.Send(kDebugVal, {1, 2, 3});
      }
    });
  }
  for (auto& thread : threads) thread.join();
  const CaptureFile file = Captured();
  const auto kinds = file.Kinds();
  const auto count = [&](sim::CaptureKind kind) {
    return static_cast<std::size_t>(std::count(kinds.begin(), kinds.end(), kind));
  };
  EXPECT_EQ(count(kConnect), kThreads * kRounds);
  EXPECT_EQ(count(kDisconnect), kThreads * kRounds);
  EXPECT_EQ(count(kEvent), kThreads * kRounds);
  EXPECT_EQ(count(kRequest), kThreads * kRounds * (1 + kRequests));
  EXPECT_EQ(count(kReply), count(kRequest));
  EXPECT_EQ(file.received, file.packets.size());
}

TEST_F(CaptureTest, ThereIsOneCaptureInAProcess) {
  EXPECT_EQ(SluiceHubSim_StartCapture("other.pcapng"), 0u);
  EXPECT_FALSE(mFolder.has("other.pcapng"));
}

TEST(CaptureStart, ACaptureMayBeginWhileConnectionsAreOpen) {
  const ScratchDirectory folder;
  {
    Client client;
    ASSERT_EQ(SluiceHubSim_StartCapture(kFile), 1u);
    client.Send(kDebugVal, {1, 2, 3});
  }
  const CaptureFile file = ReadCapture(kFile);
  EXPECT_EQ(file.Kinds().front(), kRequest);
  EXPECT_EQ(file.packets.front().Connection(), 1u);
  EXPECT_EQ(file.Kinds().back(), kEvent);
}

TEST(CaptureStart, WithoutAFileToWriteToNothingElseChanges) {
  const ScratchDirectory folder;
  EXPECT_EQ(SluiceHubSim_StartCapture("no_such_folder/some.pcapng"), 0u);
  Client client;
  EXPECT_EQ(client.Exchange(kDebugVal, {7, 8, 9}).PayloadValues(), (sim::Values{7, 8, 9}));
}

TEST(CaptureEnd, AProcessMayEndInTheMidstOfACapture) {
  const ScratchDirectory folder;
  ASSERT_EQ(SluiceHubSim_StartCapture(kFile), 1u);
  auto* client = new Client;
  client->LeaveOpen();
  client->Send(kStreamer, {1000000000, 0, 0});
  EXPECT_GE(client->WaitForResponses(10).size(), 10u);
}

}  // namespace
}  // namespace kel::test
