// A task to the stand-in device and back, by KEL_SendReceiveKEL.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "client.h"
#include "heap_growth.h"

namespace {

void SynchronousTask(benchmark::State& state) {
  const std::uint64_t conn = bench::Connection();
  const std::vector<std::uint8_t> payload(static_cast<std::size_t>(state.range(0)), 0x5A);
  const char* name =
      payload.size() == bench::kValSize ? "TASK_ID_APPLICATION_DEBUG_VAL" : "TASK_ID_APPLICATION_DEBUG_REF";
  const bench::HeapGrowth growth(state, 1);
  for (auto _ : state) {
    void* answer = nullptr;
    std::uint32_t size = 0;
    const std::uint32_t result = KEL_SendReceiveKEL(
        conn, name, 1, payload.data(), static_cast<std::uint32_t>(payload.size()), &answer, &size, nullptr);
    if (result != KEL_OK || size != payload.size()) state.SkipWithError("the task was not answered");
    std::free(answer);
  }
}
// Every task leaves its request block and a copy of its answer behind, so rounds are bounded in number and not in time.
BENCHMARK(SynchronousTask)->Arg(bench::kValSize)->Arg(bench::kRefSize)->Iterations(4000)->UseRealTime();

}  // namespace
