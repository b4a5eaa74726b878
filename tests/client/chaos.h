/* SPDX-License-Identifier: MIT */
// A client in a storm: calls, streams and broadcasts, while the device and the way to it fail at random.
//
// Each call has to end once, and not later than its deadline and 50 ms, to which is added what the machine itself comes
// late; each connection is told of; and what the process has of the system must not grow. Ends with a table and a
// verdict. The same seed gives the same device and the same calls.
#pragma once

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kel/client.hpp"
#include "soak/trend.h"
#include "support/process_resources.h"

namespace kel::test {

using Random = std::minstd_rand;
using Counter = std::atomic<std::uint64_t>;

inline constexpr std::uint32_t kThreads = 4;
inline constexpr std::uint32_t kCallsPerSecond = 200;
inline constexpr Milliseconds kGrace{50};

inline constexpr char kSettings[] = "RxWaitTimeout=500\nReleaseBlocks=1\n";

inline std::string Scenario(std::uint32_t seed) {
  return "{\"seed\": " + std::to_string(seed) + R"(,
  "rules": [
    {"task": "TASK_ID_APPLICATION_DEBUG_VAL", "drop": {"probability": 0.02}, "jitter": 20},
    {"task": "TASK_ID_APPLICATION_DEBUG_REF", "drop": {"probability": 0.05}, "jitter": 100},
    {"task": "TASK_ID_UMAC_INIT", "refuse": {"L4status": 1, "L4error": 513}}
  ],
  "broadcasts": [{"task": "TASK_ID_TIMER_POST_TASKS", "at": 20, "every": 20, "payload": {"size": 100}}]
})";
}

/// Up to and without `below`.
inline std::uint32_t Any(Random& random, std::uint32_t below) { return static_cast<std::uint32_t>(random() % below); }

/// Keeps the most that was told.
class Most {
 public:
  void tell(Clock::duration value) {
    Clock::rep most = mMost;
    while (value.count() > most && !mMost.compare_exchange_weak(most, value.count())) {
    }
  }
  double milliseconds() const {
    return std::chrono::duration<double, std::milli>(Clock::duration(mMost.load())).count();
  }

 private:
  std::atomic<Clock::rep> mMost{0};
};

struct Level {
  const char* name;
  std::optional<std::size_t> (*look)();
  double upsAndDowns;         ///< growth in the second half that comes of what is under way
  double left;                ///< what may be more at the end
  double leftByEachLoss = 0;  ///< and so much of each call that was under way at a loss
  std::optional<std::size_t> before{};
  Trend trend{};
};

/// A device, the way to it, and what befalls them.
class Weather {
 public:
  virtual ~Weather() = default;
  virtual Client begin(Options options) = 0;
  /// Something fails. It may be mended here as well.
  virtual void strike(Random& random) = 0;
  /// Everything is mended.
  virtual void end() {}
  /// What must not grow, with the threads at the end.
  virtual std::vector<Level> levels() const = 0;
};

class Chaos {
 public:
  Chaos(Weather& weather, double seconds, std::uint32_t seed)
      : mWeather(weather),
        mLevels(weather.levels()),
        mEnd(Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))),
        mSeed(seed) {}

  /// Returns the exit status.
  int run() {
    for (Level& level : mLevels) level.before = level.look();
    {
      Client client = mWeather.begin(options());
      Subscription broadcasts = client.broadcasts();
      std::vector<std::thread> threads;
      for (std::uint32_t i = 0; i < kThreads; ++i) threads.emplace_back([&, i] { call(client, i); });
      for (std::uint32_t i = 0; i < 2; ++i) threads.emplace_back([&] { stream(client); });
      threads.emplace_back([&] {
        while (broadcasts.next()) ++mBroadcasts;
      });
      threads.emplace_back([&] { disturb(); });
      threads.emplace_back([&] { watchTheMachine(); });
      while (Clock::now() < mEnd) {
        std::this_thread::sleep_for(Milliseconds(100));
        const double now = std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
        for (Level& level : mLevels) {
          if (const auto value = level.look()) level.trend.add(now, static_cast<double>(*value));
        }
      }
      client.close();
      for (std::thread& thread : threads) thread.join();
      mStatistics = client.statistics();
    }
    // A thread whose end was waited for may be seen for a moment longer.
    const Level& threads = mLevels.back();
    for (int look = 0; threads.look() > threads.before && look < 1000; ++look) {
      std::this_thread::sleep_for(Milliseconds(10));
    }
    return print();
  }

 private:
  Options options() {
    Options options;
    options.supervision.heartbeat = "TASK_ID_HDI_UT_VAL_TEST_RESPOND";
    options.supervision.interval = Milliseconds(100);
    options.supervision.reconnect = true;
    options.supervision.firstPause = Milliseconds(10);
    options.supervision.longestPause = Milliseconds(200);
    options.onState = [this](const StateChange& change) {
      if (change.state == State::connected) ++mConnectionsTold;
      if (change.state == State::lost && change.attempt == 0) ++mLossesTold;
    };
    return options;
  }

  /// So many calls a second, each of a kind of its own.
  void call(Client& client, std::uint32_t thread) {
    Random random(mSeed * 16 + thread + 1);
    constexpr const char* kTasks[] = {"TASK_ID_APPLICATION_DEBUG_VAL", "TASK_ID_APPLICATION_DEBUG_REF",
                                      "TASK_ID_UMAC_INIT", "NO_SUCH_TASK"};
    for (Clock::time_point next = Clock::now(); next < mEnd; next += kThreads * Milliseconds(1000) / kCallsPerSecond) {
      std::this_thread::sleep_until(next);
      const std::uint32_t kind = Any(random, 100);
      const char* const task = kTasks[kind < 60 ? 0 : kind < 90 ? 1 : kind < 95 ? 2 : 3];
      CallOptions callOptions;
      callOptions.timeout = Milliseconds(20 + Any(random, 300));
      callOptions.repeatable = Any(random, 2) == 0;
      const Clock::time_point deadline = Clock::now() + *callOptions.timeout;
      ++mStarted;
      const auto onEnd = [this, deadline, ended = std::make_shared<std::atomic<bool>>(false)](const Result<Payload>&) {
        if (ended->exchange(true)) ++mTwice;
        ++mEnded;
        mLatest.tell(Clock::now() - deadline);
      };
      const std::uint32_t way = Any(random, 10);
      if (way == 0) {
        onEnd(client.task(task, Values{1, 2, 3}, callOptions));
      } else {
        const Call call = client.start(task, Values{1, 2, 3}, onEnd, callOptions);
        if (way == 1) call.cancel();
      }
    }
  }

  void stream(Client& client) {
    while (Clock::now() < mEnd) {
      StreamOptions streamOptions;
      streamOptions.timeout = Milliseconds(200);
      streamOptions.idle = Milliseconds(200);
      Result<Stream> stream = client.stream(tasks::TASK_ID_APPLICATION_DEBUG_STREAMER, {50, 5, 0}, streamOptions);
      if (!stream) continue;
      ++mStreams;
      while (stream->next()) ++mMessages;
    }
  }

  void disturb() {
    Random random(mSeed);
    while (Clock::now() < mEnd) {
      std::this_thread::sleep_for(Milliseconds(100 + Any(random, 1000)));
      mWeather.strike(random);
    }
    mWeather.end();
  }

  /// By how much a thread that wants to run comes late.
  void watchTheMachine() {
    while (Clock::now() < mEnd) {
      const Clock::time_point due = Clock::now() + Milliseconds(5);
      std::this_thread::sleep_until(due);
      mMachineLate.tell(Clock::now() - due);
    }
  }

  int print() {
    const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    // A call that ends passes through three threads at the most, each of which has to be woken and then to run.
    const double mayBeLate = static_cast<double>(kGrace.count()) + 6 * mMachineLate.milliseconds();
    bool passed = mEnded == mStarted && mTwice == 0 && mLatest.milliseconds() <= mayBeLate &&
                  mConnectionsTold == mStatistics.connections && mLossesTold == mStatistics.losses &&
                  mStatistics.answered > 0 && mStreams > 0 && mBroadcasts > 0;
    std::printf("calls: %llu started, %llu ended, %llu twice; %llu answered, %llu failed, %llu repeated\n",
                number(mStarted), number(mEnded), number(mTwice), number(mStatistics.answered),
                number(mStatistics.failed), number(mStatistics.repeated));
    std::printf("latest: %.1f ms behind its deadline (may be %.1f: the machine was %.1f ms late)\n",
                mLatest.milliseconds(), mayBeLate, mMachineLate.milliseconds());
    std::printf("late answers %llu, streams %llu with %llu messages, broadcasts %llu, heartbeats %llu\n",
                number(mStatistics.lateAnswers), number(mStreams), number(mMessages), number(mBroadcasts),
                number(mStatistics.heartbeats));
    std::printf("connections: %llu, told %llu; losses: %llu, told %llu\n\n", number(mStatistics.connections),
                number(mConnectionsTold), number(mStatistics.losses), number(mLossesTold));
    std::printf("%-12s %12s %12s %12s %12s\n", "", "before", "most", "grew", "after");
    const double atLosses = static_cast<double>(mStatistics.failed + mStatistics.repeated + mStatistics.heartbeats);
    for (const Level& level : mLevels) {
      if (level.trend.empty()) {
        std::printf("%-12s not told here\n", level.name);
        continue;
      }
      const auto before = static_cast<double>(*level.before);
      const auto after = static_cast<double>(*level.look());
      const double more = level.leftByEachLoss * atLosses;
      const bool isLevel = level.trend.growth() <= level.upsAndDowns + more && after <= before + level.left + more;
      std::printf("%-12s %12.0f %12.0f %12.0f %12.0f %s\n", level.name, before, level.trend.most(),
                  level.trend.growth(), after, isLevel ? "" : "GROWS");
      passed = passed && isLevel;
    }
    std::printf("%s\n", passed ? "passed" : "FAILED");
    return passed ? 0 : 1;
  }

  Weather& mWeather;
  std::vector<Level> mLevels;
  const Clock::time_point mEnd;
  const std::uint32_t mSeed;
  Counter mStarted{0}, mEnded{0}, mTwice{0}, mStreams{0}, mMessages{0}, mBroadcasts{0};
  Counter mConnectionsTold{0}, mLossesTold{0};
  Most mLatest, mMachineLate;
  Statistics mStatistics;
};

/// The seconds and the seed of a command line: kel_chaos --seconds N [--seed S]. Without seconds the program ends.
struct ChaosArguments {
  double seconds = 0;
  std::uint32_t seed = std::random_device()() % 1'000'000;

  ChaosArguments(int argc, char** argv) {
    for (int i = 1; i + 1 < argc; i += 2) {
      if (std::strcmp(argv[i], "--seconds") == 0) seconds = std::atof(argv[i + 1]);
      if (std::strcmp(argv[i], "--seed") == 0) seed = static_cast<std::uint32_t>(std::atoi(argv[i + 1]));
    }
    if (seconds <= 0) {
      std::fprintf(stderr, "usage: %s --seconds N [--seed S]\n", argv[0]);
      std::exit(2);
    }
    std::printf("seed %u\n", seed);
    std::fflush(stdout);
  }
};

}  // namespace kel::test
