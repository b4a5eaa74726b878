// Runs all benchmarks in interleaved rounds and prints the medians, each with its ratio to what it stands beside.
// --benchmark_out=FILE also writes all rounds as JSON.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

#include "pairs.h"

namespace {

constexpr double kNsPerSecond = 1e9;

/// Keeps the medians as they come, and prints the table at the end.
class RatioReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        mFailed = true;
      }
      if (run.aggregate_name == "median") mMedians[NameOf(run)] = NsPerItem(run);
    }
  }

  void Finalize() override {
    std::printf("%-21s %12s %12s   %-26s %12s %8s\n", "median of", "ns", "per second", "beside", "ns", "ratio");
    for (const bench::Pair& pair : bench::kPairs) {
      const auto subject = mMedians.find(pair.subject);
      const auto beside = mMedians.find(pair.beside);
      if (subject == mMedians.end() || beside == mMedians.end()) continue;
      std::printf("%-21s %12.1f %12.0f   %-26s %12.1f %8.2f\n", pair.subject, subject->second,
                  kNsPerSecond / subject->second, pair.beside, beside->second, subject->second / beside->second);
    }
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

  std::map<std::string, double> mMedians;
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
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return reporter.failed() ? 1 : 0;
}
