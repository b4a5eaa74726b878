// SPDX-License-Identifier: MIT
// Tasks by KEL_SendReceiveAsyncKEL, so many at once, until the last callback has come.
#include <benchmark/benchmark.h>

#include "client.h"
#include "heap_growth.h"
#include "words.h"

namespace {

bench::Countdown gAnswers;

extern "C" void TakeAnswer(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t,
                           std::uint32_t) {
  gAnswers.done();
}

void AsynchronousTasks(benchmark::State& state, std::uint32_t count, bench::Blocks blocks) {
  const std::uint64_t conn = bench::Connection(blocks);
  const std::uint32_t values[] = {1, 2, 3};
  const bench::HeapGrowth growth(state, count);
  for (auto _ : state) {
    gAnswers.start(count);
    for (std::uint32_t i = 0; i < count; ++i) {
      if (!bench::SendAsync(conn, "TASK_ID_APPLICATION_DEBUG_VAL", values, sizeof values, TakeAnswer, nullptr)) {
        return state.SkipWithError("a task was refused");
      }
    }
    gAnswers.wait();
  }
  state.SetItemsProcessed(state.iterations() * count);
}
// Every task leaves its request block behind, unless blocks are released.
BENCHMARK_CAPTURE(AsynchronousTasks, 1, 1, bench::Blocks::kept)->Iterations(3000)->UseRealTime();
BENCHMARK_CAPTURE(AsynchronousTasks, 64, 64, bench::Blocks::kept)->Iterations(50)->UseRealTime();
BENCHMARK_CAPTURE(AsynchronousTasks, 1, 1, bench::Blocks::released)
    ->Name("AsynchronousTasks/1/released")
    ->Iterations(3000)
    ->UseRealTime();
BENCHMARK_CAPTURE(AsynchronousTasks, 64, 64, bench::Blocks::released)
    ->Name("AsynchronousTasks/64/released")
    ->Iterations(50)
    ->UseRealTime();

}  // namespace
