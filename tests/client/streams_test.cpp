// SPDX-License-Identifier: MIT
// Streams and broadcasts.
#include <atomic>
#include <thread>

#include "client/client_test.h"

namespace kel::test {
namespace {

using StreamsTest = ClientTest;

constexpr std::uint32_t kNewsTui = tasks::TASK_ID_TIMER_POST_TASKS.tui;

/// Names broadcasts by the words that they come with: those of their tasks, but for the target.
constexpr char kTableOfBroadcasts[] =
    "NEWS, 0, 3, KEL_BROADCAST, 3, VAL, 217184, 0x35060\r\n"
    "ECHO_OF_BROADCASTER, 2, 18, KEL_BROADCAST, 3, VAL, 217666, 0x35242\r\n"
    "TASK_ID_APPLICATION_DEBUG_BROADCASTER, 2, 18, KEL_UPPER_DSPS, 3, VAL, 229954, 0x38242\r\n";

void SendBroadcast(std::uint32_t value, std::uint32_t sequenceWord = 0) {
  SluiceHubSim_Broadcast(0, kNewsTui, sequenceWord, &value, sizeof value, 1);
}

/// Of a stream that loses nothing: what finds so many messages unread waits.
StreamOptions WaitingBehind(std::size_t limit) {
  StreamOptions options;
  options.limit = limit;
  options.whenFull = WhenFull::wait;
  return options;
}

TEST_F(StreamsTest, AStreamIsReadByALoopToItsEnd) {
  Client client = Client::connect().value();
  Stream stream = client.stream(kStreamer, {5, 0, 0}).value();
  std::uint32_t count = 0;
  for (const Message& message : stream) {
    if (!message.isLast) {
      EXPECT_EQ(message.values().value()[0], count);
    }
    ++count;
  }
  EXPECT_EQ(count, 6u) << "five messages and the end";
  EXPECT_EQ(stream.reason(), End::finished);
  EXPECT_FALSE(stream.next());
  EXPECT_EQ(client.statistics().streamMessages, 6u);
  EXPECT_EQ(client.statistics().inFlight, 0u);
  EXPECT_EQ(client.statistics().heldNumbers, 0u);
}

TEST_F(StreamsTest, AStreamIsHandedOverMessageByMessageAndThenItsEnd) {
  Told<std::uint32_t> told;
  Told<End> ends;
  Client client = Client::connect().value();
  const Stream stream =
      client
          .stream(
              kStreamer, {3, 0, 0},
              [&](const Message& message) { told.tell(message.isLast ? 100 : message.values().value()[0]); },
              [&](End end) { ends.tell(end); })
          .value();
  EXPECT_EQ(ends.next(), End::finished);
  EXPECT_EQ(told.all(), (std::vector<std::uint32_t>{0, 1, 2, 100}));
  client.close();
  EXPECT_EQ(ends.all().size(), 1u);
}

TEST_F(StreamsTest, AStreamThatNeverOpensIsAFailedCall) {
  Drop(kStreamer);
  Client client = Client::connect().value();
  StreamOptions options;
  options.timeout = kShort;
  EXPECT_EQ(client.stream(kStreamer, {}, options).cause(), Cause::noAnswer);
  EXPECT_EQ(client.stream("NO_SUCH_TASK").cause(), Cause::unknownTask);
  EXPECT_EQ(client.statistics().heldNumbers, 1u);
}

TEST_F(StreamsTest, AStreamThatOpensTooLateIsNotRead) {
  Delay(kStreamer, 2 * kShort);
  Client client = Client::connect().value();
  StreamOptions options;
  options.timeout = kShort;
  EXPECT_EQ(client.stream(kStreamer, {2, 0, 0}, options).cause(), Cause::noAnswer);
  while (client.statistics().heldNumbers != 0) std::this_thread::yield();
  EXPECT_EQ(client.statistics().streamMessages, 0u);
}

TEST_F(StreamsTest, AMessageMayOvertakeTheOpening) {
  SluiceHubSimRule rule = RuleFor(kStreamer);
  rule.flags = SLUICEHUBSIM_STREAM | SLUICEHUBSIM_ACK_LAST;
  rule.streamCount = 2;
  SluiceHubSim_AddRule(&rule);
  Client client = Client::connect().value();
  Stream stream = client.stream(kStreamer).value();
  EXPECT_EQ(stream.opening().size(), 0u);
  std::uint32_t count = 0;
  while (stream.next()) ++count;
  EXPECT_EQ(count, 3u);
}

TEST_F(StreamsTest, AStoppedStreamKeepsItsNumberUntilTheDeviceEndsIt) {
  Client client = Client::connect().value();
  {
    const Stream stream = client.stream(kStreamer, {10, 20, 0}).value();
    EXPECT_EQ(client.statistics().inFlight, 1u);
  }
  EXPECT_EQ(client.statistics().inFlight, 0u);
  EXPECT_EQ(client.statistics().heldNumbers, 1u);
  while (client.statistics().heldNumbers != 0) std::this_thread::yield();
}

TEST_F(StreamsTest, WhatWasThereWhenAStreamWasStoppedMayBeRead) {
  MakeEndless(kStreamer, 3);
  Client client = Client::connect().value();
  Stream stream = client.stream(kStreamer).value();
  while (client.statistics().streamMessages < 3) std::this_thread::yield();
  ASSERT_TRUE(stream.next());
  stream.stop();
  EXPECT_EQ(stream.reason(), End::none);
  EXPECT_EQ(stream.nextBatch().size(), 2u);
  EXPECT_FALSE(stream.next());
  EXPECT_EQ(stream.reason(), End::stopped);
}

TEST_F(StreamsTest, AStreamOnWhichNothingComesIsIdle) {
  MakeEndless(kStreamer, 1);
  Client client = Client::connect().value();
  StreamOptions options;
  options.idle = kShort;
  Stream stream = client.stream(kStreamer, {}, options).value();
  EXPECT_TRUE(stream.next());
  EXPECT_FALSE(stream.next());
  EXPECT_EQ(stream.reason(), End::idle);
  EXPECT_EQ(client.statistics().heldNumbers, 1u);
}

TEST_F(StreamsTest, AStreamEndsWhenItsTimeIsOver) {
  MakeEndless(kStreamer, 1'000'000, 1ms);
  Client client = Client::connect().value();
  StreamOptions options;
  options.duration = kShort;
  options.idle = kLong;
  Stream stream = client.stream(kStreamer, {}, options).value();
  while (stream.next()) {
  }
  EXPECT_EQ(stream.reason(), End::deadline);
}

TEST_F(StreamsTest, TheTimeOfAStreamBeginsWithItsOpening) {
  Delay(kStreamer, 4 * kShort);
  Client client = Client::connect().value();
  StreamOptions options;
  options.duration = 2 * kShort;
  options.idle = 2 * kShort;
  Result<Stream> stream = client.stream(kStreamer, {1, 0, 0}, options);
  ASSERT_TRUE(stream.ok()) << stream.error();
  while (stream->next()) {
  }
  EXPECT_EQ(stream->reason(), End::finished);
}

TEST_F(StreamsTest, ALossIsToldFromTheDevicesEnd) {
  MakeEndless(kStreamer, 1);
  Client client = Client::connect(watching()).value();
  Stream stream = client.stream(kStreamer).value();
  SluiceHubSim_LoseLink(0, 1, 1);
  while (stream.next()) {
  }
  EXPECT_EQ(stream.reason(), End::linkLost);
}

TEST_F(StreamsTest, AFullQueueLosesTheOldestAndCountsThem) {
  Client client = Client::connect().value();
  StreamOptions options;
  options.limit = 2;
  Stream stream = client.stream(kStreamer, {9, 0, 0}, options).value();
  while (client.statistics().inFlight != 0) std::this_thread::yield();
  const std::deque<Message> left = stream.nextBatch();
  ASSERT_EQ(left.size(), 2u);
  EXPECT_TRUE(left.back().isLast);
  EXPECT_EQ(stream.dropped(), 8u);
  while (client.statistics().droppedMessages != 8) std::this_thread::yield();
}

TEST_F(StreamsTest, AFullQueueThatWaitsLosesNothing) {
  Client client = Client::connect().value();
  Stream stream = client.stream(kStreamer, {50, 0, 0}, WaitingBehind(2)).value();
  std::uint32_t count = 0;
  while (stream.next()) ++count;
  EXPECT_EQ(count, 51u);
  EXPECT_EQ(stream.dropped(), 0u);
}

TEST_F(StreamsTest, ClosingFreesWhatWaitsForRoom) {
  Client client = Client::connect().value();
  Stream stream = client.stream(kStreamer, {50, 0, 0}, WaitingBehind(1)).value();
  while (client.statistics().streamMessages < 2) std::this_thread::yield();
  client.close();
  EXPECT_TRUE(stream.next());
  EXPECT_FALSE(stream.next());
  EXPECT_EQ(stream.reason(), End::closed);
}

TEST_F(StreamsTest, AMessageThatWaitsForRoomIsASignOfLife) {
  Options options = watching();
  Client client = Client::connect(options).value();
  Stream stream = client.stream(kStreamer, {50, 0, 0}, WaitingBehind(1)).value();
  while (client.statistics().streamMessages < 2) std::this_thread::yield();
  std::this_thread::sleep_for(8 * options.supervision.interval);
  EXPECT_EQ(client.statistics().losses, 0u);
  std::uint32_t count = 0;
  while (stream.next()) ++count;
  EXPECT_EQ(count, 51u);
}

TEST_F(StreamsTest, AReaderWithALoopOfItsOwnIsToldOnceUntilItHasFoundNothing) {
  Client client = Client::connect().value();
  Subscription broadcasts = client.broadcasts();
  std::atomic<int> told{0};
  broadcasts.tellWhenReady([&] { ++told; });
  SendBroadcast(1);
  SendBroadcast(2);
  while (client.statistics().broadcasts < 2) std::this_thread::yield();
  EXPECT_EQ(told, 1);
  std::size_t count = broadcasts.nextBatch().size();
  EXPECT_EQ(told, 1);
  while (count < 2) count += broadcasts.nextBatch().size();
  EXPECT_TRUE(broadcasts.nextBatch().empty());
  SendBroadcast(3);
  while (told < 2) std::this_thread::yield();
  EXPECT_TRUE(broadcasts.next());
}

TEST_F(StreamsTest, EachSubscriberGetsEachBroadcastThatItWants) {
  folder.write("broadcasts.csv", kTableOfBroadcasts);
  Options options;
  options.table = "broadcasts.csv";
  Client client = Client::connect(options).value();
  Subscription all = client.broadcasts();
  BroadcastOptions other;
  other.task = "ECHO_OF_BROADCASTER";
  Subscription others = client.broadcasts(other);
  BroadcastOptions marked;
  marked.sequenceWord = 5;
  Subscription marks = client.broadcasts(marked);
  SendBroadcast(1, 4);
  SendBroadcast(2, 5);
  EXPECT_TRUE(client.task(kBroadcaster, {1, 0, 0}).ok());

  const std::optional<Broadcast> first = all.next(kLong);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->task, "NEWS");
  EXPECT_EQ(first->as<std::uint32_t>().value(), 1u);
  EXPECT_EQ(first->sequenceWord(), 4u);
  EXPECT_TRUE(all.next(kLong));
  EXPECT_EQ(all.next(kLong)->task, "ECHO_OF_BROADCASTER");
  EXPECT_EQ(others.next(kLong)->task, "ECHO_OF_BROADCASTER");
  EXPECT_EQ(marks.next(kLong)->as<std::uint32_t>().value(), 2u);
  others.stop();
  EXPECT_FALSE(others.next());
  EXPECT_EQ(others.reason(), End::stopped);
  EXPECT_FALSE(marks.next(Milliseconds(0)));
}

TEST_F(StreamsTest, ASubscriptionSurvivesALossAndEndsWithTheClient) {
  Told<std::uint32_t> told;
  Told<End> ends;
  Client client = Client::connect(watching()).value();
  const Subscription subscription =
      client.broadcasts([&](const Broadcast& broadcast) { told.tell(broadcast.as<std::uint32_t>().value()); },
                        [&](End end) { ends.tell(end); });
  SendBroadcast(1);
  EXPECT_EQ(told.next(), 1u);
  SluiceHubSim_LoseLink(0, 1, 1);
  awaitState(State::lost);
  EXPECT_TRUE(client.waitFor(State::connected, kLong));
  SendBroadcast(2);
  EXPECT_EQ(told.next(), 2u);
  client.close();
  EXPECT_EQ(ends.all(), std::vector<End>{End::closed});
}

TEST_F(StreamsTest, BroadcastsWithoutRoomAreDroppedAndCounted) {
  Client client = Client::connect().value();
  BroadcastOptions options;
  options.limit = 1;
  Subscription subscription = client.broadcasts(options);
  for (std::uint32_t i = 0; i < 5; ++i) SendBroadcast(i);
  while (client.statistics().droppedBroadcasts < 4) std::this_thread::yield();
  EXPECT_EQ(subscription.dropped(), 4u);
  EXPECT_EQ(subscription.next()->as<std::uint32_t>().value(), 4u);
}

TEST_F(StreamsTest, ASubscriptionToAClosedClientEndsAtOnce) {
  Told<End> ends;
  Client client = Client::connect().value();
  client.close();
  Subscription late = client.broadcasts();
  EXPECT_FALSE(late.next());
  EXPECT_EQ(late.reason(), End::closed);
  const Subscription handedOver = client.broadcasts([](const Broadcast&) {}, [&](End end) { ends.tell(end); });
  EXPECT_EQ(ends.next(Milliseconds(0)), End::closed);
}

TEST_F(StreamsTest, AFloodHandedOverLeavesRoomForOtherCallbacks) {
  MakeEndless(kStreamer, 1'000'000);
  Event flooded;
  Event answered;
  Client client = Client::connect().value();
  const Stream stream = client
                            .stream(kStreamer, {},
                                    [&](const Message&) {
                                      flooded.set();
                                      std::this_thread::sleep_for(1ms);  // slower than they come
                                    })
                            .value();
  flooded.wait();
  client.start(kEcho, {}, [&](const Result<Payload>&) { answered.set(); });
  EXPECT_TRUE(answered.wait(10s));
}

TEST_F(StreamsTest, AStoppedStreamHandsNothingOverButItsEnd) {
  MakeEndless(kStreamer, 100);
  Event begun, goOn;
  Told<std::uint32_t> told;
  Told<End> ends;
  Client client = Client::connect().value();
  Stream stream = client
                      .stream(
                          kStreamer, {},
                          [&](const Message& message) {
                            told.tell(message.values().value()[0]);
                            begun.set();
                            goOn.wait();
                          },
                          [&](End end) { ends.tell(end); })
                      .value();
  begun.wait();
  stream.stop();
  goOn.set();
  EXPECT_EQ(ends.next(), End::stopped);
  EXPECT_EQ(told.all().size(), 1u);
}

TEST_F(StreamsTest, AStreamMayBeOpenedReadAndStoppedInACallback) {
  Told<std::uint32_t> told;
  Client client = Client::connect().value();
  client.start(kEcho, {}, [&](const Result<Payload>&) {
    Stream stream = client.stream(kStreamer, {2, 0, 0}).value();
    std::uint32_t count = 0;
    while (stream.next()) ++count;
    told.tell(count);
  });
  EXPECT_EQ(told.next(), 3u);
}

}  // namespace
}  // namespace kel::test
