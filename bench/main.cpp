// SPDX-License-Identifier: MIT
// Runs all benchmarks in interleaved rounds and prints the medians, each with its ratio to what it stands beside, and
// what tasks leave on the heap. --benchmark_out=FILE also writes all rounds as JSON, for compare.py.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "heap_growth.h"
#include "pairs.h"

namespace {

constexpr double kNsPerSecond = 1e9;

/// The rounds of one benchmark.
struct Rounds {
  std::vector<double> ns;            ///< for one item
  std::vector<double> bytesPerTask;  ///< that stay on the heap; empty for what is no task

  double median() const { return Median(ns); }
  double medianBytes() const { return Median(bytesPerTask); }
  /// Between the slowest round and the fastest, in percent of the median.
  double spread() const {
    const auto [fastest, slowest] = std::minmax_element(ns.begin(), ns.end());
    return (*slowest - *fastest) / median() * 100;
  }

 private:
  static double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return (values[values.size() / 2] + values[(values.size() - 1) / 2]) / 2;
  }
};

/// Keeps the rounds as they come, and prints the tables at the end.
class RatioReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        mFailed = true;
      }
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      Rounds& rounds = mRounds[NameOf(run)];
      rounds.ns.push_back(NsPerItem(run));
      const auto bytes = run.counters.find(bench::kBytesPerTask);
      if (bytes != run.counters.end()) rounds.bytesPerTask.push_back(bytes->second);
    }
  }

  void Finalize() override {
    std::printf("%-29s %12s %12s %7s   %-26s %12s %7s %8s\n", "median of", "ns", "per second", "spread", "beside", "ns",
                "spread", "ratio");
    for (const bench::Pair& pair : bench::kPairs) {
      const auto subject = mRounds.find(pair.subject);
      const auto beside = mRounds.find(pair.beside);
      if (subject == mRounds.end() || beside == mRounds.end()) continue;
      const Rounds &mine = subject->second, &other = beside->second;
      std::printf("%-29s %12.1f %12.0f %6.0f%%   %-26s %12.1f %6.0f%% %8.2f\n", pair.subject, mine.median(),
                  kNsPerSecond / mine.median(), mine.spread(), pair.beside, other.median(), other.spread(),
                  mine.median() / other.median());
    }
    printHeap();
  }

  bool failed() const { return mFailed; }

 private:
  static std::string NameOf(const Run& run) {
    return run.run_name.args.empty() ? run.run_name.function_name
                                     : run.run_name.function_name + "/" + run.run_name.args;
  }

  /// A round that does several things at once tells how many.
  static double NsPerItem(const Run& run) {
    const auto rate = run.counters.find("items_per_second");
    return rate != run.counters.end() ? kNsPerSecond / rate->second : run.GetAdjustedRealTime();
  }

  void printHeap() const {
    bool isFirst = true;
    for (const auto& [name, rounds] : mRounds) {
      if (rounds.bytesPerTask.empty()) continue;
      if (std::exchange(isFirst, false)) {
        std::printf("\n%-29s %12s   (measured over the tasks of the row, and scaled)\n", "a million tasks keep", "MB");
      }
      std::printf("%-29s %12.0f\n", name.c_str(), rounds.medianBytes());  // bytes of one are megabytes of a million
    }
  }

  std::map<std::string, Rounds> mRounds;
  bool mFailed = false;
};

}  // namespace

int main(int argc, char** argv) {
  // The defaults come first, so that the command line can say otherwise.
  std::vector<char*> arguments{argv[0]};
  char repetitions[] = "--benchmark_repetitions=7";
  char interleaved[] = "--benchmark_enable_random_interleaving=true";
  arguments.push_back(repetitions);
  arguments.push_back(interleaved);
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  // The pairs go into the file as well, so that a run that was stored can be read without this program.
  for (const bench::Pair& pair : bench::kPairs) {
    benchmark::AddCustomContext(std::string(pair.subject) + " beside " + pair.beside, "");
  }
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return reporter.failed() ? 1 : 0;
}
