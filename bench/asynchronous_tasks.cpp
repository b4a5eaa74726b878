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

void AsynchronousTasks(benchmark::State& state) {
  bench::Connection();
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const std::uint32_t values[] = {1, 2, 3};
  const bench::HeapGrowth growth(state, count);
  for (auto _ : state) {
    gAnswers.start(count);
    for (std::uint32_t i = 0; i < count; ++i) {
      if (!bench::SendAsync("TASK_ID_APPLICATION_DEBUG_VAL", values, sizeof values, TakeAnswer, nullptr)) {
        return state.SkipWithError("a task was refused");
      }
    }
    gAnswers.wait();
  }
  state.SetItemsProcessed(state.iterations() * count);
}
// Every task leaves its request block behind.
BENCHMARK(AsynchronousTasks)->Arg(1)->Iterations(3000)->UseRealTime();
BENCHMARK(AsynchronousTasks)->Arg(64)->Iterations(50)->UseRealTime();

}  // namespace
