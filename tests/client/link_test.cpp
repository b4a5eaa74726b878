// SPDX-License-Identifier: MIT
// The link: how it is watched, lost and had again, and what becomes of the calls meanwhile.
#include <atomic>
#include <thread>

#include "client/client_test.h"

namespace kel::test {
namespace {

using LinkTest = ClientTest;

using ::testing::HasSubstr;

TEST_F(LinkTest, AClientThatCannotConnectSaysSo) {
  RefuseConnects();
  const Result<Client> client = Client::connect(toldBy({}));
  ASSERT_FALSE(client.ok());
  EXPECT_EQ(client.cause(), Cause::notConnected);
  EXPECT_EQ(client.error().code, KEL_E_CONNECTION);
  EXPECT_EQ(client.error().text(), "connecting failed: there is no connection to the device");
  EXPECT_EQ(states.next()->state, State::connecting);
  EXPECT_EQ(states.next()->state, State::closed);
}

/// Until what a client that was given up had begun is ended: not every system ends a process well in the midst of it.
void AwaitFinalize() {
  while (SluiceHubSim_Calls(SLUICEHUBSIM_FINALIZE) == 0) std::this_thread::yield();
}

TEST_F(LinkTest, ConnectingIsNotWaitedForLongerThanSaid) {
  {
    const LibraryAtWork work(Gate());
    Options options;
    options.connectTimeout = kShort;
    const Result<Client> client = Client::connect(options);
    EXPECT_EQ(client.cause(), Cause::notConnected);
    EXPECT_EQ(client.error().text(), "connecting took too long: there is no connection to the device");
  }
  AwaitFinalize();
}

TEST_F(LinkTest, AClientThatDidNotConnectTellsNothingAfterwards) {
  std::atomic<int> told{0};
  Options options;
  options.connectTimeout = kShort;
  options.onState = [&](const StateChange&) { ++told; };
  {
    const LibraryAtWork work(Gate());
    EXPECT_FALSE(Client::connect(options).ok());
    EXPECT_EQ(told, 1) << "connecting";
  }
  AwaitFinalize();
  EXPECT_EQ(told, 1);
}

TEST_F(LinkTest, CallsWaitForTheConnection) {
  Client client = [&] {
    const LibraryAtWork work(Gate());
    Client begun = Client::begin(toldBy({}));
    EXPECT_EQ(begun.state(), State::connecting);
    CallOptions soon;
    soon.timeout = kShort;
    EXPECT_EQ(CauseOf(begun.task(kEcho, {}, soon)), Cause::notConnected);
    begun.start(kEcho);
    return begun;
  }();
  EXPECT_TRUE(client.waitFor(State::connected, kLong));
  EXPECT_TRUE(client.task(kEcho).ok());
  EXPECT_EQ(client.statistics().connections, 1u);
}

TEST_F(LinkTest, FifteenClientsConnectAndASixteenthDoesNot) {
  std::vector<Client> clients;
  for (int i = 0; i < 15; ++i) clients.push_back(Client::connect().value());
  for (Client& client : clients) EXPECT_TRUE(client.task(kEcho).ok());
  EXPECT_EQ(Client::connect().cause(), Cause::notConnected);
  clients.pop_back();
  EXPECT_TRUE(Client::connect().ok());
}

TEST_F(LinkTest, ALossEndsWhatIsUnderWayAndTheClientComesBack) {
  Drop(kEcho, 1);
  Client client = Client::connect(watching()).value();
  const Call call = client.start(kEcho);
  WaitForRequests(1);
  SluiceHubSim_LoseLink(0, 1, 1);
  EXPECT_EQ(CauseOf(call.get()), Cause::linkLost);
  EXPECT_TRUE(client.waitFor(State::connected, kLong));
  EXPECT_TRUE(client.task(kEcho).ok());
  EXPECT_EQ(client.statistics().losses, 1u);
  EXPECT_EQ(client.statistics().connections, 2u);
}

TEST_F(LinkTest, EachStepOfALossIsToldOnce) {
  Client client = Client::connect(watching()).value();
  RefuseConnects();
  SluiceHubSim_LoseLink(0, 1, 1);
  std::vector<State> seen;
  std::vector<std::uint32_t> attempts;
  StateChange change{};
  do {
    change = states.next().value();
    seen.push_back(change.state);
    if (change.state == State::connecting) attempts.push_back(change.attempt);
    if (change.state == State::lost) {
      EXPECT_GT(change.pause, Milliseconds(0)) << change.reason;
    }
    if (attempts.size() == 4) AllowConnects();
  } while (seen.size() < 4 || change.state != State::connected);
  ASSERT_GE(seen.size(), 8u);
  EXPECT_EQ(std::vector<State>(seen.begin(), seen.begin() + 8),
            (std::vector<State>{State::connecting, State::connected, State::lost, State::connecting, State::lost,
                                State::connecting, State::lost, State::connecting}));
  attempts.resize(4);
  EXPECT_EQ(attempts, (std::vector<std::uint32_t>{1, 1, 2, 3}));
}

TEST_F(LinkTest, WithoutReconnectingALossIsFinal) {
  Options options = watching();
  options.supervision.reconnect = false;
  Client client = Client::connect(options).value();
  SluiceHubSim_LoseLink(0, 1, 1);
  EXPECT_THAT(awaitState(State::lost).reason, HasSubstr("heartbeats were not answered"));
  EXPECT_EQ(CauseOf(client.task(kEcho)), Cause::linkLost);
  EXPECT_EQ(client.state(), State::lost);
  client.close();
  EXPECT_EQ(client.state(), State::closed);
}

TEST_F(LinkTest, ARepeatableCallIsSentAgainAfterALoss) {
  Drop(kEcho, 2);
  Client client = Client::connect(watching()).value();
  CallOptions repeatable;
  repeatable.repeatable = true;
  const Call again = client.start(kEcho, {3, 2, 1}, repeatable);
  const Call once = client.start(kEcho);
  WaitForRequests(2);
  SluiceHubSim_LoseLink(0, 1, 1);
  EXPECT_EQ(CauseOf(once.get()), Cause::linkLost);
  EXPECT_EQ(again.get().value().values().value(), (Values{3, 2, 1}));
  EXPECT_EQ(client.statistics().repeated, 1u);
}

TEST_F(LinkTest, ARepeatableCallStillEndsAtItsDeadline) {
  Drop(kEcho, 1);
  Client client = Client::connect(watching()).value();
  CallOptions options;
  options.repeatable = true;
  options.timeout = 500ms;
  const Call call = client.start(kEcho, {}, options);
  WaitForRequests(1);
  RefuseConnects();
  SluiceHubSim_LoseLink(0, 1, 1);
  const Cause cause = CauseOf(call.get());
  EXPECT_TRUE(cause == Cause::linkLost || cause == Cause::notConnected) << cause;
}

TEST_F(LinkTest, CallsThatAreMadeWhileTheLinkIsLostWaitForTheNextOne) {
  Client client = Client::connect(watching()).value();
  RefuseConnects();
  SluiceHubSim_LoseLink(0, 1, 1);
  awaitState(State::lost);
  const Call call = client.start(kEcho, {4, 4, 4});
  CallOptions soon;
  soon.timeout = kShort;
  EXPECT_FALSE(client.task(kEcho, {}, soon).ok());
  AllowConnects();
  EXPECT_EQ(call.get().value().values().value(), (Values{4, 4, 4}));
}

TEST_F(LinkTest, HeartbeatsAreSentOnlyWhenNothingComesAndOneAtATime) {
  const std::uint32_t rule = Delay(kOther, 30ms);
  Client client = Client::connect(watching()).value();
  for (int i = 0; i < 10; ++i) {
    while (SluiceHubSim_RuleUses(rule) == static_cast<std::uint32_t>(i)) std::this_thread::yield();
    EXPECT_LE(client.statistics().inFlight, 1u);
  }
  EXPECT_EQ(client.state(), State::connected);
  EXPECT_EQ(client.statistics().losses, 0u);
  EXPECT_EQ(client.statistics().answered, 0u) << "heartbeats are not counted as calls";
}

TEST_F(LinkTest, WithoutAHeartbeatNothingIsSentUnasked) {
  Client client = Client::connect(comingBack()).value();
  std::this_thread::sleep_for(kWhile);
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(LinkTest, AnythingThatComesIsASignOfLife) {
  Drop(kOther);
  Options options = watching();
  options.supervision.interval = 200ms;
  Client client = Client::connect(options).value();
  // Nobody has subscribed to them.
  for (int i = 0; i < 100; ++i) {
    SluiceHubSim_Broadcast(0, 0x32060, 0, "abc", 3, 1);
    std::this_thread::sleep_for(10ms);
  }
  EXPECT_EQ(client.statistics().losses, 0u);
  EXPECT_EQ(client.statistics().broadcasts, 100u);
}

TEST_F(LinkTest, AHeartbeatThatTheTableDoesNotHaveClosesTheClient) {
  Options options = watching();
  options.supervision.heartbeat = "NO_SUCH_TASK";
  const Result<Client> client = Client::connect(options);
  ASSERT_FALSE(client.ok());
  EXPECT_THAT(client.error().text(), HasSubstr("no task NO_SUCH_TASK for the heartbeat"));
}

TEST_F(LinkTest, ARefusalIsADevicesIfAHeartbeatIsAnsweredAndALossIfNot) {
  Refuse(kEcho, 1);
  Client client = Client::connect(watching()).value();
  const Result<Payload> refused = client.task(kEcho);
  EXPECT_EQ(CauseOf(refused), Cause::refused);
  EXPECT_EQ(refused.error().code, KEL_E_ASYNC_TASK);
  EXPECT_EQ(client.statistics().losses, 0u);
  EXPECT_GE(client.statistics().heartbeats, 1u);

  SluiceHubSim_LoseLink(0, 1, 1);
  EXPECT_EQ(CauseOf(client.task(kEcho)), Cause::linkLost);
}

TEST_F(LinkTest, WhatStillArrivesMakesNoRefusalOfALoss) {
  MakeEndless(kStreamer, 10);
  Client client = Client::connect(watching()).value();
  StreamOptions blocking;
  blocking.limit = 1;
  blocking.whenFull = WhenFull::wait;
  const Stream stream = client.stream(kStreamer, {}, blocking).value();
  SluiceHubSim_WaitIdle(static_cast<std::uint32_t>(kLong.count()));
  SluiceHubSim_LoseLink(0, 1, 1);
  CallOptions repeatable;
  repeatable.repeatable = true;
  EXPECT_TRUE(client.task(kEcho, {}, repeatable).ok());
  EXPECT_EQ(client.statistics().losses, 1u);
}

TEST_F(LinkTest, ADoubtedRefusalEndsAtItsDeadline) {
  Refuse(kEcho, 1);
  Drop(kOther);
  Options options = watching();
  options.supervision.interval = kLong;
  Client client = Client::connect(options).value();
  CallOptions soon;
  soon.timeout = kShort;
  EXPECT_EQ(CauseOf(client.task(kEcho, {}, soon)), Cause::refused);
}

TEST_F(LinkTest, RefusalsInARowAreALossWhereNoHeartbeatIs) {
  Client client = Client::connect(comingBack()).value();
  Refuse(kEcho, 3);
  EXPECT_EQ(CauseOf(client.task(kEcho)), Cause::refused);
  EXPECT_EQ(CauseOf(client.task(kEcho)), Cause::refused);
  EXPECT_EQ(CauseOf(client.task(kEcho)), Cause::linkLost);
  EXPECT_THAT(awaitState(State::lost).reason, HasSubstr("3 tasks in a row were refused"));
  EXPECT_TRUE(client.task(kEcho).ok());
}

TEST_F(LinkTest, AnAnswerBetweenRefusalsIsNoRow) {
  Client client = Client::connect(comingBack()).value();
  Refuse(kOther);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(CauseOf(client.task(kOther)), Cause::refused);
    EXPECT_TRUE(client.task(kEcho).ok());
  }
  EXPECT_EQ(client.statistics().losses, 0u);
}

TEST_F(LinkTest, AnUnknownTaskIsNoSignOfALoss) {
  Client client = Client::connect(comingBack()).value();
  for (int i = 0; i < 6; ++i) EXPECT_EQ(CauseOf(client.task("NO_SUCH_TASK")), Cause::unknownTask);
  EXPECT_EQ(client.statistics().losses, 0u);
}

TEST_F(LinkTest, PausesGrowAreShakenAndHaveALongest) {
  RefuseConnects();
  Options options = comingBack();
  options.supervision.firstPause = Milliseconds(8);
  options.supervision.longestPause = Milliseconds(32);
  options.supervision.attempts = 20;
  Client client = Client::begin(options);
  std::vector<Milliseconds> pauses;
  for (StateChange change = *states.next(); change.state != State::closed; change = *states.next()) {
    if (change.state == State::lost) pauses.push_back(change.pause);
  }
  ASSERT_EQ(pauses.size(), 19u);
  EXPECT_THAT(pauses[0].count(), ::testing::AllOf(::testing::Ge(6), ::testing::Le(10)));
  EXPECT_THAT(pauses[1].count(), ::testing::AllOf(::testing::Ge(12), ::testing::Le(20)));
  for (std::size_t i = 2; i < pauses.size(); ++i) {
    EXPECT_THAT(pauses[i].count(), ::testing::AllOf(::testing::Ge(24), ::testing::Le(40)));
  }
  EXPECT_NE(*std::min_element(pauses.begin() + 2, pauses.end()), *std::max_element(pauses.begin() + 2, pauses.end()));
}

TEST_F(LinkTest, SoManyAttemptsThatFailAreTheLastOnes) {
  RefuseConnects();
  Options options = comingBack();
  options.supervision.firstPause = Milliseconds(1);
  options.supervision.attempts = 3;
  Client client = Client::begin(options);
  const Call call = client.start(kEcho);
  EXPECT_EQ(CauseOf(call.get()), Cause::notConnected);
  EXPECT_TRUE(client.waitFor(State::closed, kLong));
  EXPECT_EQ(SluiceHubSim_Calls(SLUICEHUBSIM_L5_CONNECT), 3u);
  EXPECT_EQ(CauseOf(client.task(kEcho)), Cause::notConnected);
}

TEST_F(LinkTest, StoppedStreamsThatHoldTooManyNumbersHaveTheConnectionRenewed) {
  MakeEndless(kStreamer, 1);
  Options options = comingBack();
  options.supervision.renewAt = 4;
  Client client = Client::connect(options).value();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(client.stream(kStreamer).ok());
  EXPECT_EQ(client.statistics().heldNumbers, 3u);
  EXPECT_EQ(client.statistics().connections, 1u);
  EXPECT_TRUE(client.stream(kStreamer).ok());
  EXPECT_TRUE(client.task(kEcho).ok());
  while (client.statistics().connections < 2) std::this_thread::yield();
  EXPECT_TRUE(client.task(kEcho).ok());
  EXPECT_EQ(client.statistics().heldNumbers, 0u);
  EXPECT_EQ(client.statistics().losses, 0u);
  client.close();
  std::vector<State> seen;
  for (const StateChange& change : states.all()) seen.push_back(change.state);
  EXPECT_EQ(seen, (std::vector<State>{State::connecting, State::connected, State::connecting, State::connected,
                                      State::closed}));
  EXPECT_THAT(states.all()[2].reason, HasSubstr("the connection is renewed"));
}

TEST_F(LinkTest, ARenewalWaitsForCallsUnderWayAndSendsNoneMeanwhile) {
  MakeEndless(kStreamer, 1);
  Delay(kEcho, 200ms, 1);
  Options options = comingBack();
  options.supervision.renewAt = 1;
  Client client = Client::connect(options).value();
  const Call slow = client.start(kEcho, {1, 1, 1});
  EXPECT_TRUE(client.stream(kStreamer).ok());
  const Call next = client.start(kEcho, {2, 2, 2});
  EXPECT_EQ(slow.get().value().values().value()[0], 1u);
  EXPECT_EQ(next.get().value().values().value()[0], 2u);
  EXPECT_EQ(client.statistics().connections, 2u);
}

TEST_F(LinkTest, ADisconnectThatFailsLosesASlotAndNothingElse) {
  Client client = Client::connect().value();
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_DISCONNECT, 1);
  client.close();
  SluiceHubSim_UnforceResult(SLUICEHUBSIM_L5_DISCONNECT);
  EXPECT_EQ(client.state(), State::closed);
  EXPECT_TRUE(Client::connect().value().task(kEcho).ok());
}

TEST_F(LinkTest, AVersionCheckTellsTheDevicesVerdict) {
  folder.write("VersionsVector.csv", "");
  Client client = Client::connect().value();
  const Result<bool> verdict = client.validateVersion("firmware.bin", {"bytes", 5}, ".");
  EXPECT_TRUE(verdict.ok()) << verdict.error();
}

TEST_F(LinkTest, AVersionCheckEndsAtItsDeadlineAndIsNotMadeAfterwards) {
  Client client = Client::connect().value();
  {
    const LibraryAtWork work(Gate());
    EXPECT_EQ(client.validateVersion("first.bin", {"bytes", 5}, ".", 0, kShort).cause(), Cause::noAnswer);
    EXPECT_EQ(client.validateVersion("second.bin", {"bytes", 5}, ".", 0, kShort).cause(), Cause::noAnswer);
  }
  EXPECT_TRUE(client.task(kEcho).ok());
  client.close();
  EXPECT_EQ(client.validateVersion("third.bin", {"bytes", 5}, ".").cause(), Cause::closed);
}

TEST_F(LinkTest, ClosingEndsVersionChecksThatWait) {
  Told<Cause> told;
  Client client = Client::connect().value();
  std::optional<LibraryAtWork> work(std::in_place, Gate());
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      const Result<bool> verdict = client.validateVersion("firmware.bin", {"bytes", 5}, ".");
      told.tell(verdict.ok() ? Cause{} : verdict.cause());
    });
  }
  std::thread closing([&] { client.close(); });
  for (std::thread& thread : threads) thread.join();
  work.reset();
  closing.join();
  EXPECT_EQ(told.all(), (std::vector<Cause>{Cause::closed, Cause::closed, Cause::closed}));
}

}  // namespace
}  // namespace kel::test
