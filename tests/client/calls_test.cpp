// SPDX-License-Identifier: MIT
// Calls: what ends them, when, and how often.
#include <array>
#include <atomic>
#include <thread>

#include "client/client_test.h"

namespace kel::test {
namespace {

using CallsTest = ClientTest;

TEST_F(CallsTest, AnAnswerIsWhatTheDeviceSaid) {
  Client client = Client::connect().value();
  EXPECT_EQ(client.task(kEcho, {7, 8, 9}).value().values().value(), (Values{7, 8, 9}));
  EXPECT_EQ(client.task(kEcho).value().values().value(), (Values{0, 0, 0}));
  EXPECT_EQ(client.task(kEchoBytes, "a text").value().text(), "a text");
  EXPECT_EQ(client.task(kEchoBytes, std::vector<std::uint16_t>{1, 2}).value().size(), 4u);
  EXPECT_EQ(client.task(std::string(kEchoBytes.name), std::string(KEL_MAX_TASK_PAYLOAD, 'x')).value().size(),
            KEL_MAX_TASK_PAYLOAD);
  const Payload empty = client.task(kEchoBytes).value();
  EXPECT_EQ(empty.size(), 0u);
  EXPECT_EQ(empty.form(), Form::ref);
  EXPECT_EQ(client.statistics().answered, 6u);
  EXPECT_EQ(client.statistics().failed, 0u);
}

TEST_F(CallsTest, AnAnswerGoesToWhoeverAskedForIt) {
  Told<std::uint32_t> told;
  Client client = Client::connect().value();
  const Call got = client.start(kEcho, {1, 0, 0});
  client.start(kEcho, {2, 0, 0}, [&](Result<Payload> answer) { told.tell(answer.value().values().value()[0]); });
  EXPECT_EQ(got.get().value().values().value()[0], 1u);
  EXPECT_TRUE(got.isDone());
  EXPECT_EQ(told.next(), 2u);
}

TEST_F(CallsTest, ATaskThatWantsNoAnswerEndsWhenItIsSent) {
  Client client = Client::connect().value();
  CallOptions options;
  options.sequenceWord = 77;
  EXPECT_TRUE(client.post(kEcho, {1, 2, 3}, options).ok());
  WaitForRequests(1);
  std::array<std::uint32_t, 8> body{};
  SluiceHubSim_GetRequest(SLUICEHUBSIM_LAST, nullptr, body.data(), sizeof body);
  EXPECT_THAT(body, ::testing::Contains(77u));
}

TEST_F(CallsTest, AnUnknownTaskIsToldFromARefusedOne) {
  Refuse(kOther);
  Client client = Client::connect().value();
  const Result<Payload> unknown = client.task("NO_SUCH_TASK");
  EXPECT_EQ(CauseOf(unknown), Cause::unknownTask);
  EXPECT_EQ(unknown.error().subject, "NO_SUCH_TASK");
  EXPECT_EQ(CauseOf(client.task("")), Cause::unknownTask);
  EXPECT_EQ(CauseOf(client.task(static_cast<const char*>(nullptr))), Cause::unknownTask);
  const Result<Payload> refused = client.task(kOther);
  EXPECT_EQ(CauseOf(refused), Cause::refused);
  EXPECT_EQ(refused.error().code, KEL_E_ASYNC_TASK);
  EXPECT_EQ(client.post("NO_SUCH_TASK").error().cause, Cause::unknownTask);
}

TEST_F(CallsTest, APayloadThatDoesNotFitIsNotSent) {
  Client client = Client::connect().value();
  EXPECT_EQ(CauseOf(client.task(kEcho.name, "four")), Cause::wrongForm);
  EXPECT_EQ(Requests(), 0u);
  EXPECT_EQ(client.task(kEchoBytes, "four").value().values().cause(), Cause::wrongForm);
}

TEST_F(CallsTest, ACallEndsAtItsDeadlineWhileTheLibraryWaitsOn) {
  Drop(kEcho);
  Told<Cause> told;
  Client client = Client::connect().value();
  CallOptions soon;
  soon.timeout = kShort;
  const Clock::time_point start = Clock::now();
  client.start(
      kEcho, {}, [&](Result<Payload> answer) { told.tell(CauseOf(answer)); }, soon);
  EXPECT_EQ(CauseOf(client.task(kEcho, {}, soon)), Cause::noAnswer);
  EXPECT_EQ(CauseOf(client.start(kEcho, {}, soon).get()), Cause::noAnswer);
  EXPECT_EQ(told.next(), Cause::noAnswer);
  EXPECT_GE(Clock::now() - start, 2 * kShort);
  EXPECT_LT(Clock::now() - start, 10s) << "the library's own time";
  EXPECT_EQ(client.statistics().heldNumbers, 3u);
}

TEST_F(CallsTest, TheLibrarysOwnEndOfWaitingEndsTheCall) {
  folder.writeSettings("RxWaitTimeout=50\n");
  Drop(kEcho);
  Client client = Client::connect().value();
  CallOptions late;
  late.timeout = kLong;
  EXPECT_EQ(CauseOf(client.task(kEcho, {}, late)), Cause::noAnswer);
  EXPECT_EQ(client.statistics().heldNumbers, 0u);
}

TEST_F(CallsTest, AnAnswerThatComesTooLateIsDroppedAndCounted) {
  Delay(kEcho, 2 * kShort, 1);
  Client client = Client::connect().value();
  CallOptions soon;
  soon.timeout = Milliseconds(1);
  EXPECT_EQ(CauseOf(client.task(kEcho, {1, 1, 1}, soon)), Cause::noAnswer);
  EXPECT_EQ(client.statistics().heldNumbers, 1u);
  while (client.statistics().lateAnswers == 0) std::this_thread::yield();
  EXPECT_EQ(client.statistics().heldNumbers, 0u);
  EXPECT_EQ(client.task(kEcho, {2, 2, 2}).value().values().value()[0], 2u);
}

TEST_F(CallsTest, DeadlinesHoldWhileAnotherClientKeepsTheLibraryToItself) {
  Client client = Client::connect().value();
  CallOptions soon;
  soon.timeout = kShort;
  {
    const LibraryAtWork work(Gate());
    EXPECT_EQ(CauseOf(client.task(kEcho, {}, soon)), Cause::noNumber);
    EXPECT_EQ(CauseOf(client.start(kEcho, {}, soon).get()), Cause::noNumber);
    EXPECT_FALSE(client.post(kEcho, {}, soon).ok());
  }
  EXPECT_EQ(Requests(), 0u);
  EXPECT_TRUE(client.task(kEcho).ok());
}

TEST_F(CallsTest, WhatFindsTheLibraryTakenIsSentAfterwards) {
  Told<std::uint32_t> told;
  Client client = Client::connect().value();
  {
    const LibraryAtWork work(Gate());
    for (std::uint32_t i = 0; i < 100; ++i) {
      client.start(kEcho, {i, 0, 0}, [&](Result<Payload> answer) { told.tell(answer.value().values().value()[0]); });
    }
    EXPECT_FALSE(told.next(kWhile));
    EXPECT_EQ(client.statistics().queued, 100u);
  }
  for (std::uint32_t i = 0; i < 100; ++i) EXPECT_TRUE(told.next());
  EXPECT_EQ(client.statistics().queued, 0u);
}

TEST_F(CallsTest, MoreCallsThanTheConnectionHasNumbersSeeNoRefusal) {
  Delay(kEcho, 20ms);
  Options options;
  options.maxInFlight = 64;
  Client client = Client::connect(options).value();
  std::vector<Call> calls;
  for (std::uint32_t i = 0; i < 200; ++i) calls.push_back(client.start(kEcho, {i, 0, 0}));
  for (std::uint32_t i = 0; i < 200; ++i) EXPECT_EQ(calls[i].get().value().values().value()[0], i);
}

TEST_F(CallsTest, NoMoreThanSoManyAreUnderWayAndWait) {
  Drop(kEcho);
  Options options;
  options.maxInFlight = 3;
  options.maxQueued = 2;
  Client client = Client::connect(options).value();
  std::vector<Call> calls;
  for (int i = 0; i < 5; ++i) calls.push_back(client.start(kEcho));
  EXPECT_EQ(client.statistics().inFlight, 3u);
  EXPECT_EQ(client.statistics().queued, 2u);
  EXPECT_EQ(CauseOf(client.task(kEcho)), Cause::noNumber);
  for (const Call& call : calls) EXPECT_FALSE(call.isDone());
  EXPECT_EQ(Requests(), 3u);
}

TEST_F(CallsTest, AWaitingCallEndsAtItsDeadlineWithoutHavingBeenSent) {
  Drop(kEcho);
  Options options;
  options.maxInFlight = 1;
  Client client = Client::connect(options).value();
  const Call first = client.start(kEcho);
  CallOptions soon;
  soon.timeout = kShort;
  EXPECT_EQ(CauseOf(client.task(kEcho, {}, soon)), Cause::noNumber);
  EXPECT_EQ(CauseOf(client.start(kEcho, {}, soon).get()), Cause::noNumber);
  EXPECT_FALSE(first.isDone());
  EXPECT_EQ(Requests(), 1u);
}

TEST_F(CallsTest, ACancelledCallEndsAtOnceAndKeepsItsNumber) {
  Drop(kEcho);
  Told<Cause> told;
  Client client = Client::connect().value();
  const Call call = client.start(kEcho, {}, [&](Result<Payload> answer) { told.tell(CauseOf(answer)); });
  EXPECT_FALSE(call.waitFor(Milliseconds(1)));
  EXPECT_TRUE(call.cancel());
  EXPECT_FALSE(call.cancel());
  EXPECT_EQ(CauseOf(call.get()), Cause::cancelled);
  EXPECT_EQ(told.next(), Cause::cancelled);
  EXPECT_EQ(client.statistics().heldNumbers, 1u);
  client.close();
  EXPECT_EQ(told.all().size(), 1u);
}

TEST_F(CallsTest, ACallThatWaitsToBeSentCanBeCancelled) {
  Options options;
  options.maxInFlight = 1;
  Drop(kEcho);
  Client client = Client::connect(options).value();
  const Call first = client.start(kEcho);
  const Call second = client.start(kEcho);
  EXPECT_TRUE(second.cancel());
  EXPECT_EQ(client.statistics().queued, 0u);
  EXPECT_TRUE(first.cancel());
}

TEST_F(CallsTest, ACallHandleThatItsOwnCallbackKeepsGoesWithTheCall) {
  Client client = Client::connect().value();
  auto watched = std::make_shared<int>();
  const std::weak_ptr<int> watch = watched;
  {
    auto own = std::make_shared<std::optional<Call>>();
    *own = client.start(kEcho, {}, [own, watched = std::move(watched)](const Result<Payload>&) {});
    EXPECT_TRUE((*own)->get().ok());
  }
  client.close();
  EXPECT_TRUE(watch.expired());
}

TEST_F(CallsTest, CallbacksMayCallAnythingOfTheClient) {
  Told<std::uint32_t> told;
  Client client = Client::connect().value();
  client.start(kEcho, {5, 0, 0}, [&](Result<Payload> answer) {
    told.tell(answer.value().values().value()[0]);
    told.tell(client.task(kEcho, {6, 0, 0}).value().values().value()[0]);
    told.tell(client.start(kEcho, {7, 0, 0}).get().value().values().value()[0]);
    told.tell(client.post(kEcho).ok() ? 8 : 0);
    client.start(kEcho, {9, 0, 0}, [&](Result<Payload> next) { told.tell(next.value().values().value()[0]); });
  });
  for (const std::uint32_t expected : {5u, 6u, 7u, 8u, 9u}) EXPECT_EQ(told.next(), expected);
}

TEST_F(CallsTest, ManyThreadsAtOnceEachGetTheirOwnAnswers) {
  Client client = Client::connect().value();
  std::atomic<std::uint32_t> right{0};
  std::vector<std::thread> threads;
  for (std::uint32_t thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&, thread] {
      for (std::uint32_t i = 0; i < 100; ++i) {
        const auto answer = client.task(kEcho, {thread, i, 0});
        if (answer && answer->values().value() == Values{thread, i, 0}) ++right;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, 800u);
}

TEST_F(CallsTest, ValuesAreReadOnlyFromAnAnswer) {
  Client client = Client::connect().value();
  EXPECT_THROW(client.task("NO_SUCH_TASK").value(), Exception);
  EXPECT_EQ(client.task("NO_SUCH_TASK").error().text(), "NO_SUCH_TASK: the task table has no task of this name");
}

}  // namespace
}  // namespace kel::test
