// Runs all benchmarks in interleaved rounds and prints the medians, each with its ratio to the bare limit.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

#include "pairs.h"

namespace {

/// Keeps the medians as they come, and prints the table at the end.
class RatioReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
      if (run.aggregate_name == "median") mMedians[NameOf(run)] = run.GetAdjustedRealTime();
    }
  }

  void Finalize() override {
    std::printf("%-28s %12s   %-28s %12s %8s\n", "median of", "ns", "beside", "ns", "ratio");
    for (const bench::Pair& pair : bench::kPairs) {
      const auto subject = mMedians.find(pair.subject);
      const auto limit = mMedians.find(pair.limit);
      if (subject == mMedians.end() || limit == mMedians.end()) continue;
      std::printf("%-28s %12.0f   %-28s %12.0f %8.2f\n", pair.subject, subject->second, pair.limit, limit->second,
                  subject->second / limit->second);
    }
  }

 private:
  static std::string NameOf(const Run& run) {
    return run.run_name.args.empty() ? run.run_name.function_name
                                     : run.run_name.function_name + "/" + run.run_name.args;
  }

  std::map<std::string, double> mMedians;
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
  return 0;
}
