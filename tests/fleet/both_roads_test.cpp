// SPDX-License-Identifier: MIT
// What holds for a client whichever way its device is reached: by the library in this process, or over NATS.
#include <algorithm>
#include <array>
#include <vector>

#include "fleet/fleet_test.h"

namespace kel::test {
namespace {

enum class Way { process, nats };

class BothRoadsTest : public FleetTest, public ::testing::WithParamInterface<Way> {
 protected:
  BothRoadsTest() {
    if (GetParam() == Way::nats) {
      startServer();
      offer();
    }
  }

  Client client(Options options = coming()) {
    return fleet::connect(GetParam() == Way::nats ? server->uri() : "kel:", std::move(options)).value();
  }

  static CallOptions within(Milliseconds time) {
    CallOptions options;
    options.timeout = time;
    return options;
  }
};

INSTANTIATE_TEST_SUITE_P(Ways, BothRoadsTest, ::testing::Values(Way::process, Way::nats),
                         [](const auto& way) { return way.param == Way::nats ? "Nats" : "Process"; });

TEST_P(BothRoadsTest, AnAnswerIsWhatTheDeviceSaid) {
  Client device = client();
  EXPECT_EQ(device.task(kEcho, {7, 8, 9}).value().values().value(), (Values{7, 8, 9}));
  EXPECT_EQ(device.task(kEcho).value().form(), Form::val);
  EXPECT_EQ(device.task(kEchoBytes, "a text").value().text(), "a text");
  EXPECT_EQ(device.task(kEchoBytes, std::string(100'000, 'x')).value().size(), 100'000u);
  const Payload empty = device.task(kEchoBytes).value();
  EXPECT_EQ(empty.size(), 0u);
  EXPECT_EQ(empty.form(), Form::ref);
}

TEST_P(BothRoadsTest, EachCauseIsToldFromTheOthers) {
  SluiceHubSimRule refusal = RuleFor(tasks::TASK_ID_HDI_UT_VAL_TEST_RESPOND.tui);
  refusal.L4status = 1;
  SluiceHubSim_AddRule(&refusal);
  SluiceHubSimRule silence = RuleFor(tasks::TASK_ID_HDI_UT_REF_TEST_RESPOND.tui);
  silence.flags = SLUICEHUBSIM_DROP;
  SluiceHubSim_AddRule(&silence);
  Client device = client();
  EXPECT_EQ(CauseOf(device.task("NO_SUCH_TASK")), Cause::unknownTask);
  EXPECT_EQ(CauseOf(device.task("")), Cause::unknownTask);
  EXPECT_EQ(CauseOf(device.task(kEcho.name, "four")), Cause::wrongForm);
  EXPECT_EQ(CauseOf(device.task(tasks::TASK_ID_HDI_UT_VAL_TEST_RESPOND)), Cause::refused);
  EXPECT_EQ(CauseOf(device.task(tasks::TASK_ID_HDI_UT_REF_TEST_RESPOND, {}, within(100ms))), Cause::noAnswer);
  EXPECT_EQ(device.post("NO_SUCH_TASK").cause(), Cause::unknownTask);
  const Call given = device.start(tasks::TASK_ID_HDI_UT_REF_TEST_RESPOND);
  EXPECT_TRUE(given.cancel());
  EXPECT_EQ(CauseOf(given.get()), Cause::cancelled);
  EXPECT_EQ(device.task(kEcho, {1, 2, 3}).value().values().value()[0], 1u) << "none of it has harmed the link";
}

TEST_P(BothRoadsTest, APostCarriesItsSequenceWord) {
  Client device = client();
  CallOptions options;
  options.sequenceWord = 77;
  ASSERT_TRUE(device.post(kEchoBytes, "post", options).ok());
  // A heartbeat may stand before or behind it.
  const auto isThere = [] {
    std::array<std::uint32_t, 8> body{};
    for (std::uint64_t i = 0; SluiceHubSim_GetRequest(i, nullptr, body.data(), sizeof body) != 0; ++i) {
      if (std::find(body.begin(), body.end(), 77u) != body.end()) return true;
    }
    return false;
  };
  SluiceHubSim_WaitForRequests(1, 30'000);
  EXPECT_TRUE(isThere());
}

TEST_P(BothRoadsTest, MoreCallsThanNumbersAreAllAnswered) {
  Client device = client();
  std::vector<Call> calls;
  for (std::uint32_t i = 0; i < 300; ++i) calls.push_back(device.start(kEcho, {i, 0, 0}));
  for (std::uint32_t i = 0; i < 300; ++i) EXPECT_EQ(calls[i].get().value().values().value()[0], i);
}

TEST_P(BothRoadsTest, AStreamComesWholeInOrderAndToItsEnd) {
  Client device = client();
  Stream stream = device.stream(kStreamer, {3000, 0, 0}).value();
  std::uint32_t next = 0;
  for (const Message& message : stream) {
    EXPECT_EQ(message.values().value()[0], next);
    ++next;
  }
  EXPECT_EQ(next, 3001u) << "the last one marks the end";
  EXPECT_EQ(stream.reason(), End::finished);
  EXPECT_EQ(stream.dropped(), 0u);
}

TEST_P(BothRoadsTest, AReaderThatWaitsLosesNothing) {
  Client device = client();
  StreamOptions options;
  options.limit = 4;
  options.whenFull = WhenFull::wait;
  Stream stream = device.stream(kStreamer, {2000, 0, 0}, options).value();
  EXPECT_GE(std::distance(stream.begin(), stream.end()), 2000);
  EXPECT_EQ(stream.dropped(), 0u);
}

TEST_P(BothRoadsTest, AStreamThatIsNotOneIsAFailedCall) {
  Client device = client();
  EXPECT_EQ(device.stream("NO_SUCH_TASK").cause(), Cause::unknownTask);
}

TEST_P(BothRoadsTest, AStoppedStreamEndsForItsReaderAtOnce) {
  SluiceHubSimRule endless = RuleFor(kStreamer.tui);
  endless.flags = SLUICEHUBSIM_STREAM | SLUICEHUBSIM_NO_END;
  endless.streamCount = 100'000;
  endless.streamIntervalMs = 1;
  SluiceHubSim_AddRule(&endless);
  Client device = client();
  Stream stream = device.stream(kStreamer).value();
  ASSERT_TRUE(stream.next(kLong));
  stream.stop();
  while (stream.next()) {
  }
  EXPECT_EQ(stream.reason(), End::stopped);
  EXPECT_TRUE(device.task(kEcho).ok());
}

TEST_P(BothRoadsTest, BroadcastsComeWithNameAndPayload) {
  Client device = client();
  Subscription broadcasts = device.broadcasts();
  ASSERT_TRUE(device.task(kBroadcaster, {3, 0, 0}).ok());
  for (std::uint32_t i = 0; i < 3; ++i) {
    const std::optional<Broadcast> one = broadcasts.next(kLong);
    ASSERT_TRUE(one);
    EXPECT_EQ(one->values().value()[0], i);
    EXPECT_FALSE(one->task.empty());
  }
  EXPECT_EQ(broadcasts.dropped(), 0u);
}

TEST_P(BothRoadsTest, ALossEndsCallsAndStreamsAndTheClientComesBack) {
  SluiceHubSimRule silence = RuleFor(kEchoBytes.tui);
  silence.flags = SLUICEHUBSIM_DROP;
  SluiceHubSim_AddRule(&silence);
  SluiceHubSimRule endless = RuleFor(kStreamer.tui);
  endless.flags = SLUICEHUBSIM_STREAM | SLUICEHUBSIM_NO_END;
  endless.streamCount = 1;
  SluiceHubSim_AddRule(&endless);
  Options options = coming();
  options.supervision.heartbeat = kEcho.name;
  options.supervision.interval = Milliseconds(50);
  Client device = client(std::move(options));
  Stream stream = device.stream(kStreamer).value();
  const Call call = device.start(kEchoBytes, "x");
  SluiceHubSim_WaitForRequests(2, 30'000);
  std::uint64_t connections[4];
  const std::uint32_t count = SluiceHubSim_GetConnections(connections, 4);
  ASSERT_GE(count, 1u);
  for (std::uint32_t i = 0; i < count; ++i) SluiceHubSim_LoseLink(connections[i], 1, 0);
  EXPECT_EQ(CauseOf(call.get()), Cause::linkLost);
  while (stream.next()) {
  }
  EXPECT_EQ(stream.reason(), End::linkLost);
  // One that is made now may still be caught by the loss.
  CallOptions repeatable = within(kLong);
  repeatable.repeatable = true;
  EXPECT_TRUE(device.task(kEcho, {1, 2, 3}, repeatable).ok());
}

TEST_P(BothRoadsTest, ClosingEndsWhatIsUnderWay) {
  SluiceHubSimRule silence = RuleFor(kEchoBytes.tui);
  silence.flags = SLUICEHUBSIM_DROP;
  SluiceHubSim_AddRule(&silence);
  Client device = client();
  Subscription broadcasts = device.broadcasts();
  const Call call = device.start(kEchoBytes, "x");
  device.close();
  EXPECT_EQ(CauseOf(call.get()), Cause::closed);
  EXPECT_FALSE(broadcasts.next());
  EXPECT_EQ(broadcasts.reason(), End::closed);
}

}  // namespace
}  // namespace kel::test
