/* SPDX-License-Identifier: MIT */
// What a row leaves on the heap.
#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdint>

namespace bench {

inline constexpr const char* kBytesPerTask = "bytes_per_task";

/// Gives a row, at the end of its scope, a counter of what each task has left on the heap.
class HeapGrowth {
 public:
  HeapGrowth(benchmark::State& state, std::uint32_t tasksPerRound)
      : mState(state), mTasksPerRound(tasksPerRound), mBefore(inUse()) {}
  ~HeapGrowth() {
    const auto tasks = static_cast<double>(mState.iterations()) * mTasksPerRound;
    mState.counters[kBytesPerTask] = (inUse() - mBefore) / tasks;
  }
  HeapGrowth(const HeapGrowth&) = delete;
  HeapGrowth& operator=(const HeapGrowth&) = delete;

 private:
  static double inUse() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
  }

  benchmark::State& mState;
  const std::uint32_t mTasksPerRound;
  const double mBefore;
};

}  // namespace bench
