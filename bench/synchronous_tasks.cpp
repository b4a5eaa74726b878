// SPDX-License-Identifier: MIT
// A task to the stand-in device and back, by KEL_SendReceiveKEL.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "client.h"
#include "heap_growth.h"

namespace {

void SynchronousTask(benchmark::State& state, std::uint32_t payloadSize, bench::Blocks blocks) {
  const std::uint64_t conn = bench::Connection(blocks);
  const std::vector<std::uint8_t> payload(payloadSize, 0x5A);
  const char* name = payloadSize == bench::kValSize ? "TASK_ID_APPLICATION_DEBUG_VAL" : "TASK_ID_APPLICATION_DEBUG_REF";
  const bench::HeapGrowth growth(state, 1);
  for (auto _ : state) {
    void* answer = nullptr;
    std::uint32_t size = 0;
    const std::uint32_t result =
        KEL_SendReceiveKEL(conn, name, 1, payload.data(), payloadSize, &answer, &size, nullptr);
    if (result != KEL_OK || size != payloadSize) state.SkipWithError("the task was not answered");
    std::free(answer);
  }
}
// Every task leaves its request block and a copy of its answer behind, unless blocks are released, so rounds are
// bounded in number and not in time.
using bench::Blocks, bench::kValSize, bench::kRefSize;
BENCHMARK_CAPTURE(SynchronousTask, 12, kValSize, Blocks::kept)->Iterations(4000)->UseRealTime();
BENCHMARK_CAPTURE(SynchronousTask, 4096, kRefSize, Blocks::kept)->Iterations(4000)->UseRealTime();
BENCHMARK_CAPTURE(SynchronousTask, 12, kValSize, Blocks::released)
    ->Name("SynchronousTask/12/released")
    ->Iterations(4000)
    ->UseRealTime();
BENCHMARK_CAPTURE(SynchronousTask, 4096, kRefSize, Blocks::released)
    ->Name("SynchronousTask/4096/released")
    ->Iterations(4000)
    ->UseRealTime();

}  // namespace
