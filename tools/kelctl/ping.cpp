// SPDX-License-Identifier: MIT
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <numeric>
#include <thread>

#include "files.h"
#include "interrupt.h"
#include "options.h"
#include "session.h"

namespace kelctl {
namespace {

constexpr const char* kEchoVal = kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL.name;
constexpr const char* kEchoRef = kel::tasks::TASK_ID_APPLICATION_DEBUG_REF.name;
constexpr std::uint32_t kInterval = 1000;
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

  std::uint32_t lost() const { return sent - static_cast<std::uint32_t>(times.size()); }
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
              {"refused", statistics.refused}};
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

void sleepUntil(Clock::time_point end) {
  while (!interrupted() && Clock::now() < end) {
    std::this_thread::sleep_until(std::min<Clock::time_point>(end, Clock::now() + kLook));
  }
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

int ping(const PingOptions& options, Output& output) {
  const std::string task = options.task.empty() ? echoTask(options) : options.task;
  const Bytes payload = question(options);
  Session session(options.link);
  Times statistics;
  std::optional<Fault> refusal;
  while (!interrupted() && statistics.sent != options.count) {
    const Clock::time_point start = Clock::now();
    const std::uint32_t number = ++statistics.sent;
    const kel::Result<kel::Payload> answer = session.client().task(task, payload);
    if (answer) {
      statistics.times.push_back(milliseconds(Clock::now() - start));
      printAnswer(task, number, answer->size(), statistics.times.back(), output);
    } else if (answer.cause() == kel::Cause::noAnswer) {
      printFailure(task, number, "lost", output);
    } else if (interrupted()) {
      --statistics.sent;  // neither answered nor lost
    } else {
      refusal.emplace(session.fault(answer.error()));
      ++statistics.refused;
      printFailure(task, number, "refused", output);
    }
    if (statistics.sent != options.count) {
      sleepUntil(start + std::chrono::milliseconds(options.interval.value_or(kInterval)));
    }
  }
  std::sort(statistics.times.begin(), statistics.times.end());
  printSummary(task, statistics, output);
  if (!statistics.times.empty() || statistics.sent == 0) return kDone;
  if (refusal) throw *refusal;
  return kNoAnswer;
}

}  // namespace

void addPing(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<PingOptions>(app, plan, "ping",
                           "Measure round trips until Ctrl-C, and sum them up\n"
                           "The exit status is 0 if any task was answered. One that is not answered in time\n"
                           "counts as lost.",
                           "kelctl ping --count 5 --interval 100\n"
                           "kelctl ping --size 1024 --count 1000 --interval 0 | tail -n 1\n"
                           "kelctl ping --val 7 8 9 --count 1\n"
                           "kelctl ping TASK_ID_VERSIONS_GET --count 1\n",
                           ping);
  addOptionalTask(verb, options.task, "Task to send instead of the device's echo");
  addLink(verb, options.link);
  addNumber(verb, "--count", "N", options.count, "End after N tasks", 1);
  addNumber(verb, "--interval", "MS", options.interval, "Milliseconds from one task to the next (1000)");
  addPayload(
      verb, options.payload,
      {addNumber(verb, "--size", "BYTES", options.size, "Payload of so many bytes, 8192 at most", 0, kMostPayload)});
}

}  // namespace kelctl
