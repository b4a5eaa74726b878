// SPDX-License-Identifier: MIT
// What a scenario in the working directory does to the stand-in, seen on the L5 layer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "simulator/Client.h"
#include "support/scratch_directory.h"

namespace kel::sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;

class RunningTest : public testing::Test {
 protected:
  void Put(const std::string& scenario) { mFolder.write("SluiceHub.json", scenario); }

  kel::test::ScratchDirectory mFolder;
};

/// Which of so many requests are answered, one after the other.
std::vector<int> Answered(Client& client, int requests) {
  std::vector<int> answered;
  for (int i = 1; i <= requests; ++i) {
    const std::size_t before = client.Messages().size();
    client.Send(kDebugVal, {});
    EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
    if (client.Messages().size() != before) answered.push_back(i);
  }
  return answered;
}

std::uint32_t ConnectStatus() { return Client().ConnectStatus(); }

TEST_F(RunningTest, RulesHoldOneAfterTheOther) {
  Put(R"({"rules": [{"task": "0x38240", "times": 1, "reply": {"values": [7, 8, 9]}},
                    {"task": "0x38240", "times": 1, "reply": "state"},
                    {"task": "0x38240", "reply": {"text": "later"}}]})");
  Client client;
  EXPECT_EQ(client.Exchange(kDebugVal, {1, 2, 3}).PayloadValues(), (Values{7, 8, 9}));
  EXPECT_EQ(client.Exchange(kDebugVal, {1, 2, 3}).PayloadValues(), (Values{1, 2, 3}));
  const Response third = client.Exchange(kDebugVal, {1, 2, 3});
  EXPECT_EQ(third.payload, ToBytes("later"));
  EXPECT_EQ(third.Type(), kTypeRef);
  EXPECT_EQ(client.Exchange(kDebugRef, Values{4}).PayloadValues(), (Values{4}));
}

TEST_F(RunningTest, AnEchoTakesThePlaceOfTheDevicesAnswer) {
  Put(R"({"rules": [{"reply": "echo"}]})");
  Client client;
  const std::uint32_t versions = 0x12000, unknown = 0x12345;
  EXPECT_EQ(client.Exchange(versions, {1, 2, 3}).PayloadValues(), (Values{1, 2, 3}));
  EXPECT_EQ(client.Exchange(unknown, {1, 2, 3}).PayloadValues(), (Values{1, 2, 3}));
}

TEST_F(RunningTest, JitterMakesADelayLongerWithinItsBounds) {
  Put(R"({"rules": [{"delay": 20, "jitter": 20}]})");
  Client client;
  const auto start = steady_clock::now();
  client.Exchange(kDebugVal, {});
  EXPECT_GE(steady_clock::now() - start, milliseconds(20));
}

TEST_F(RunningTest, EveryThirdResponseIsDropped) {
  Put(R"({"rules": [{"drop": {"every": 3}}]})");
  Client client;
  EXPECT_THAT(Answered(client, 7), ElementsAre(1, 2, 4, 5, 7));
}

TEST_F(RunningTest, AProbabilityOfOneDropsAllAndOneOfZeroNone) {
  Put(R"({"rules": [{"times": 3, "drop": {"probability": 1}}, {"drop": {"probability": 0}}]})");
  Client client;
  EXPECT_THAT(Answered(client, 5), ElementsAre(4, 5));
}

// MT19937 of seed 42 gives 2^31 or more for these six of its first twelve numbers, on each platform.
TEST_F(RunningTest, TheSameSeedDropsTheSameResponses) {
  Put(R"({"seed": 42, "rules": [{"drop": {"probability": 0.5}}]})");
  std::vector<int> first;
  {
    Client client;
    first = Answered(client, 12);
  }
  EXPECT_THAT(first, ElementsAre(2, 3, 5, 6, 7, 8));
  SluiceHubSim_Reset();
  Client client;
  EXPECT_EQ(Answered(client, 12), first);
}

TEST_F(RunningTest, RefusalsGiveTheirStatuses) {
  Put(R"({"rules": [{"times": 1, "refuse": {"sendStatus": 42}}, {"times": 1, "refuse": {"replyID": 7}},
                    {"times": 1, "refuse": {"L4status": 6, "L4error": 1234}}]})");
  const Client client;
  EXPECT_EQ(client.Send(kDebugVal, {}).status, 42u);
  EXPECT_EQ(client.Send(kDebugVal, {}).ID, 7u);
  const Client::Reply reply = client.Send(kDebugVal, {});
  EXPECT_EQ(reply.body.L4status, 6);
  EXPECT_EQ(reply.body.errorWord, 1234u);
  EXPECT_EQ(client.Send(kDebugVal, {}).body.L4status, 0);
}

/// Sequence bytes of the responses to one request.
Values SequenceBytesOf(Client& client, std::size_t count) {
  client.Send(kDebugVal, {}, 1);
  EXPECT_TRUE(SluiceHubSim_WaitIdle(10000));
  Values bytes;
  for (const Response& response : client.WaitForResponses(count)) bytes.push_back(response.SequenceByte());
  return bytes;
}

TEST_F(RunningTest, AStreamEndsBehindItsAcknowledgement) {
  Put(R"({"rules": [{"stream": {"count": 2}}]})");
  Client client;
  EXPECT_EQ(SequenceBytesOf(client, 4), (Values{1, 65, 65, 129}));
}

TEST_F(RunningTest, AStreamMayEndBeforeItsAcknowledgement) {
  Put(R"({"rules": [{"stream": {"count": 1, "end": "before ack"}}]})");
  Client client;
  EXPECT_EQ(SequenceBytesOf(client, 3), (Values{65, 129, 1}));
}

TEST_F(RunningTest, AStreamMayHaveNoEnd) {
  Put(R"({"rules": [{"stream": {"count": 1, "end": "none"}}]})");
  Client client;
  EXPECT_EQ(SequenceBytesOf(client, 2), (Values{1, 65}));
}

TEST_F(RunningTest, AStreamTakesItsTime) {
  Put(R"({"rules": [{"stream": {"count": 3, "interval": 10}}]})");
  Client client;
  const auto start = steady_clock::now();
  client.Send(kDebugVal, {}, 1);
  const auto responses = client.WaitForResponses(5);
  EXPECT_GE(steady_clock::now() - start, milliseconds(20));
  for (std::uint32_t n = 0; n < 3; ++n) EXPECT_EQ(responses.at(1 + n).PayloadValues(), (Values{n, 3, 10}));
}

TEST_F(RunningTest, AStreamMayHaveItsOwnPayload) {
  Put(R"({"rules": [{"times": 1, "stream": {"count": 1, "payload": {"hex": "0102"}}},
                    {"stream": {"count": 1, "payload": {"size": 20}}}]})");
  Client client;
  client.Send(kDebugVal, {}, 1);
  const Response own = client.WaitForResponses(3).at(1);
  EXPECT_EQ(own.payload, (Bytes{1, 2}));
  EXPECT_EQ(own.Type(), kTypeRef);
  client.Send(kDebugVal, {}, 2);
  EXPECT_EQ(client.WaitForResponses(6).at(4).payload.size(), 20u);
}

TEST_F(RunningTest, BroadcastsComeByThemselvesToEachConnection) {
  Put(R"({"broadcasts": [{"task": "0x38242", "at": 5, "every": 5, "count": 3},
                         {"task": "0x38242", "payload": {"values": [7, 8, 9]}}]})");
  for (int i = 0; i < 2; ++i) {
    const auto start = steady_clock::now();
    Client client;
    const auto broadcasts = client.WaitForResponses(4);
    EXPECT_GE(steady_clock::now() - start, milliseconds(15));
    ASSERT_EQ(broadcasts.size(), 4u);
    EXPECT_EQ(broadcasts[0].PayloadValues(), (Values{7, 8, 9}));
    for (std::uint32_t n = 0; n < 3; ++n) EXPECT_EQ(broadcasts[1 + n].PayloadValues(), (Values{n, 3, 5}));
    EXPECT_EQ(GetTuiTarget(broadcasts[0].head.TUI), kTargetBroadcast);
  }
}

TEST_F(RunningTest, BroadcastsAreNoStreamsThatTheDeviceCloses) {
  Put(R"({"broadcasts": [{"task": "TASK_ID_CHIPLAB_STREAM_OPEN", "at": 100}]})");
  const std::uint32_t closeStreams = 0x282A1;
  Client client;
  client.Send(closeStreams, {0, 0, 0});
  EXPECT_EQ(GetTuiTarget(client.WaitForResponses(2).at(1).head.TUI), kTargetBroadcast);
}

TEST_F(RunningTest, ALinkIsLostByTime) {
  Put(R"({"linkLosses": [{"skip": 1, "times": 1, "at": 30, "reason": 9}],
          "broadcasts": [{"task": 5, "at": 60000}]})");
  Client first, second, third;
  EXPECT_EQ(second.WaitForEvent().reason, 9u);
  EXPECT_EQ(second.Send(kDebugVal, {}).status, SLUICEHUBSIM_STATUS_LINK_LOST);
  EXPECT_EQ(first.Send(kDebugVal, {}).status, 0u);
  EXPECT_EQ(third.Send(kDebugVal, {}).status, 0u);
  EXPECT_TRUE(first.Events().empty());
}

TEST_F(RunningTest, ALinkIsLostAtARequestWhichIsNotAnswered) {
  Put(R"({"rules": [{"skip": 1, "times": 1, "loseLink": 3}]})");
  Client client;
  client.Exchange(kDebugVal, {});
  EXPECT_EQ(client.Send(kDebugVal, {}).status, 0u);
  EXPECT_EQ(client.WaitForEvent().reason, 3u);
  EXPECT_EQ(client.Messages().size(), 1u);
  EXPECT_EQ(client.Send(kDebugVal, {}).status, SLUICEHUBSIM_STATUS_LINK_LOST);
}

TEST_F(RunningTest, SocketsAreRefusedByTurns) {
  Put(R"({"socketRefusals": [{"skip": 1, "times": 1}]})");
  Client client;
  EXPECT_EQ(client.socketID, 0);
  EXPECT_EQ(client.AcquireSocket(), kNoSocket);
  EXPECT_EQ(client.AcquireSocket(), 1);
}

TEST_F(RunningTest, SocketsAreRefusedByTime) {
  Put(R"({"socketRefusals": [{"from": 60000, "replyID": 7}, {"until": 1000, "replyID": 8}]})");
  Client client;
  EXPECT_EQ(client.socketID, kNoSocket);
  EXPECT_EQ(client.Ask(L5_AGENT_KELPROXY, KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID, {3}).ID, 8u);
  while (client.AcquireSocket() == kNoSocket) std::this_thread::yield();
}

TEST_F(RunningTest, TheControlStatusChangesByTime) {
  Put(R"({"controlStatus": [{"at": 20, "status": 5}, {"status": 2}]})");
  EXPECT_EQ(SLUICE_HUB_GetCtrlStatus(), 2u);
  const auto seen = steady_clock::now();
  while (SLUICE_HUB_GetCtrlStatus() == 2) std::this_thread::yield();
  EXPECT_EQ(SLUICE_HUB_GetCtrlStatus(), 5u);
  EXPECT_LE(steady_clock::now() - seen, std::chrono::seconds(10));
}

/// What a callback was told of the control status.
struct Told {
  std::mutex mutex;
  std::condition_variable more;
  std::vector<std::uint32_t> statuses;

  std::vector<std::uint32_t> await(std::size_t count) {
    std::unique_lock lock(mutex);
    more.wait_for(lock, std::chrono::seconds(10), [&] { return statuses.size() >= count; });
    return statuses;
  }
};

Told gTold;

void NoteStatus(std::uint32_t status) {
  const std::lock_guard lock(gTold.mutex);
  gTold.statuses.push_back(status);
  gTold.more.notify_all();
}

TEST_F(RunningTest, ChangesOfTheControlStatusAreToldToWhoWishesIt) {
  Put(R"({"controlStatus": [{"status": 2}, {"at": 50, "status": 5}, {"at": 60, "status": 6}]})");
  const auto callback = reinterpret_cast<KEL_CtrlStatusCallback>(&NoteStatus);
  EXPECT_EQ(SLUICE_HUB_RegisterCtrlStatusUpdatesCB(callback), 0u);
  EXPECT_THAT(gTold.await(2), ElementsAre(5, 6)) << "what it is already is no change";
  EXPECT_EQ(SLUICE_HUB_GetCtrlStatus(), 6u);
  EXPECT_EQ(SLUICE_HUB_UnregisterCtrlStatusUpdatesCB(callback), 0u);

  SluiceHubSim_Reset();
  while (SLUICE_HUB_GetCtrlStatus() != 6) std::this_thread::yield();
  EXPECT_THAT(gTold.await(0), ElementsAre(5, 6)) << "nobody wishes it";

  SluiceHubSim_Reset();
  EXPECT_EQ(SLUICE_HUB_RegisterCtrlStatusUpdatesCB(callback), 0u);
  EXPECT_THAT(gTold.await(4), ElementsAre(5, 6, 5, 6)) << "all begins again";
  EXPECT_EQ(SLUICE_HUB_UnregisterCtrlStatusUpdatesCB(callback), 0u);
}

TEST_F(RunningTest, AScenarioWithMistakesLeavesTheControlStatusAlone) {
  Put(R"({"controlStatus": [{"status": 2}, {"status": -1}]})");
  testing::internal::CaptureStderr();
  EXPECT_EQ(SLUICE_HUB_GetCtrlStatus(), 0u);
  EXPECT_EQ(SLUICE_HUB_GetCtrlStatus(), 0u);
  EXPECT_EQ(ConnectStatus(), SLUICEHUBSIM_STATUS_BAD_SCENARIO);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "SluiceHub.json:1: \"status\" is -1; expected a whole number from 0 to 4294967295\n"
            "SluiceHub: nothing is connected until this scenario is mended. It was found\n"
            "in the working directory.\n")
      << "once";
}

TEST_F(RunningTest, AScenarioWithMistakesConnectsNothingAndIsToldOnce) {
  Put("{\"sede\": 1,\n\"rules\": 5}");
  testing::internal::CaptureStderr();
  EXPECT_EQ(ConnectStatus(), SLUICEHUBSIM_STATUS_BAD_SCENARIO);
  EXPECT_EQ(ConnectStatus(), SLUICEHUBSIM_STATUS_BAD_SCENARIO);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "SluiceHub.json:1: a scenario has no key \"sede\"; expected one of $schema, seed, capture, rules, "
            "broadcasts, linkLosses, socketRefusals, controlStatus\n"
            "SluiceHub.json:2: \"rules\" is 5; expected a list, [ ... ]\n"
            "SluiceHub: nothing is connected until this scenario is mended. It was found\n"
            "in the working directory.\n");
}

TEST_F(RunningTest, RulesOfTheProgramStandBeforeThoseOfTheScenario) {
  Put(R"({"rules": [{"refuse": {"replyID": 2}}]})");
  SluiceHubSimRule own{};
  own.replyID = 1;
  own.times = 1;
  SluiceHubSim_AddRule(&own);
  const Client client;
  EXPECT_EQ(client.Send(kDebugVal, {}).ID, 1u);
  EXPECT_EQ(client.Send(kDebugVal, {}).ID, 2u);
  SluiceHubSim_ClearRules();
  EXPECT_EQ(client.Send(kDebugVal, {}).ID, 0u);
}

TEST_F(RunningTest, AProgramSetsAnotherScenarioAgainAndAgain) {
  Put(R"({"rules": [{"task": "0x38240", "reply": {"values": [7, 8, 9]}}]})");
  const auto answer = [] { return Client().Exchange(kDebugVal, {1, 2, 3}).PayloadValues(); };
  EXPECT_EQ(answer(), (Values{7, 8, 9}));
  mFolder.write("other.json", R"({"rules": [{"task": "0x38240", "times": 1, "reply": {"values": [4, 5, 6]}}]})");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(SluiceHubSim_SetScenario("other.json"), 1u);
    EXPECT_EQ(answer(), (Values{4, 5, 6}));
    EXPECT_EQ(answer(), (Values{1, 2, 3}));
  }
  SluiceHubSim_Reset();
  EXPECT_EQ(answer(), (Values{4, 5, 6}));
  EXPECT_EQ(SluiceHubSim_SetScenario(nullptr), 1u);
  EXPECT_EQ(answer(), (Values{1, 2, 3}));
}

TEST_F(RunningTest, AMistakenScenarioOfTheProgramConnectsNothing) {
  mFolder.write("mistaken.json", R"({"rulse": []})");
  EXPECT_EQ(SluiceHubSim_SetScenario("mistaken.json"), 0u);
  testing::internal::CaptureStderr();
  EXPECT_EQ(ConnectStatus(), SLUICEHUBSIM_STATUS_BAD_SCENARIO);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("mistaken.json:1: "));
  EXPECT_EQ(SluiceHubSim_SetScenario("none.json"), 0u);
  EXPECT_EQ(SluiceHubSim_SetScenario(nullptr), 1u);
  EXPECT_EQ(ConnectStatus(), SLUICEHUBSIM_STATUS_OK);
}

TEST_F(RunningTest, AResetStartsTheScenarioAnewWithTheNextConnect) {
  Put(R"({"rules": [{"times": 1, "refuse": {"replyID": 2}}], "socketRefusals": [{"times": 1}]})");
  {
    const Client client;
    EXPECT_EQ(client.socketID, kNoSocket);
    EXPECT_EQ(client.Send(kDebugVal, {}).ID, 2u);
    SluiceHubSim_Reset();
    EXPECT_EQ(client.AcquireSocket(), 0);
    EXPECT_EQ(client.Send(kDebugVal, {}).ID, 0u);
  }
  const Client client;
  EXPECT_EQ(client.socketID, kNoSocket);
  EXPECT_EQ(client.Send(kDebugVal, {}).ID, 2u);
}

}  // namespace
}  // namespace kel::sim
