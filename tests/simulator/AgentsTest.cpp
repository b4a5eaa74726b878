// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "Client.h"

namespace kel::sim {
namespace {

TEST(KelProxyAgent, HandsOutTheLowestFreeSocket) {
  const Client first;
  const Client second;
  EXPECT_EQ(first.socketID, 0);
  EXPECT_EQ(second.socketID, 1);
  EXPECT_EQ(first.ReleaseSocket(0), 0u);
  EXPECT_EQ(second.AcquireSocket(), 0);
  EXPECT_EQ(second.AcquireSocket(), 2);
}

TEST(KelProxyAgent, TheTwoHundredAndFiftySixthSocketIsNone) {
  const Client client;
  for (int i = 1; i < 255; ++i) EXPECT_EQ(client.AcquireSocket(), i);
  EXPECT_EQ(client.AcquireSocket(), kNoSocket);
  client.ReleaseSocket(200);
  EXPECT_EQ(client.AcquireSocket(), 200);
}

TEST(KelProxyAgent, ASocketOfAnotherConnectionIsNotTakenBack) {
  const Client owner;
  const Client other;
  EXPECT_EQ(other.ReleaseSocket(owner.socketID), 0u);
  EXPECT_EQ(other.AcquireSocket(), 2);
}

TEST(KelProxyAgent, ADisconnectFreesTheSocketsOfItsConnection) {
  std::make_unique<Client>().reset();
  EXPECT_EQ(Client().socketID, 0);
}

TEST(KelProxyAgent, RefusesWhatItDoesNotKnow) {
  const Client client;
  EXPECT_EQ(client.Ask(L5_AGENT_KELPROXY, 999, {1}).ID, SLUICEHUBSIM_REPLY_UNKNOWN_MESSAGE);
  EXPECT_EQ(client.Ask(L5_AGENT_KELPROXY, KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID, {}).ID, SLUICEHUBSIM_REPLY_MALFORMED);
  EXPECT_EQ(client.Ask(L5_AGENT_KELPROXY, KEL_PROXY_L5_MSG_ID_RELEASE_SOCKET_ID_INDICATION, {1, 2}).status,
            SLUICEHUBSIM_STATUS_BAD_ARGUMENT);
}

TEST(L4msgProxy, TakesARequestWithAReplyOfZeros) {
  const Client client;
  const auto reply = client.Send(kDebugVal, {1, 2, 3});
  EXPECT_EQ(reply.status, 0u);
  EXPECT_EQ(reply.ID, 0u);
  EXPECT_EQ(reply.size, 24u);
  const KelRequestReply zeros{};
  EXPECT_EQ(std::memcmp(&reply.body, &zeros, sizeof zeros), 0);
}

TEST(L4msgProxy, TheResponseIsForTheAdapterRowAndTheSequenceOfTheRequest) {
  Client client(7);
  client.Send(kDebugVal, {1, 2, 3}, 63);
  const auto responses = client.WaitForResponses(1);
  ASSERT_EQ(responses.size(), 1u);
  EXPECT_EQ(client.Messages()[0].ID, KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION);
  EXPECT_EQ(responses[0].header.handle, 7);
  EXPECT_EQ(responses[0].head.TUI, MakeSeqTUI(kDebugVal, 63));
  EXPECT_EQ(responses[0].head.seqTUI, (MakeSeqTUI(kDebugVal, 63) & ~0xFFu) | client.socketID);
  EXPECT_EQ(responses[0].head.errorCode, 0u);
  EXPECT_EQ(responses[0].head.payloadSize, 12u);
}

TEST(L4msgProxy, ARequestThatExpectsNoResponseGetsNone) {
  Client client;
  client.Send(kDebugVal, {1, 2, 3}, 1, 0);
  EXPECT_EQ(client.Exchange(kDebugVal, {4, 5, 6}).PayloadValues(), (Values{4, 5, 6}));
}

TEST(L4msgProxy, AnUnknownTaskIsRefusedByTheL4Adapter) {
  Client client;
  const auto reply = client.Send(0x12345, {1, 2, 3});
  EXPECT_EQ(reply.ID, 0u);
  EXPECT_EQ(reply.body.L4status, SLUICEHUBSIM_L4_UNKNOWN_TASK);
  EXPECT_EQ(reply.body.errorWord, SLUICEHUBSIM_L4_ERROR_UNKNOWN_TASK);
  EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
  EXPECT_TRUE(client.Messages().empty());
}

TEST(L4msgProxy, APayloadOf64KiBAndMoreComesBackWhole) {
  Client client;
  for (const std::size_t size : {65520u, 65536u, 1000003u}) {
    Bytes payload(size);
    for (std::size_t i = 0; i < size; ++i) payload[i] = static_cast<std::uint8_t>(i * 7);
    EXPECT_EQ(client.Exchange(kDebugRef, payload).payload, payload);
  }
}

TEST(L4msgProxy, ARequestOfAnotherSizeThanItTellsIsMalformed) {
  const Client client;
  const Bytes whole = Client::RequestBody(kDebugVal, ToBytes(Values{1, 2, 3}), 0, 1);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(client.Ask(L5_AGENT_L4MSGPROXY, 1, cut).ID, SLUICEHUBSIM_REPLY_MALFORMED) << size;
  }
  Bytes longer = whole;
  longer.push_back(0);
  EXPECT_EQ(client.Ask(L5_AGENT_L4MSGPROXY, 1, longer).ID, SLUICEHUBSIM_REPLY_MALFORMED);
  EXPECT_EQ(client.Ask(L5_AGENT_L4MSGPROXY, 2, whole).ID, SLUICEHUBSIM_REPLY_UNKNOWN_MESSAGE);
}

TEST(L4msgProxy, AnyBytesAreAnsweredAndNoneReadBeyondTheEnd) {
  // Changed bytes can name any task. The one that costs the link is refused here.
  SluiceHubSimRule shutdown{};
  shutdown.tui = 0x38280;
  shutdown.tuiMask = SLUICEHUBSIM_EXACT;
  shutdown.replyID = 1;
  SluiceHubSim_AddRule(&shutdown);
  Client client;
  std::mt19937 generator(1);
  const auto random = [&] { return static_cast<std::uint32_t>(generator()); };
  for (int i = 0; i < 20000; ++i) {
    Bytes body = Client::RequestBody(kDebugVal, Bytes(random() % 40), random(), 1);
    const int changes = static_cast<int>(random() % 4);
    for (int change = 0; change < changes; ++change) body[random() % body.size()] = static_cast<std::uint8_t>(random());
    body.resize(body.size() - random() % 3);
    body.shrink_to_fit();
    EXPECT_EQ(client.Ask(L5_AGENT_L4MSGPROXY, 1, body).status, 0u);
  }
}

}  // namespace
}  // namespace kel::sim
