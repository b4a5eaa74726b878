// SPDX-License-Identifier: MIT
// Tasks by the client layer: one that is waited for, and many at once until the last has ended.
#include <benchmark/benchmark.h>

#include <vector>

#include "client.h"
#include "heap_growth.h"
#include "kel/client.hpp"

namespace {

/// Lives as long as the process, like the other connections.
kel::Client& Device() {
  static kel::Client& device = []() -> kel::Client& {
    bench::EnterScratchFolder();
    bench::SetBlocks(bench::Blocks::released);
    return *new kel::Client(kel::Client::connect().value());
  }();
  return device;
}

void LayerTask(benchmark::State& state) {
  kel::Client& device = Device();
  const bench::HeapGrowth growth(state, 1);
  for (auto _ : state) {
    if (!device.task(kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL, {1, 2, 3})) state.SkipWithError("no answer");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(LayerTask)->Name("LayerTask/1")->Iterations(3000)->UseRealTime();

void LayerTasks(benchmark::State& state, std::uint32_t count) {
  kel::Client& device = Device();
  std::vector<kel::Call> calls;
  calls.reserve(count);
  const bench::HeapGrowth growth(state, count);
  for (auto _ : state) {
    for (std::uint32_t i = 0; i < count; ++i) {
      calls.push_back(device.start(kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL, {1, 2, 3}));
    }
    for (const kel::Call& call : calls) {
      if (!call.get()) state.SkipWithError("no answer");
    }
    calls.clear();
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK_CAPTURE(LayerTasks, 64, 64)->Iterations(50)->UseRealTime();

}  // namespace
