// SPDX-License-Identifier: MIT
// What comes without being asked for one by one: the messages of a stream, and broadcasts.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "client.h"
#include "words.h"

namespace {

constexpr std::uint32_t kSeries[] = {bench::kSeriesLength, 0, 0};

bench::Countdown gMessages;

extern "C" void TakeMessage(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void*,
                            std::uint32_t, std::uint32_t) {
  gMessages.done();
}

void StreamMessages(benchmark::State& state, bench::Blocks blocks) {
  const std::uint64_t conn = bench::Connection(blocks);
  for (auto _ : state) {
    gMessages.start(bench::kSeriesLength + 1);  // the end is one more
    if (!bench::SendAsync(conn, "TASK_ID_APPLICATION_DEBUG_STREAMER", kSeries, sizeof kSeries, nullptr, TakeMessage)) {
      return state.SkipWithError("the stream was refused");
    }
    gMessages.wait();
  }
  state.SetItemsProcessed(state.iterations() * bench::kSeriesLength);
}
void StreamMessages(benchmark::State& state) { StreamMessages(state, bench::Blocks::kept); }
BENCHMARK(StreamMessages)->Iterations(20)->UseRealTime();
BENCHMARK_CAPTURE(StreamMessages, released, bench::Blocks::released)->Iterations(20)->UseRealTime();

void Broadcasts(benchmark::State& state) {
  const std::uint64_t conn = bench::Connection();
  bench::onBroadcast = [] { gMessages.done(); };
  for (auto _ : state) {
    gMessages.start(bench::kSeriesLength);
    void* answer = nullptr;
    std::uint32_t size = 0;
    if (KEL_SendReceiveKEL(conn, "TASK_ID_APPLICATION_DEBUG_BROADCASTER", 1, kSeries, sizeof kSeries, &answer, &size,
                           nullptr) != KEL_OK) {
      return state.SkipWithError("the broadcasts were refused");
    }
    std::free(answer);
    gMessages.wait();
  }
  state.SetItemsProcessed(state.iterations() * bench::kSeriesLength);
}
BENCHMARK(Broadcasts)->Iterations(20)->UseRealTime();

}  // namespace
