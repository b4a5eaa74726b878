// SPDX-License-Identifier: MIT
// Bare limits of what goes from one thread to another.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "client.h"
#include "words.h"

namespace {

using bench::Countdown;
using bench::ParkedThread;

/// A round trip between two threads: each sleeps until the other wakes it.
void FutexPingPong(benchmark::State& state) {
  Countdown pong;
  ParkedThread other([&] { pong.done(); });
  for (auto _ : state) {
    pong.start(1);
    other.wake();
    pong.wait();
  }
}
BENCHMARK(FutexPingPong)->Iterations(20000)->UseRealTime();

/// A thread started for each request, all requests at once.
void ThreadStarts(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  Countdown answers;
  std::vector<std::thread> threads;
  threads.reserve(count);
  for (auto _ : state) {
    answers.start(count);
    for (std::uint32_t i = 0; i < count; ++i) threads.emplace_back([&] { answers.done(); });
    answers.wait();
    for (std::thread& thread : threads) thread.join();
    threads.clear();
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(ThreadStarts)->Arg(1)->Iterations(3000)->UseRealTime();
BENCHMARK(ThreadStarts)->Arg(64)->Iterations(50)->UseRealTime();

/// The same with threads that are there already, each handed a token.
void ParkedThreads(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  Countdown answers;
  std::vector<std::unique_ptr<ParkedThread>> threads;
  for (std::uint32_t i = 0; i < count; ++i) {
    threads.push_back(std::make_unique<ParkedThread>([&] { answers.done(); }));
  }
  for (auto _ : state) {
    answers.start(count);
    for (const auto& thread : threads) thread->wake();
    answers.wait();
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(ParkedThreads)->Arg(1)->Iterations(20000)->UseRealTime();
BENCHMARK(ParkedThreads)->Arg(64)->Iterations(300)->UseRealTime();

/// Copies of small messages from one thread to another by way of a queue with a lock.
void LockedQueue(benchmark::State& state) {
  constexpr std::size_t kMessageSize = 28;
  std::mutex lock;
  std::condition_variable arrived;
  std::deque<void*> queue;
  ParkedThread producer([&] {
    const char message[kMessageSize] = {};
    for (std::uint32_t i = 0; i < bench::kSeriesLength; ++i) {
      void* copy = std::memcpy(std::malloc(kMessageSize), message, kMessageSize);
      {
        const std::lock_guard filing(lock);
        queue.push_back(copy);
      }
      arrived.notify_one();
    }
  });
  for (auto _ : state) {
    producer.wake();
    for (std::uint32_t i = 0; i < bench::kSeriesLength; ++i) {
      std::unique_lock taking(lock);
      arrived.wait(taking, [&] { return !queue.empty(); });
      void* message = queue.front();
      queue.pop_front();
      taking.unlock();
      std::free(message);
    }
  }
  state.SetItemsProcessed(state.iterations() * bench::kSeriesLength);
}
BENCHMARK(LockedQueue)->Iterations(20)->UseRealTime();

}  // namespace
