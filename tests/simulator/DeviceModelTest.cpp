// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>

#include "Client.h"

namespace kel::sim {
namespace {

constexpr std::uint32_t kPathGet = 0x160C0;
constexpr std::uint32_t kPathSet = 0x960C1;
constexpr std::uint32_t kStatisticsGet = 0x18140;
constexpr std::uint32_t kStatisticsReset = 0x18141;
constexpr std::uint32_t kSeveritiesGet = 0x181A0;
constexpr std::uint32_t kSeveritiesSet = 0x981A1;
constexpr std::uint32_t kUids = 0x18100;
constexpr std::uint32_t kStreamOpen = 0x282A0;
constexpr std::uint32_t kStreamClose = 0x282A1;
constexpr std::uint32_t kShutdown = 0x38280;
constexpr std::uint32_t kUmacInit = 0x38281;

const Values kZeros{0, 0, 0};

/// The TUIs of the built-in task table.
const Values kAllTasks{0x96000, 0x160C0, 0x960C1, 0xB4160, 0x34161, 0x34162, 0x341A0, 0x341A1, 0x341A2, 0xB41A3,
                       0x241A4, 0x14180, 0x14181, 0x94182, 0x14183, 0x14184, 0x14185, 0x14186, 0x341E0, 0x12020,
                       0x32060, 0x12040, 0x92041, 0x12000, 0xB8340, 0x18140, 0x18141, 0x98180, 0x18181, 0x181A0,
                       0x981A1, 0x18100, 0x18101, 0x18120, 0xB81E0, 0x381E1, 0x381E2, 0x38240, 0xB8241, 0x38242,
                       0x38243, 0x28244, 0x28260, 0x28261, 0x28262, 0x282A0, 0x282A1, 0xB8320, 0x38280, 0x38281};

TEST(DeviceModel, AnswersEveryTaskOfTheBuiltInTable) {
  ASSERT_EQ(kAllTasks.size(), 50u);
  for (const std::uint32_t TUI : kAllTasks) {
    Client client;
    const Response response = client.Exchange(TUI, kZeros);
    EXPECT_EQ(response.head.TUI & 0xE7FFFF, TUI & 0xE7FFFF) << std::hex << TUI;
    EXPECT_EQ(response.SequenceByte(), 1u);
  }
}

TEST(DeviceModel, RemembersTheTracePath) {
  Client client;
  EXPECT_EQ(client.Exchange(kPathGet, kZeros).Type(), kTypeRef);
  const Response set = client.Exchange(kPathSet, ToBytes("traces/today"));
  EXPECT_EQ(set.Type(), 0u);
  EXPECT_EQ(set.PayloadValues(), kZeros);
  EXPECT_EQ(client.Exchange(kPathGet, kZeros).payload, ToBytes("traces/today"));
  client.Exchange(kPathSet, Bytes{'a', 'b'});
  EXPECT_EQ(client.Exchange(kPathGet, kZeros).payload, ToBytes("ab"));
}

TEST(DeviceModel, RemembersThe256Severities) {
  Client client;
  EXPECT_EQ(client.Exchange(kSeveritiesGet, kZeros).payload, Bytes(256));
  const Response set = client.Exchange(kSeveritiesSet, Bytes(256, 5));
  EXPECT_EQ(set.Type(), 0u);
  EXPECT_EQ(set.PayloadValues(), kZeros);
  EXPECT_EQ(client.Exchange(kSeveritiesSet, Bytes(255, 6)).PayloadValues()[0], 1u);
  const Response get = client.Exchange(kSeveritiesGet, kZeros);
  EXPECT_EQ(get.Type(), kTypeRef);
  EXPECT_EQ(get.payload, Bytes(256, 5));
}

TEST(DeviceModel, CountsRequestsUntilTheStatisticsAreReset) {
  Client client;
  client.Send(kAllTasks[0], kZeros, 0, 0);
  client.Send(kAllTasks[0], kZeros, 0, 0);
  const Response get = client.Exchange(kStatisticsGet, kZeros);
  EXPECT_EQ(get.Type(), kTypeRef);
  ASSERT_EQ(get.PayloadValues().size(), 51u);
  EXPECT_EQ(get.PayloadValues()[0], 3u);
  EXPECT_EQ(get.PayloadValues()[1], 2u);
  const Response reset = client.Exchange(kStatisticsReset, kZeros);
  EXPECT_EQ(reset.Type(), 0u);
  EXPECT_EQ(reset.PayloadValues(), kZeros);
  EXPECT_EQ(client.Exchange(kStatisticsGet, kZeros).PayloadValues()[0], 1u);
}

TEST(DeviceModel, ReportsOneGenerationUID) {
  Client client;
  EXPECT_EQ(client.Exchange(kUids, kZeros).PayloadValues(), (Values{1144315543, 0, 0, 0}));
}

TEST(DeviceModel, DebugTasksEchoWhateverThePayload) {
  Client client;
  EXPECT_EQ(client.Exchange(kDebugVal, {7, 8, 9}).PayloadValues(), (Values{7, 8, 9}));
  EXPECT_EQ(client.Exchange(kDebugRef, Bytes{1, 2, 3, 4, 5}).payload, (Bytes{1, 2, 3, 4, 5}));
  EXPECT_EQ(client.Exchange(kDebugRef, Bytes{}).payload, Bytes{});
}

TEST(DeviceModel, OtherValTasksAnswerZeroAndKeepTheOtherValues) {
  Client client;
  EXPECT_EQ(client.Exchange(kUmacInit, {7, 8, 9}).PayloadValues(), (Values{0, 8, 9}));
  EXPECT_EQ(client.Exchange(kUmacInit, Bytes{1}).PayloadValues(), kZeros);
}

TEST(DeviceModel, AShutdownIsAnsweredBeforeTheLinkIsLost) {
  Client client;
  EXPECT_EQ(client.Exchange(kShutdown, {7, 8, 9}).PayloadValues(), (Values{0, 8, 9}));
  EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
  EXPECT_EQ(client.Events().at(0).reason, SLUICEHUBSIM_REASON_SHUTDOWN);
  EXPECT_EQ(client.Send(kUmacInit, kZeros).status, SLUICEHUBSIM_STATUS_LINK_LOST);
}

TEST(DeviceModel, AStreamIsAcknowledgedRunsAndEnds) {
  Client client;
  client.Send(kStreamer, {3, 1, 0}, 5);
  const auto responses = client.WaitForResponses(5);
  ASSERT_EQ(responses.size(), 5u);
  EXPECT_EQ(responses[0].SequenceByte(), 5u);
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(responses[1 + i].SequenceByte(), 5u + 64);
    EXPECT_EQ(responses[1 + i].PayloadValues(), (Values{i, 3, 1}));
  }
  EXPECT_EQ(responses[4].SequenceByte(), 5u + 128);
}

TEST(DeviceModel, AStreamOfNoTellingLengthHasFiveMessages) {
  Client client;
  client.Send(kStreamer, kZeros);
  EXPECT_EQ(client.WaitForResponses(7).back().SequenceByte(), 1u + 128);
}

TEST(DeviceModel, AStreamStartsEvenIfNoResponseIsExpected) {
  Client client;
  client.Send(kStreamer, {1, 0, 0}, 0, 0);
  EXPECT_EQ(client.WaitForResponses(3).size(), 3u);
}

TEST(DeviceModel, AStreamWithoutIntervalKeepsNothingElseWaiting) {
  Client client;
  client.Send(kStreamer, {1000000000, 0, 0}, 5);
  SluiceHubSimRule rule{};
  rule.flags = SLUICEHUBSIM_BEFORE_REPLY;
  SluiceHubSim_AddRule(&rule);
  client.Send(kDebugVal, {1, 2, 3}, 6);
  const auto responses = client.WaitForResponses(1);
  EXPECT_TRUE(std::any_of(responses.begin(), responses.end(),
                          [](const Response& response) { return response.SequenceByte() == 6; }));
}

TEST(DeviceModel, ClosingAChiplabStreamEndsIt) {
  Client client;
  client.Send(kStreamOpen, {1000, 3600000, 0}, 5);
  client.WaitForResponses(2);
  client.Send(kStreamClose, kZeros, 6);
  const auto responses = client.WaitForResponses(4);
  ASSERT_EQ(responses.size(), 4u);
  EXPECT_EQ(responses[2].SequenceByte() + responses[3].SequenceByte(), 5u + 128 + 6);
  EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
}

TEST(DeviceModel, BroadcastsComeToTheConnectionThatAskedForThem) {
  Client client;
  Client other;
  client.Send(kBroadcaster, {2, 1, 0}, 5);
  const auto responses = client.WaitForResponses(3);
  ASSERT_EQ(responses.size(), 3u);
  EXPECT_EQ(responses[0].SequenceByte(), 5u);
  for (std::uint32_t i = 0; i < 2; ++i) {
    EXPECT_EQ(responses[1 + i].head.TUI, (kBroadcaster & ~0xF000u) | 0x5000u);
    EXPECT_EQ(responses[1 + i].PayloadValues(), (Values{i, 2, 1}));
  }
  EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
  EXPECT_EQ(client.Messages().size(), 3u);
  EXPECT_TRUE(other.Messages().empty());
}

}  // namespace
}  // namespace kel::sim
