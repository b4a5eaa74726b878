// SPDX-License-Identifier: MIT
// What becomes of calls, streams and clients when something on the way fails.
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <thread>

#include "fleet/fleet_test.h"
#include "fleet/posix/greeter.h"
#include "nats/Nats.h"
#include "protocol/Wire.h"

namespace kel::test {
namespace {

class FaultsTest : public FleetTest {
 protected:
  FaultsTest() { startServer(); }

  /// keld in a process of its own.
  Program& startKeld(const std::string& device = "bench") {
    keld.emplace(
        std::vector<std::string>{KELD, "run", "--site", "lab", "--device", device, "--server", server->address()},
        "the device is offered");
    return *keld;
  }

  static CallOptions within(Milliseconds time) {
    CallOptions options;
    options.timeout = time;
    return options;
  }

  static void Silence(std::uint32_t tui) {
    SluiceHubSimRule rule = RuleFor(tui);
    rule.flags = SLUICEHUBSIM_DROP;
    SluiceHubSim_AddRule(&rule);
  }

  /// Speaks to NATS as somebody without our code.
  std::unique_ptr<fleet::Connection> outsider() {
    std::string why;
    fleet::Access access;
    access.servers = {server->address()};
    return fleet::Connection::open(access, {}, why);
  }

  std::optional<Program> keld;
};

TEST_F(FaultsTest, ADeviceThatNobodyOffersIsToldByItsReason) {
  Options options;
  const Result<Client> client = fleet::connect(server->uri(), options);
  ASSERT_FALSE(client);
  EXPECT_EQ(client.cause(), Cause::notConnected);
  EXPECT_EQ(client.error().subject, "nobody offers the device");
}

TEST_F(FaultsTest, ANameIsOfferedByOneKeldOnly) {
  startKeld();
  Offered second(workerOptions());
  connected();
  EXPECT_EQ(second.end(), 3);
}

TEST_F(FaultsTest, AWithdrawnDeviceIsALossAtOnce) {
  offer();
  Silence(kEchoBytes.tui);
  Client client = connected();
  const Call call = client.start(kEchoBytes, "x", within(kLong));
  SluiceHubSim_WaitForRequests(1, 30'000);
  offered->end();
  const Cause cause = CauseOf(call.get());
  EXPECT_TRUE(cause == Cause::closed || cause == Cause::linkLost) << text(cause);
  EXPECT_TRUE(client.waitFor(State::lost, kLong));
}

TEST_F(FaultsTest, AKilledKeldIsALossAndItsSuccessorIsFound) {
  startKeld();
  Client client = connected();
  ASSERT_TRUE(client.task(kEcho).ok());
  keld->signal(SIGSTOP);
  const Call caught = client.start(kEcho, {}, within(kLong));
  keld->signal(SIGKILL);
  EXPECT_EQ(CauseOf(caught.get()), Cause::linkLost);
  startKeld();
  EXPECT_TRUE(client.task(kEcho, {}, within(kLong)).ok());
}

TEST_F(FaultsTest, AFrozenKeldIsALossUntilItGoesOn) {
  startKeld();
  Client client = connected();
  keld->signal(SIGSTOP);
  EXPECT_TRUE(client.waitFor(State::lost, kLong));
  keld->signal(SIGCONT);
  EXPECT_TRUE(client.task(kEcho, {}, within(kLong)).ok());
}

TEST_F(FaultsTest, AKilledServerIsALossAndBothSidesComeBack) {
  offer();
  Silence(kEchoBytes.tui);
  Client client = connected();
  const Call call = client.start(kEchoBytes, "x", within(kLong));
  server->kill();
  EXPECT_EQ(CauseOf(call.get()), Cause::linkLost);
  server->restart();
  CallOptions repeatable = within(kLong);
  repeatable.repeatable = true;
  EXPECT_TRUE(client.task(kEcho, {}, repeatable).ok());
}

TEST_F(FaultsTest, WhatIsLostWithTheServerOfKeldIsALossToClientsOnOthers) {
  // Two servers in a cluster: the client is on one, and keld begins on the other.
  const std::string first = "127.0.0.1:" + std::to_string(freePort());
  const std::string last = "127.0.0.1:" + std::to_string(freePort());
  const auto inCluster = [](const std::string& name, const std::string& here, const std::string& there) {
    return "server_name: " + name + "\ncluster { name: lab, listen: \"" + here + "\", routes: [\"nats://" + there +
           "\"] }";
  };
  server.reset();
  startServer(inCluster("first", first, last));
  const std::filesystem::path other = folder.path() / "other";
  std::filesystem::create_directory(other);
  NatsServer second(other, inCluster("second", last, first));
  fleet::WorkerOptions options = workerOptions();
  options.access.servers = {second.address()};
  offered.emplace(options);
  Silence(kEchoBytes.tui);
  Client client = connected();
  const Call call = client.start(kEchoBytes, "x", within(kLong));
  SluiceHubSim_WaitForRequests(1, 30'000);
  second.kill();
  EXPECT_EQ(CauseOf(call.get()), Cause::linkLost);
  CallOptions repeatable = within(kLong);
  repeatable.repeatable = true;
  EXPECT_TRUE(client.task(kEcho, {}, repeatable).ok());
}

TEST_F(FaultsTest, AFrozenServerIsALoss) {
  offer();
  Client client = connected();
  server->freeze();
  EXPECT_TRUE(client.waitFor(State::lost, kLong));
  server->thaw();
  CallOptions repeatable = within(kLong);
  repeatable.repeatable = true;
  EXPECT_TRUE(client.task(kEcho, {}, repeatable).ok());
}

TEST_F(FaultsTest, AServerThatGreetsAndSaysNoMoreIsGivenUp) {
  Greeter greeter;
  fleet::Access access;
  access.servers = {greeter.address()};
  fleet::ConnectionOptions options;
  options.connectTimeout = Milliseconds(100);
  std::string why;
  EXPECT_FALSE(fleet::Connection::open(access, options, why));
  EXPECT_EQ(why, "Timeout");
}

TEST_F(FaultsTest, AClientIsClosedWhileAServerThatGreetsSaysNoMore) {
  Greeter greeter;
  const Clock::time_point start = Clock::now();
  {
    const Result<Client> client = fleet::begin("nats://" + greeter.address() + "/lab/bench", coming());
    ASSERT_TRUE(client);
    ASSERT_TRUE(greeter.waitForGuest());
  }
  EXPECT_LT(Clock::now() - start, kLong);
}

TEST_F(FaultsTest, AMessageAboveTheLimitIsTheWrongForm) {
  server.reset();
  startServer("max_payload: 8192");
  offer();
  Client client = connected();
  EXPECT_EQ(CauseOf(client.task(kEchoBytes, std::string(8192, 'x'))), Cause::wrongForm);
  EXPECT_TRUE(client.task(kEchoBytes, std::string(4096, 'x')).ok());
  // In hex an answer takes twice the room.
  const fleet::MessagePtr request = fleet::makeMessage("kel.v1.lab.bench.task", {}, std::string(4096, 'x'));
  fleet::setHeader(*request, "Kel-Task", kEchoBytes.name);
  fleet::setHeader(*request, "Accept", "application/json");
  natsStatus status = NATS_OK;
  const fleet::MessagePtr answer = outsider()->request(*request, kLong, status);
  ASSERT_TRUE(answer);
  EXPECT_EQ(fleet::header(*answer, "Kel-Cause"), "wrong-form");
  EXPECT_EQ(fleet::header(*answer, "Kel-Reason"), "the answer is larger than a message may be");
}

TEST_F(FaultsTest, WhatIsBeyondTheLimitsIsBusyAtOnce) {
  offer();
  Silence(kEchoBytes.tui);
  std::vector<Client> clients;
  std::vector<Call> calls;
  // 60 are under way, 256 wait.
  for (int i = 0; i < 6; ++i) {
    clients.push_back(connected());
    for (int j = 0; j < 60; ++j) calls.push_back(clients.back().start(kEchoBytes, "x", within(2 * kLong)));
  }
  Client more = connected();
  // As soon as the others have come.
  EXPECT_TRUE(soon([&] { return CauseOf(more.task(kEchoBytes, "x", within(500ms))) == Cause::busy; }));
}

TEST_F(FaultsTest, ASlowReaderLosesNothingSilently) {
  offer();
  SluiceHubSimRule flood = RuleFor(kStreamer.tui);
  flood.flags = SLUICEHUBSIM_STREAM;
  flood.streamCount = 30'000;
  SluiceHubSim_AddRule(&flood);
  Client client = connected();
  StreamOptions options;
  options.limit = 8;
  options.whenFull = WhenFull::wait;
  Stream stream = client.stream(kStreamer, {}, options).value();
  std::optional<Message> first = stream.next(kLong);
  ASSERT_TRUE(first);
  // Nothing is read until the flood has run past what keld keeps for a reader.
  SluiceHubSim_WaitIdle(30'000);
  std::uint64_t read = 1;
  while (stream.next()) ++read;
  EXPECT_EQ(stream.reason(), End::finished);
  EXPECT_EQ(read + stream.dropped(), 30'001u);
}

TEST_F(FaultsTest, BroadcastsThatAReaderIsTooSlowForAreAGapThatItSees) {
  offer();
  Client client = connected();
  BroadcastOptions options;
  options.whenFull = WhenFull::wait;
  Subscription broadcasts = client.broadcasts(options);
  ASSERT_TRUE(client.task(kEcho).ok()) << "the servers know of the reader";
  const std::unique_ptr<fleet::Connection> other = outsider();
  std::uint64_t number = 0;
  const auto publish = [&](std::string_view text) {
    const fleet::MessagePtr message = fleet::makeMessage("kel.v1.lab.bench.broadcast", {}, text);
    fleet::setHeader(*message, "Kel-Task", "flood");
    fleet::setHeader(*message, "Kel-Form", "ref");
    fleet::setHeader(*message, "Kel-Instance", "other");
    fleet::setHeader(*message, "Kel-Number", std::to_string(++number));
    ASSERT_EQ(other->publish(*message), NATS_OK);
  };
  // More than wait for a reader on its side of the servers.
  for (int i = 0; i < 75'000; ++i) publish("x");
  ASSERT_TRUE(other->flush(kLong));
  ASSERT_TRUE(client.task(kEcho, {}, within(kLong)).ok()) << "they have all come, or have been dropped";
  std::uint64_t read = 0;
  // More than wait in the client, so that there is room again for the last one.
  for (; read < 6000; ++read) ASSERT_TRUE(broadcasts.next(kLong));
  publish("last");
  std::optional<Broadcast> one = broadcasts.next(kLong);
  for (++read; one && one->text() != "last"; ++read) one = broadcasts.next(kLong);
  EXPECT_TRUE(one);
  EXPECT_GT(broadcasts.dropped(), 0u);
  EXPECT_EQ(read + broadcasts.dropped(), number);
}

TEST_F(FaultsTest, AReaderThatIsGoneStopsItsStream) {
  offer();
  SluiceHubSimRule endless = RuleFor(kStreamer.tui);
  endless.flags = SLUICEHUBSIM_STREAM | SLUICEHUBSIM_NO_END;
  endless.streamCount = 1'000'000;
  endless.streamIntervalMs = 1;
  SluiceHubSim_AddRule(&endless);
  std::atomic<std::uint64_t> came{0};
  std::promise<void> full;
  {
    const std::unique_ptr<fleet::Connection> other = outsider();
    const std::string inbox = other->newInbox();
    // It never acknowledges: so a window of messages comes, and no more.
    const fleet::Subscription answers = other->subscribe(inbox, [&](natsMsg* message) {
      if (fleet::header(*message, "Kel-Number") == "256") full.set_value();
      ++came;
    });
    connected();
    const fleet::MessagePtr request = fleet::makeMessage("kel.v1.lab.bench.stream", inbox, {});
    fleet::setHeader(*request, "Kel-Task", kStreamer.name);
    other->publish(*request);
    ASSERT_EQ(full.get_future().wait_for(kLong), std::future_status::ready);
  }
  // Streams that are open are in the presence.
  const std::unique_ptr<fleet::Connection> asker = outsider();
  const Clock::time_point until = Clock::now() + kLong;
  bool isStopped = false;
  while (!isStopped && Clock::now() < until) {
    natsStatus status = NATS_OK;
    const fleet::MessagePtr hello = fleet::makeMessage("kel.v1.lab.bench.hello", {}, {});
    const fleet::MessagePtr answer = asker->request(*hello, kLong, status);
    ASSERT_TRUE(answer);
    isStopped = fleet::payloadOf(*answer).find("\"openStreams\":0") != std::string_view::npos;
  }
  EXPECT_TRUE(isStopped);
  EXPECT_LE(came, 258u);
}

TEST_F(FaultsTest, AnotherVersionIsToldWhy) {
  offer();
  connected();
  const std::unique_ptr<fleet::Connection> other = outsider();
  const fleet::MessagePtr request = fleet::makeMessage("kel.v1.lab.bench.task", {}, {});
  fleet::setHeader(*request, "Kel-Task", kEcho.name);
  fleet::setHeader(*request, "Kel-Protocol", "3");
  fleet::setHeader(*request, "Kel-Oldest-Protocol", "2");
  natsStatus status = NATS_OK;
  const fleet::MessagePtr answer = other->request(*request, kLong, status);
  ASSERT_TRUE(answer);
  EXPECT_EQ(fleet::header(*answer, "Kel-Cause"), "wrong-form");
  EXPECT_EQ(fleet::header(*answer, "Kel-Reason"), "the other side needs protocol 2 at least, and this one speaks 1");
  fleet::setHeader(*request, "Kel-Oldest-Protocol", "1");
  const fleet::MessagePtr second = other->request(*request, kLong, status);
  ASSERT_TRUE(second);
  EXPECT_FALSE(fleet::header(*second, "Kel-Cause")) << "a later one that gets on with ours is served";
}

TEST_F(FaultsTest, JsonIsTakenAndGivenWhereItIsAskedFor) {
  offer();
  connected();
  const std::unique_ptr<fleet::Connection> other = outsider();
  const auto ask = [&](const char* task, const char* json) {
    const fleet::MessagePtr request = fleet::makeMessage("kel.v1.lab.bench.task", {}, json);
    fleet::setHeader(*request, "Kel-Task", task);
    fleet::setHeader(*request, "Content-Type", "application/json");
    fleet::setHeader(*request, "Accept", "application/json");
    natsStatus status = NATS_OK;
    const fleet::MessagePtr answer = other->request(*request, kLong, status);
    return answer ? fleet::header(*answer, "Kel-Cause").value_or(std::string(fleet::payloadOf(*answer))) : "none";
  };
  EXPECT_NE(ask(kEcho.name, R"({"values": [7, 8, 9]})").find(R"("values":[7,8,9])"), std::string::npos);
  EXPECT_NE(ask(kEchoBytes.name, R"({"text": "AB"})").find(R"("hex":"4142")"), std::string::npos);
  EXPECT_NE(ask(kEchoBytes.name, R"({"hex": "0aFF"})").find(R"("hex":"0aff")"), std::string::npos);
  for (const char* wrong : {"", "[]", R"({"values": [1, 2]})", R"({"values": [1, 2, -3]})", R"({"hex": "0"})",
                            R"({"hex": "0g"})", R"({"text": "a", "hex": "00"})", R"({"bytes": "00"})"}) {
    EXPECT_EQ(ask(kEchoBytes.name, wrong), "wrong-form") << wrong;
  }
}

TEST_F(FaultsTest, StandardToolsFindTheDeviceAndItsCounts) {
  offer();
  Client client = connected();
  ASSERT_TRUE(client.task(kEcho).ok());
  EXPECT_EQ(CauseOf(client.task("NO_SUCH_TASK")), Cause::unknownTask);
  const std::unique_ptr<fleet::Connection> other = outsider();
  const auto ask = [&](const char* subject) {
    natsStatus status = NATS_OK;
    const fleet::MessagePtr answer = other->request(*fleet::makeMessage(subject, {}, {}), kLong, status);
    return answer ? std::string(fleet::payloadOf(*answer)) : "none";
  };
  EXPECT_NE(ask("$SRV.PING").find(R"("type":"io.nats.micro.v1.ping_response")"), std::string::npos);
  EXPECT_NE(ask("$SRV.INFO.kel-device").find(R"("subject":"kel.v1.lab.bench.task")"), std::string::npos);
  const std::string stats = ask("$SRV.STATS.kel-device");
  EXPECT_NE(stats.find(R"("num_requests":2)"), std::string::npos) << stats;
  EXPECT_NE(stats.find(R"("num_errors":1)"), std::string::npos) << stats;
}

}  // namespace
}  // namespace kel::test
