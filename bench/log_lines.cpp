// SPDX-License-Identifier: MIT
// A line of the log, switched off and on.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>

#include "client.h"
#include "logging/ALogger.h"

namespace {

void Log(kel::ALogger& logger, std::uint32_t number) {
  logger.line(kel::kInfo, "IssueCommandBase", "assigned sequence number ", number, " \n");
}

void LogLineOff(benchmark::State& state) {
  kel::ALogger logger;
  std::uint32_t number = 0;
  for (auto _ : state) {
    Log(logger, ++number);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(LogLineOff)->Iterations(1000000)->UseRealTime();

void FlagTest(benchmark::State& state) {
  std::atomic<bool> flag{false};
  for (auto _ : state) {
    if (flag.load(std::memory_order_relaxed)) return state.SkipWithError("nobody sets the flag");
    benchmark::ClobberMemory();
  }
}
BENCHMARK(FlagTest)->Iterations(1000000)->UseRealTime();

void LogLineOn(benchmark::State& state) {
  bench::EnterScratchFolder();
  kel::ALogger logger;
  std::ofstream("Brel.registry") << "[Software\\Brel\\ALogger]\nInfo=1\n";
  logger.setRegistryKey(kel::kLoggerRegistryKey);
  std::filesystem::remove("Brel.registry");  // the connections of other rounds do not log
  logger.setFileName("bench.logs");
  logger.setModuleName("BrelEngine");
  std::uint32_t number = 0;
  for (auto _ : state) Log(logger, ++number);
}
BENCHMARK(LogLineOn)->Iterations(2000)->UseRealTime();

/// The same line, whole, at the end of a file that is opened and closed for it.
void FileAppend(benchmark::State& state) {
  bench::EnterScratchFolder();
  std::uint32_t number = 0;
  for (auto _ : state) {
    std::ofstream("append.logs", std::ios::app)
        << "\n[0 - 0] info - BrelEngine - IssueCommandBase - assigned sequence number " << ++number << " \n";
  }
}
BENCHMARK(FileAppend)->Iterations(2000)->UseRealTime();

}  // namespace
