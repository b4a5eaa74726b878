// SPDX-License-Identifier: MIT
// Tasks past the exports' lock: so many connections, each with a thread of its own that keeps so many tasks under way,
// by the engine's front functions. What the exports take one after the other runs free here.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "adapter/Dorv.h"
#include "client.h"
#include "engine/Brel.h"
#include "engine/Status.h"
#include "words.h"

namespace {

bench::Countdown gAnswers;

extern "C" void TakeEngineAnswer(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t,
                                 std::uint32_t) {
  gAnswers.done();
}

/// A connection of the engine that is linked into this program, beside those of the library. It stays open for all
/// rounds, like theirs.
std::uint32_t Engine(std::size_t index) {
  static std::vector<std::uint32_t> handles;
  if (handles.empty()) {
    bench::EnterScratchFolder();
    kel::CreateSluiceHubLock();
  }
  while (handles.size() <= index) {
    std::uint32_t handle = 0;
    if (kel::BrelInit(&handle, nullptr, 0, nullptr, nullptr, nullptr) != kel::kStatusOk) std::abort();
    handles.push_back(handle);
  }
  return handles[index];
}

/// A number is back only when the thread of its last task has ended, some time behind the callback.
void Send(std::uint32_t engine) {
  constexpr std::uint32_t kValues[] = {1, 2, 3};
  std::uint32_t sequenceNumber = 0;
  while (kel::BrelInvokeAsyncTask(engine, "TASK_ID_APPLICATION_DEBUG_VAL", 1, kValues, sizeof kValues, 0, 1,
                                  &sequenceNumber, TakeEngineAnswer, nullptr) != kel::kStatusOk) {
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

void EngineTasks(benchmark::State& state) {
  const auto connections = static_cast<std::uint32_t>(state.range(0));
  const auto inFlight = static_cast<std::uint32_t>(state.range(1));
  std::vector<std::unique_ptr<bench::ParkedThread>> clients;
  for (std::uint32_t i = 0; i < connections; ++i) {
    clients.push_back(std::make_unique<bench::ParkedThread>([engine = Engine(i), inFlight] {
      for (std::uint32_t task = 0; task < inFlight; ++task) Send(engine);
    }));
  }
  for (auto _ : state) {
    gAnswers.start(connections * inFlight);
    for (const auto& client : clients) client->wake();
    gAnswers.wait();
  }
  state.SetItemsProcessed(state.iterations() * connections * inFlight);
}

// Every task leaves its request block behind, so a row has few tasks, and about as many as the others.
const bool registered = [] {
  constexpr std::int64_t kTasks = 480;
  for (const std::int64_t connections : {1, 2, 4, 8, 15}) {
    for (const std::int64_t inFlight : {1, 4, 16, 60}) {
      benchmark::RegisterBenchmark("EngineTasks", EngineTasks)
          ->Args({connections, inFlight})
          ->Iterations(std::max<std::int64_t>(1, kTasks / (connections * inFlight)))
          ->UseRealTime();
    }
  }
  return true;
}();

}  // namespace
