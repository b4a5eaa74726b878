// SPDX-License-Identifier: MIT
// The end of a client, at any moment and from anywhere: every call ends once, and nothing is left.
#include <atomic>
#include <random>
#include <thread>

#include "client/client_test.h"

namespace kel::test {
namespace {

using EndingTest = ClientTest;

/// Also of what it leaves to a thread of its own.
void AwaitTheEndOfTheLastClient() {
  while (SluiceHubSim_Calls(SLUICEHUBSIM_FINALIZE) == 0) std::this_thread::yield();
}

TEST_F(EndingTest, ClosingEndsAllThatIsUnderWayAndWaits) {
  Drop(kEcho);
  MakeEndless(kStreamer, 1);
  Options options;
  options.maxInFlight = 2;
  Told<Cause> told;
  Client client = Client::connect(options).value();
  Stream stream = client.stream(kStreamer).value();
  const Call sent = client.start(kEcho);
  const Call waiting = client.start(kEcho, {}, [&](Result<Payload> answer) { told.tell(CauseOf(answer)); });
  client.close();
  EXPECT_EQ(CauseOf(sent.get()), Cause::closed);
  EXPECT_EQ(CauseOf(waiting.get()), Cause::closed);
  EXPECT_EQ(told.all(), std::vector<Cause>{Cause::closed});
  while (stream.next()) {
  }
  EXPECT_EQ(stream.reason(), End::closed);
  std::uint64_t open = 0;
  EXPECT_EQ(SluiceHubSim_GetConnections(&open, 1), 0u);
}

TEST_F(EndingTest, ACallOfAClosedClientEndsAtOnceWithItsCallback) {
  Client client = Client::connect().value();
  client.close();
  client.close();
  EXPECT_EQ(client.state(), State::closed);
  EXPECT_TRUE(client.waitFor(State::closed, Milliseconds(0)));
  EXPECT_FALSE(client.waitFor(State::connected, kLong));
  EXPECT_EQ(CauseOf(client.task(kEcho)), Cause::closed);
  Cause cause{};
  client.start(kEcho, {}, [&](Result<Payload> answer) { cause = CauseOf(answer); });
  EXPECT_EQ(cause, Cause::closed);
  EXPECT_EQ(client.stream(kStreamer).cause(), Cause::closed);
}

TEST_F(EndingTest, ClosingInACallbackOnlyBegins) {
  Event begun;
  Client client = Client::connect(toldBy({})).value();
  client.start(kEcho, {}, [&](const Result<Payload>&) {
    client.close();
    EXPECT_TRUE(client.waitFor(State::closed, kLong));
    begun.set();
  });
  EXPECT_TRUE(begun.wait());
  client.close();
  EXPECT_EQ(states.all().back().state, State::closed);
}

TEST_F(EndingTest, SeveralThreadsMayCloseAtOnce) {
  for (int round = 0; round < 20; ++round) {
    Client client = Client::connect(toldBy({})).value();
    client.start(kEcho, {}, [](const Result<Payload>&) {});
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back([&] { client.close(); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(client.state(), State::closed);
  }
}

TEST_F(EndingTest, AClientMayEndInItsOwnCallback) {
  Event ended;
  auto client = std::make_unique<Client>(Client::connect().value());
  client->start(kEcho, {}, [&](const Result<Payload>&) {
    client.reset();
    ended.set();
  });
  EXPECT_TRUE(ended.wait());
  AwaitTheEndOfTheLastClient();
}

TEST_F(EndingTest, AClientThatIsToldOfItsOwnLossMayEndThere) {
  Event ended;
  std::unique_ptr<Client> client;
  Options options = watching();
  options.onState = [&](const StateChange& change) {
    if (change.state != State::lost) return;
    client.reset();
    ended.set();
  };
  client = std::make_unique<Client>(Client::connect(options).value());
  SluiceHubSim_LoseLink(0, 1, 1);
  EXPECT_TRUE(ended.wait());
  AwaitTheEndOfTheLastClient();
}

TEST_F(EndingTest, AClientMayEndWhileItConnectsOrWaitsToDoItAgain) {
  {
    std::optional<LibraryAtWork> work(std::in_place, Gate());
    Client client = Client::begin();
    std::thread freeing([&] {
      std::this_thread::sleep_for(kShort);
      work.reset();
    });
    client.close();
    freeing.join();
  }
  RefuseConnects();
  Options options = comingBack();
  options.supervision.firstPause = kLong;
  Client client = Client::begin(options);
  awaitState(State::lost);
  const Clock::time_point start = Clock::now();
  client.close();
  EXPECT_LT(Clock::now() - start, kLong / 2);
}

TEST_F(EndingTest, HandlesMayOutliveTheirClient) {
  MakeEndless(kStreamer, 1);
  std::optional<Call> call;
  std::optional<Stream> stream;
  std::optional<Subscription> subscription;
  {
    Client client = Client::connect().value();
    call = client.start(kEcho, {1, 2, 3});
    EXPECT_TRUE(call->get().ok());
    stream.emplace(client.stream(kStreamer).value());
    subscription.emplace(client.broadcasts());
  }
  EXPECT_TRUE(call->get().ok());
  EXPECT_FALSE(call->cancel());
  EXPECT_FALSE(subscription->next());
  stream->stop();
}

TEST_F(EndingTest, AClientMayBeMovedAndReplaced) {
  Client client = Client::connect().value();
  Client moved = std::move(client);
  EXPECT_TRUE(moved.task(kEcho).ok());
  moved = Client::connect().value();
  EXPECT_TRUE(moved.task(kEcho).ok());
  std::uint64_t open[2];
  EXPECT_EQ(SluiceHubSim_GetConnections(open, 2), 1u);
}

/// Calls of all kinds from many threads, while the link goes and comes, answers are lost and calls are cancelled; and
/// at some moment the client is closed. Each call has to end once.
TEST_F(EndingTest, EveryCallEndsOnceWhateverHappens) {
  for (std::uint32_t seed = 1; seed <= 6; ++seed) {
    SluiceHubSim_Reset();
    SluiceHubSimRule rule = RuleFor(kEcho);
    rule.skip = 7;
    rule.times = 5;
    rule.flags = SLUICEHUBSIM_DROP;
    SluiceHubSim_AddRule(&rule);
    Delay(kEchoBytes, 3ms);
    Refuse(tasks::TASK_ID_UMAC_INIT);

    Options options = watching();
    options.onState = nullptr;
    options.timeout = 200ms;
    options.maxQueued = 20;
    Client client = Client::connect(options).value();
    std::atomic<std::uint32_t> started{0}, ended{0}, twice{0};
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&, thread] {
        std::minstd_rand random(seed * 10 + thread);
        for (int i = 0; i < 150; ++i) {
          CallOptions callOptions;
          callOptions.repeatable = random() % 2 == 0;
          const char* const names[] = {kEcho.name, kEchoBytes.name, "TASK_ID_UMAC_INIT", "NO_SUCH_TASK"};
          auto counted = std::make_shared<std::atomic<int>>(0);
          ++started;
          const Call call = client.start(
              names[random() % 4], {},
              [&, counted](const Result<Payload>&) {
                ++ended;
                if (++*counted != 1) ++twice;
              },
              callOptions);
          const std::uint32_t choice = static_cast<std::uint32_t>(random() % 100);
          if (choice < 20) call.cancel();
          if (choice >= 80) (void)call.get();
          if (choice == 50) SluiceHubSim_LoseLink(0, 1, 0);
        }
      });
    }
    if (seed % 2 == 0) {
      std::this_thread::sleep_for(Milliseconds(seed * 10));
      client.close();
    }
    for (std::thread& thread : threads) thread.join();
    client.close();
    EXPECT_EQ(ended, started);
    EXPECT_EQ(twice, 0u);
    const Statistics counts = client.statistics();
    EXPECT_EQ(counts.answered + counts.failed, started);
    EXPECT_EQ(counts.inFlight + counts.queued + counts.heldNumbers, 0u);
  }
}

}  // namespace
}  // namespace kel::test
