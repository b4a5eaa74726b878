// SPDX-License-Identifier: MIT
// What the monitor keeps in mind, and what it makes of that on a screen.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "monitor/record.h"
#include "monitor/screen.h"

namespace kelctl::monitor {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const Clock::time_point kStart{seconds(1000)};

kel::Broadcast broadcastOf(const std::string& task, std::uint32_t word, kel::Values values = {}) {
  kel::Broadcast broadcast;
  static_cast<kel::Payload&>(broadcast) = kel::Payload::copied(kel::Form::val, word, values.data(), sizeof values);
  broadcast.task = task;
  return broadcast;
}

std::size_t widthOf(const std::string& line) {
  return static_cast<std::size_t>(
      std::count_if(line.begin(), line.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  return text;
}

class MonitorTest : public testing::Test {
 protected:
  std::vector<std::string> lines(Size size, Clock::time_point now) const {
    return linesOf(record.picture(statistics, now), view, size, output);
  }
  std::string screen(Clock::time_point now, Size size = {80, 24}) const { return joined(lines(size, now)); }

  Record record{kStart};
  kel::Statistics statistics;
  View view{"kel:", "ECHO"};
  const Output output{true};  // without colours
};

TEST(RateTest, CountsWholeSeconds) {
  Rate rate;
  EXPECT_EQ(rate.perSecond(kStart), 0);
  for (int i = 0; i < 30; ++i) rate.count(kStart + milliseconds(100 * i));
  EXPECT_EQ(rate.perSecond(kStart + seconds(3)), 10);
  EXPECT_EQ(rate.perSecond(kStart + milliseconds(3900)), 10);
}

TEST(RateTest, TellsOfTheFirstSecondWhatThereIs) {
  Rate rate;
  rate.count(kStart);
  rate.count(kStart);
  EXPECT_EQ(rate.perSecond(kStart), 2);
}

TEST(RateTest, ForgetsAfterFiveSeconds) {
  Rate rate;
  for (int i = 0; i < 10; ++i) rate.count(kStart);
  EXPECT_EQ(rate.perSecond(kStart + seconds(5)), 2);
  EXPECT_EQ(rate.perSecond(kStart + seconds(6)), 0);
  EXPECT_EQ(rate.perSecond(kStart + seconds(1000)), 0);
}

TEST(LatenciesTest, PercentilesAreOfTheLastThousand) {
  Latencies latencies;
  latencies.add(seconds(5), kStart);
  for (int i = 1; i <= 1000; ++i) latencies.add(milliseconds(i), kStart);
  EXPECT_EQ(latencies.percentile(50), milliseconds(500));
  EXPECT_EQ(latencies.percentile(99), milliseconds(990));
  EXPECT_EQ(latencies.percentile(100), milliseconds(1000));
  EXPECT_EQ(latencies.longest(), seconds(5));
}

TEST(LatenciesTest, EachSecondHasItsMedian) {
  Latencies latencies;
  for (const int ms : {3, 1, 2}) latencies.add(milliseconds(ms), kStart);
  latencies.add(milliseconds(7), kStart + seconds(2));
  const auto medians = latencies.medians(kStart + seconds(3));
  ASSERT_EQ(medians.size(), Latencies::kSeconds);
  EXPECT_EQ(medians[Latencies::kSeconds - 3], milliseconds(2));
  EXPECT_FALSE(medians[Latencies::kSeconds - 2]);
  EXPECT_EQ(medians[Latencies::kSeconds - 1], milliseconds(7));
}

TEST(LatenciesTest, MediansOlderThanAMinuteAreForgotten) {
  Latencies latencies;
  for (int i = 0; i < 200; ++i) latencies.add(milliseconds(1), kStart + seconds(i));
  const auto medians = latencies.medians(kStart + seconds(200));
  EXPECT_TRUE(std::all_of(medians.begin(), medians.end(), [](const auto& median) { return median.has_value(); }));
  const auto later = latencies.medians(kStart + seconds(300));
  EXPECT_TRUE(std::none_of(later.begin(), later.end(), [](const auto& median) { return median.has_value(); }));
}

TEST_F(MonitorTest, TheLinkIsShownWithItsStateAndReason) {
  record.changed({kel::State::connected, ""}, kStart);
  EXPECT_NE(screen(kStart + seconds(12)).find("link      connected for 00:00:12  0 losses  0 connections"),
            std::string::npos);
  statistics.losses = 1;
  record.changed({kel::State::lost, "3 heartbeats were not answered"}, kStart + seconds(60));
  EXPECT_NE(screen(kStart + seconds(61)).find("link      lost for 00:00:01  1 loss  0 connections  (3 heartbeats were"),
            std::string::npos);
}

TEST_F(MonitorTest, AnotherReasonIsNoNewState) {
  record.changed({kel::State::lost, "first"}, kStart);
  record.changed({kel::State::lost, "second"}, kStart + seconds(5));
  EXPECT_NE(screen(kStart + seconds(7)).find("lost for 00:00:07"), std::string::npos);
}

TEST_F(MonitorTest, TasksAreShownWithTheirRateAndOutcomes) {
  for (int i = 0; i < 20; ++i) record.answered(kStart + milliseconds(100 * i), kStart + milliseconds(100 * i + 2));
  record.failed(kel::Cause::noAnswer);
  record.failed(kel::Cause::noAnswer);
  record.failed(kel::Cause::linkLost);
  statistics.inFlight = 3;
  statistics.lateAnswers = 4;
  const std::string shown = screen(kStart + seconds(2));
  EXPECT_NE(shown.find("rate      10.0/s  3 in flight"), std::string::npos);
  EXPECT_NE(shown.find("outcomes  20 answered  2 no-answer  1 link-lost  4 late"), std::string::npos);
  EXPECT_NE(shown.find("latency   50% 2.00 ms  99% 2.00 ms  longest 2.00 ms"), std::string::npos);
  EXPECT_NE(shown.find("██"), std::string::npos);
}

TEST_F(MonitorTest, BroadcastsAreShownByNameAndWord) {
  record.broadcast(broadcastOf("HEAT", 7, {1, 2, 3}), kStart);
  record.broadcast(broadcastOf("HEAT", 8), kStart);
  record.broadcast(broadcastOf("HEAT", 7, {4, 5, 6}), kStart);
  const std::string shown = screen(kStart);
  EXPECT_NE(shown.find("0x00000007     2.0/s         2  4 5 6"), std::string::npos);
  EXPECT_NE(shown.find("0x00000008     1.0/s         1  0 0 0"), std::string::npos);
}

TEST_F(MonitorTest, ASourceIsFoundByAPartOfItsName) {
  record.broadcast(broadcastOf("HEAT", 0), kStart);
  record.broadcast(broadcastOf("LIGHT", 0), kStart);
  view.filter = "lig";
  const std::string shown = screen(kStart);
  EXPECT_EQ(shown.find("HEAT"), std::string::npos);
  EXPECT_NE(shown.find("LIGHT"), std::string::npos);
  view.filter = "none";
  EXPECT_NE(screen(kStart).find("none has the filter in its name"), std::string::npos);
}

TEST_F(MonitorTest, SourcesAreSortedByNameRateOrCount) {
  for (int i = 0; i < 9; ++i) record.broadcast(broadcastOf("OFTEN_BEFORE", 0), kStart);
  for (int i = 0; i < 3; ++i) record.broadcast(broadcastOf("NOW", 0), kStart + seconds(60));
  record.broadcast(broadcastOf("ALSO", 0), kStart + seconds(60));
  const auto order = [&] {
    const std::string shown = screen(kStart + seconds(60));
    std::vector<std::pair<std::size_t, std::string>> places;
    for (const char* name : {"OFTEN_BEFORE", "NOW", "ALSO"}) places.push_back({shown.find(name), name});
    std::sort(places.begin(), places.end());
    return places[0].second + ' ' + places[1].second + ' ' + places[2].second;
  };
  EXPECT_EQ(order(), "ALSO NOW OFTEN_BEFORE");
  view.order = Order::byRate;
  EXPECT_EQ(order(), "NOW ALSO OFTEN_BEFORE");
  view.order = Order::byCount;
  EXPECT_EQ(order(), "OFTEN_BEFORE NOW ALSO");
}

TEST_F(MonitorTest, AStreamHasAStateOfItsOwn) {
  const std::size_t stream = record.openStream("POUR");
  EXPECT_NE(screen(kStart).find("opening"), std::string::npos);
  record.opened(stream);
  EXPECT_NE(screen(kStart).find(" open "), std::string::npos);
  record.ended(stream, kel::End::linkLost);
  EXPECT_NE(screen(kStart).find("link-lost"), std::string::npos);
}

TEST_F(MonitorTest, EveryScreenHasItsSizeAndTheKeysAtItsEnd) {
  for (int i = 0; i < 300; ++i)
    record.broadcast(broadcastOf("A_BROADCAST_WITH_A_LONG_NAME_" + std::to_string(i), 0), kStart);
  for (int i = 0; i < 20; ++i) record.openStream("A_STREAM_WITH_A_RATHER_LONG_NAME_" + std::to_string(i));
  record.answered(kStart, kStart + milliseconds(1));
  record.changed({kel::State::lost, std::string(300, 'x')}, kStart);
  for (const std::size_t columns : {1, 9, 40, 80, 132, 300}) {
    for (const std::size_t rows : {1, 2, 5, 10, 24, 60}) {
      const std::vector<std::string> shown = lines({columns, rows}, kStart);
      EXPECT_EQ(shown.size(), rows) << columns << 'x' << rows;
      for (const std::string& line : shown) EXPECT_LE(widthOf(line), columns) << line;
      EXPECT_EQ(shown.back().substr(0, 7), std::string("p pause").substr(0, std::min<std::size_t>(columns, 7)));
    }
  }
}

TEST_F(MonitorTest, WhatFindsNoRoomIsCounted) {
  for (int i = 0; i < 100; ++i) record.broadcast(broadcastOf("B" + std::to_string(i), 0), kStart);
  const std::string shown = screen(kStart, {80, 24});
  EXPECT_NE(shown.find("and 87 more"), std::string::npos) << shown;
}

TEST_F(MonitorTest, ALineHasTheSameFacts) {
  record.changed({kel::State::connected, ""}, kStart);
  record.answered(kStart, kStart + milliseconds(1));
  EXPECT_EQ(
      lineOf(record.picture(statistics, kStart + seconds(2))),
      "00:00:02  connected  0.5/s  1 answered  50% 1.00 ms  99% 1.00 ms  longest 1.00 ms  0 broadcasts  0 losses\n");
}

}  // namespace
}  // namespace kelctl::monitor
