// SPDX-License-Identifier: MIT
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <numeric>

#include "files.h"
#include "inbox.h"
#include "interrupt.h"
#include "options.h"
#include "session.h"
#include "task_names.h"

namespace kelctl {
namespace {

constexpr const char* kEchoVal = kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL.name;
constexpr const char* kEchoRef = kel::tasks::TASK_ID_APPLICATION_DEBUG_REF.name;
constexpr std::uint32_t kInterval = 1000;
constexpr std::uint32_t kMostPending = 60;
constexpr std::uint32_t kMostPayload = 8192;
constexpr std::size_t kBarWidth = 40;

struct PingOptions {
  std::string task;
  LinkOptions link;
  std::optional<std::uint32_t> count;
  std::optional<std::uint32_t> interval;
  PayloadOptions payload;
  std::optional<std::uint32_t> size;  ///< makes the payload
};

/// A band of the histogram: times from `from` up to twice as many microseconds.
struct Band {
  std::uint64_t from;
  std::size_t count;
};

struct Times {
  std::uint32_t sent = 0;
  std::uint32_t refused = 0;
  std::vector<double> times;  ///< of the answers, in ms; sorted where it is read

  std::uint32_t lost() const { return sent - refused - static_cast<std::uint32_t>(times.size()); }
  double mean() const { return std::accumulate(times.begin(), times.end(), 0.0) / static_cast<double>(times.size()); }
  /// The least time that so many percent of the answers did not exceed.
  double percentile(double percent) const {
    const auto rank = static_cast<std::size_t>(std::ceil(percent / 100 * static_cast<double>(times.size())));
    return times[std::max<std::size_t>(rank, 1) - 1];
  }
  /// All bands from the first to the last that is not empty.
  std::vector<Band> histogram() const {
    std::vector<Band> bands;
    for (const double time : times) {
      const auto us = static_cast<std::uint64_t>(time * 1000);
      if (bands.empty()) bands.push_back({us == 0 ? 0 : std::uint64_t{1} << (std::bit_width(us) - 1), 0});
      while (us >= std::max<std::uint64_t>(1, bands.back().from * 2)) {
        bands.push_back({std::max<std::uint64_t>(1, bands.back().from * 2), 0});
      }
      ++bands.back().count;
    }
    return bands;
  }
};

void printAnswer(const std::string& task, std::uint32_t number, std::size_t size, double time, Output& output) {
  if (output.json()) {
    return output.object(
        {{"verb", "ping"}, {"task", task}, {"number", number}, {"size", size}, {"milliseconds", time}});
  }
  char text[80];
  std::snprintf(text, sizeof text, "%zu bytes, number %u, %.3f ms\n", size, number, time);
  output.text(text);
}

/// `reason`: "refused" or "lost".
void printFailure(const std::string& task, std::uint32_t number, const std::string& reason, Output& output) {
  if (output.json()) return output.object({{"verb", "ping"}, {"task", task}, {"number", number}, {reason, true}});
  output.text(output.bad(reason) + ", number " + std::to_string(number) + '\n');
}

void printBars(const Times& statistics, Output& output) {
  const std::vector<Band> bands = statistics.histogram();
  const auto most = std::max_element(bands.begin(), bands.end(), [](Band a, Band b) { return a.count < b.count; });
  for (const Band& band : bands) {
    const std::size_t length = (band.count * kBarWidth + most->count - 1) / most->count;
    char text[48];
    std::snprintf(text, sizeof text, "from %8llu us  %6zu  ", static_cast<unsigned long long>(band.from), band.count);
    output.text(text + (length == 0 ? "" : output.good(std::string(length, '#'))) + '\n');
  }
}

void printSummary(const std::string& task, const Times& statistics, Output& output) {
  const std::vector<double>& times = statistics.times;
  if (output.json()) {
    Json json{{"verb", "ping"},
              {"task", task},
              {"sent", statistics.sent},
              {"answered", times.size()},
              {"refused", statistics.refused},
              {"lost", statistics.lost()}};
    if (!times.empty()) {
      Json bands = Json::array();
      for (const Band& band : statistics.histogram()) {
        bands.push_back({{"fromMicroseconds", band.from}, {"count", band.count}});
      }
      json.update({{"min", times.front()},
                   {"mean", statistics.mean()},
                   {"max", times.back()},
                   {"p50", statistics.percentile(50)},
                   {"p90", statistics.percentile(90)},
                   {"p99", statistics.percentile(99)},
                   {"histogram", bands}});
    }
    return output.object(json);
  }
  char text[160];
  std::snprintf(text, sizeof text, "\n%u sent, %zu answered, %u refused, %.0f%% lost\n", statistics.sent, times.size(),
                statistics.refused, statistics.sent == 0 ? 0.0 : 100.0 * statistics.lost() / statistics.sent);
  output.text(text);
  if (times.empty()) return;
  std::snprintf(text, sizeof text, "min %.3f  mean %.3f  max %.3f  50%% %.3f  90%% %.3f  99%% %.3f ms\n", times.front(),
                statistics.mean(), times.back(), statistics.percentile(50), statistics.percentile(90),
                statistics.percentile(99));
  output.text(text);
  if (output.terminal()) printBars(statistics, output);
}

/// The echo task that takes the payload.
const char* echoTask(const PingOptions& options) {
  const PayloadOptions& payload = options.payload;
  const bool isRef = options.size || payload.hex || payload.text || !payload.inFile.empty();
  return isRef ? kEchoRef : kEchoVal;
}

Bytes question(const PingOptions& options) {
  if (!options.size) return payloadOf(options.payload);
  Bytes payload(*options.size);
  std::iota(payload.begin(), payload.end(), std::uint8_t{0});
  return payload;
}

struct Outcome {
  std::uint32_t number;
  kel::Result<kel::Payload> answer;
  Clock::duration time;
};

/// The tasks that are sent, each at its time, whatever has become of those before it.
class Pings {
 public:
  Pings(const std::string& task, const Bytes& payload, const PingOptions& options, Output& output)
      : mTask(task),
        mPayload(payload),
        mInterval(options.interval.value_or(kInterval)),
        mCount(options.count),
        mOutput(output),
        mSession(options.link, !options.payload.force) {}

  /// Sends them, and waits for what becomes of each. Throws Fault if none was answered, or if the link was lost.
  void run() {
    mSession.announce("measuring round trips");
    Clock::time_point next = Clock::now();
    for (;;) {
      const bool goesOn = !interrupted() && !mSession.loss() && mTimes.sent != mCount;
      if (!goesOn && mPending == 0) break;
      const Clock::time_point now = Clock::now();
      if (goesOn && now >= next && mPending < mostPending() && mSession.client().state() == kel::State::connected) {
        send();
        next = std::max(next + mInterval, now);
        continue;
      }
      const Clock::time_point look = now + kLook;
      const std::optional<Outcome> outcome = mOutcomes.next(goesOn && next > now ? std::min(next, look) : look);
      if (outcome) settle(*outcome);
    }
    std::sort(mTimes.times.begin(), mTimes.times.end());
    printSummary(mTask, mTimes, mOutput);
    if (const std::optional<Fault> loss = mSession.loss()) throw *loss;
    if (!mTimes.times.empty() || mTimes.sent == 0) return;
    throw faultOf(mFailure.value_or(kel::Error{kel::Cause::noAnswer, 0, mTask}));
  }

 private:
  /// With no interval each task waits for the end of the one before it.
  std::uint32_t mostPending() const { return mInterval.count() == 0 ? 1 : kMostPending; }

  void send() {
    const std::uint32_t number = ++mTimes.sent;
    ++mPending;
    const Clock::time_point start = Clock::now();
    mSession.client().start(mTask, mPayload, [this, number, start](kel::Result<kel::Payload> answer) {
      mOutcomes.push({number, std::move(answer), Clock::now() - start});
    });
  }

  void settle(const Outcome& outcome) {
    --mPending;
    if (outcome.answer) {
      mTimes.times.push_back(milliseconds(outcome.time));
      return printAnswer(mTask, outcome.number, outcome.answer->size(), mTimes.times.back(), mOutput);
    }
    const bool isRefused =
        outcome.answer.cause() == kel::Cause::refused || outcome.answer.cause() == kel::Cause::unknownTask;
    if (isRefused) {
      ++mTimes.refused;
      mFailure = outcome.answer.error();
    }
    printFailure(mTask, outcome.number, isRefused ? "refused" : "lost", mOutput);
  }

  const std::string mTask;
  const Bytes mPayload;
  const std::chrono::milliseconds mInterval;
  const std::optional<std::uint32_t> mCount;
  Output& mOutput;
  Times mTimes;
  std::uint32_t mPending = 0;
  std::optional<kel::Error> mFailure;  // of one that was refused
  Inbox<Outcome> mOutcomes;            // ahead of the session, whose callbacks use it
  Session mSession;
};

int ping(const PingOptions& options, Output& output) {
  const TaskNames names(options.link);
  const std::string task = names.find(options.task.empty() ? echoTask(options) : options.task);
  const Bytes payload = question(options);
  names.check(task, options.payload, payload);
  Pings(task, payload, options, output).run();
  return kDone;
}

}  // namespace

void addPing(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<PingOptions>(app, plan, "ping",
                           "Measure round trips until Ctrl-C, and sum them up\n"
                           "The exit status is 0 if any task was answered, and 3 if none was. One that has\n"
                           "no answer in time, or none yet at Ctrl-C, counts as lost. While answers are\n"
                           "late the next task is sent all the same.",
                           "kelctl ping --count 5 --interval 100\n"
                           "kelctl ping --size 1024 --count 1000 --interval 0 | tail -n 1\n"
                           "kelctl ping --val 7 8 9 --count 1\n"
                           "kelctl ping TASK_ID_VERSIONS_GET --count 1\n",
                           ping);
  addOptionalTask(verb, options.task, "Task to send instead of the device's echo");
  addLink(verb, options.link);
  addNumber(verb, "--count", "N", options.count, "End after N tasks", 1);
  addNumber(verb, "--interval", "MS", options.interval,
            "Milliseconds from one task to the next (1000; 0: each behind the end of the one before)");
  addPayload(
      verb, options.payload,
      {addNumber(verb, "--size", "BYTES", options.size, "Payload of so many bytes, 8192 at most", 0, kMostPayload)});
}

}  // namespace kelctl
