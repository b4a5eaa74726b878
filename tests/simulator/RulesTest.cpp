// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "Client.h"

namespace kel::sim {
namespace {

SluiceHubSimRule RuleFor(std::uint32_t TUI) {
  SluiceHubSimRule rule{};
  rule.tui = TUI;
  rule.tuiMask = SLUICEHUBSIM_EXACT;
  return rule;
}

SluiceHubSimRule Answering(const Bytes& data, std::uint32_t flags = SLUICEHUBSIM_DATA) {
  SluiceHubSimRule rule{};
  rule.flags = flags;
  rule.data = data.data();
  rule.dataSize = static_cast<std::uint32_t>(data.size());
  return rule;
}

/// The sequence bytes of the first messages, in the order in which they came.
Values SequenceBytes(Client& client, std::size_t count) {
  Values bytes;
  for (const Response& response : client.WaitForResponses(count)) bytes.push_back(response.SequenceByte());
  return bytes;
}

TEST(Rules, ARuleOfZerosChangesNothing) {
  const SluiceHubSimRule rule{};
  const std::uint32_t number = SluiceHubSim_AddRule(&rule);
  Client client;
  EXPECT_EQ(client.Exchange(kDebugVal, {1, 2, 3}).PayloadValues(), (Values{1, 2, 3}));
  EXPECT_EQ(SluiceHubSim_RuleUses(number), 1u);
  SluiceHubSim_ClearRules();
  EXPECT_EQ(SluiceHubSim_RuleUses(number), 0u);
}

TEST(Rules, HoldForTheirTaskOnly) {
  SluiceHubSimRule rule = RuleFor(kDebugVal);
  rule.errorCode = 9;
  SluiceHubSim_AddRule(&rule);
  Client client;
  EXPECT_EQ(client.Exchange(kDebugRef, {1, 2, 3}).head.errorCode, 0u);
  EXPECT_EQ(client.Exchange(kDebugVal, {1, 2, 3}).head.errorCode, 9u);
}

TEST(Rules, AMaskChoosesTasksByTheirTarget) {
  SluiceHubSimRule rule{};
  rule.tui = 8 << 12;
  rule.tuiMask = 0xF000;
  rule.errorCode = 9;
  SluiceHubSim_AddRule(&rule);
  Client client;
  EXPECT_EQ(client.Exchange(0x12000, {}).head.errorCode, 0u);
  EXPECT_EQ(client.Exchange(kDebugVal, {}).head.errorCode, 9u);
}

TEST(Rules, LetTheFirstRequestsPassAndHoldForSoMany) {
  SluiceHubSimRule rule{};
  rule.skip = 1;
  rule.times = 2;
  rule.replyID = 7;
  const std::uint32_t number = SluiceHubSim_AddRule(&rule);
  const Client client;
  Values replies;
  for (int i = 0; i < 4; ++i) replies.push_back(client.Send(kDebugVal, {1, 2, 3}).ID);
  EXPECT_EQ(replies, (Values{0, 7, 7, 0}));
  EXPECT_EQ(SluiceHubSim_RuleUses(number), 2u);
}

TEST(Rules, TheFirstThatFitsWins) {
  SluiceHubSimRule first{};
  first.times = 1;
  first.replyID = 1;
  SluiceHubSimRule second{};
  second.replyID = 2;
  SluiceHubSim_AddRule(&first);
  SluiceHubSim_AddRule(&second);
  const Client client;
  EXPECT_EQ(client.Send(kDebugVal, {}).ID, 1u);
  EXPECT_EQ(client.Send(kDebugVal, {}).ID, 2u);
}

TEST(Rules, ARefusedRequestDoesNotReachTheDevice) {
  Client client;
  SluiceHubSimRule rule{};
  rule.times = 1;
  rule.sendStatus = 42;
  SluiceHubSim_AddRule(&rule);
  rule = {};
  rule.times = 1;
  rule.L4status = 6;
  rule.L4error = 1234;
  SluiceHubSim_AddRule(&rule);
  EXPECT_EQ(client.Send(0x981A1, Bytes(256, 1)).status, 42u);
  const auto reply = client.Send(0x981A1, Bytes(256, 1));
  EXPECT_EQ(reply.body.L4status, 6);
  EXPECT_EQ(reply.body.errorWord, 1234u);
  EXPECT_EQ(client.Exchange(0x181A0, Values{}).payload, Bytes(256));
}

TEST(Rules, AnErrorWordOrTheUpperHalfOfTheL4StatusRefuseNothing) {
  SluiceHubSimRule rule{};
  rule.L4status = 0x10000;
  rule.L4error = 5;
  SluiceHubSim_AddRule(&rule);
  Client client;
  const auto reply = client.Send(kDebugVal, {1, 2, 3});
  EXPECT_EQ(reply.body.L4status, 0);
  EXPECT_EQ(reply.body.other2[0], 1);
  EXPECT_EQ(client.WaitForResponses(1).size(), 1u);
}

TEST(Rules, ReplacePayloadTypeAndClass) {
  const Bytes data{9, 8, 7};
  SluiceHubSimRule rule = Answering(data, SLUICEHUBSIM_DATA | SLUICEHUBSIM_TYPE | SLUICEHUBSIM_CLASS);
  rule.type = 2;
  rule.seqClass = 3;
  SluiceHubSim_AddRule(&rule);
  Client client;
  const Response response = client.Exchange(kDebugVal, {1, 2, 3});
  EXPECT_EQ(response.payload, data);
  EXPECT_EQ(response.Type(), 2u);
  EXPECT_EQ(response.SequenceByte(), 1u + 192);
}

TEST(Rules, AnswerForATaskThatTheDeviceDoesNotKnow) {
  const Bytes data{1};
  const SluiceHubSimRule rule = Answering(data);
  SluiceHubSim_AddRule(&rule);
  Client client;
  EXPECT_EQ(client.Exchange(0x12345, Bytes{}).payload, data);
}

TEST(Rules, DeliverABodyThatIsNoResponse) {
  const Bytes data{1, 2, 3};
  const SluiceHubSimRule rule = Answering(data, SLUICEHUBSIM_BODY | SLUICEHUBSIM_BEFORE_REPLY);
  SluiceHubSim_AddRule(&rule);
  Client client;
  client.Send(kDebugVal, {});
  EXPECT_EQ(client.Messages().at(0).body, data);
}

TEST(Rules, ADroppedResponseDoesNotComeButTheDeviceActs) {
  SluiceHubSimRule rule = RuleFor(0x981A1);
  rule.flags = SLUICEHUBSIM_DROP;
  SluiceHubSim_AddRule(&rule);
  Client client;
  EXPECT_EQ(client.Send(0x981A1, Bytes(256, 1)).status, 0u);
  EXPECT_EQ(client.Exchange(0x181A0, Values{}).payload, Bytes(256, 1));
}

TEST(Rules, ADelayedResponseLetsOthersPass) {
  SluiceHubSimRule rule = RuleFor(kDebugVal);
  rule.delayMs = 100;
  SluiceHubSim_AddRule(&rule);
  Client client;
  const auto start = std::chrono::steady_clock::now();
  client.Send(kDebugVal, {}, 1);
  client.Send(kDebugRef, Bytes{}, 2);
  EXPECT_EQ(SequenceBytes(client, 2), (Values{2, 1}));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
}

TEST(Rules, AResponseCanComeBeforeSendReceiveMessageReturns) {
  SluiceHubSimRule rule{};
  rule.flags = SLUICEHUBSIM_BEFORE_REPLY;
  SluiceHubSim_AddRule(&rule);
  Client client;
  for (std::size_t i = 1; i <= 100; ++i) {
    client.Send(kDebugVal, {});
    EXPECT_EQ(client.Messages().size(), i);
  }
}

TEST(Rules, AHandlersOwnRequestDoesNotWaitForItsResponse) {
  SluiceHubSimRule rule{};
  rule.flags = SLUICEHUBSIM_BEFORE_REPLY;
  SluiceHubSim_AddRule(&rule);
  Client client;
  bool first = true;
  client.WhenMessageComes([&] {
    if (std::exchange(first, false)) client.Send(kDebugVal, {}, 2);
  });
  client.Send(kDebugVal, {}, 1);
  EXPECT_EQ(SequenceBytes(client, 2), (Values{1, 2}));
}

TEST(Rules, CopiesFollowTheResponse) {
  SluiceHubSimRule rule{};
  rule.copies = 2;
  SluiceHubSim_AddRule(&rule);
  Client client;
  client.Send(kDebugVal, {1, 2, 3}, 4);
  EXPECT_EQ(SequenceBytes(client, 3), (Values{4, 4, 4}));
}

TEST(Rules, AResponseHeldBackComesAfterSoManyLaterOnes) {
  SluiceHubSimRule rule{};
  rule.times = 1;
  rule.holdBack = 2;
  SluiceHubSim_AddRule(&rule);
  Client client;
  for (std::uint8_t number = 1; number <= 4; ++number) {
    client.Send(kDebugVal, {}, number);
    EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
  }
  EXPECT_EQ(SequenceBytes(client, 4), (Values{2, 3, 1, 4}));
}

TEST(Rules, ResponsesHeldBackGoWithTheirConnection) {
  SluiceHubSimRule rule{};
  rule.holdBack = 1;
  SluiceHubSim_AddRule(&rule);
  Client client;
  client.Send(kDebugVal, {});
  EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
  client.Disconnect();
  EXPECT_TRUE(client.Messages().empty());
}

TEST(Rules, MakeAStreamOfAnyTask) {
  SluiceHubSimRule rule{};
  rule.flags = SLUICEHUBSIM_STREAM;
  rule.streamCount = 2;
  rule.streamPayloadSize = 100000;
  rule.streamAfterEnd = 1;
  SluiceHubSim_AddRule(&rule);
  Client client;
  client.Send(kDebugVal, {1, 2, 3}, 1);
  EXPECT_EQ(SequenceBytes(client, 5), (Values{1, 65, 65, 129, 65}));
  const Response message = client.WaitForResponses(2)[1];
  EXPECT_EQ(message.Type(), kTypeRef);
  EXPECT_EQ(message.payload.size(), 100000u);
}

TEST(Rules, AStreamMayEndBeforeItsAcknowledgement) {
  SluiceHubSimRule rule{};
  rule.flags = SLUICEHUBSIM_STREAM | SLUICEHUBSIM_ACK_LAST;
  rule.streamCount = 1;
  SluiceHubSim_AddRule(&rule);
  Client client;
  client.Send(kStreamer, {}, 1);
  EXPECT_EQ(SequenceBytes(client, 3), (Values{65, 129, 1}));
}

TEST(Rules, AStreamMayHaveNoEnd) {
  SluiceHubSimRule rule{};
  rule.flags = SLUICEHUBSIM_NO_END;
  SluiceHubSim_AddRule(&rule);
  Client client;
  client.Send(kStreamer, {2, 0, 0}, 1);
  EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
  EXPECT_EQ(SequenceBytes(client, 3), (Values{1, 65, 65}));
}

}  // namespace
}  // namespace kel::sim
