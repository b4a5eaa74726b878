// The bare limit of a round trip between two threads: each sleeps on a word until the other sets it.
#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

#include "platform/posix/futex.h"

namespace {

using kel::platform::posix::sleepWhile;
using kel::platform::posix::wakeOne;

enum : std::uint32_t { kWaiting, kSet, kEnd };

void Await(std::atomic<std::uint32_t>& word) {
  while (word.load(std::memory_order_acquire) == kWaiting) sleepWhile(word, kWaiting, nullptr);
}

void Set(std::atomic<std::uint32_t>& word, std::uint32_t value) {
  word.store(value, std::memory_order_release);
  wakeOne(word);
}

void FutexPingPong(benchmark::State& state) {
  std::atomic<std::uint32_t> ping{kWaiting}, pong{kWaiting};
  std::thread other([&] {
    for (;;) {
      Await(ping);
      if (ping.exchange(kWaiting, std::memory_order_acquire) == kEnd) return;
      Set(pong, kSet);
    }
  });
  for (auto _ : state) {
    Set(ping, kSet);
    Await(pong);
    pong.store(kWaiting, std::memory_order_relaxed);
  }
  Set(ping, kEnd);
  other.join();
}
BENCHMARK(FutexPingPong)->Iterations(20000)->UseRealTime();

}  // namespace
