// SPDX-License-Identifier: MIT
// A connection opened and closed.
#include <benchmark/benchmark.h>

#include "client.h"

namespace {

void ConnectDisconnect(benchmark::State& state) {
  // Held open all the while, so that loading the pipe library is no part of it.
  bench::Connection();
  for (auto _ : state) {
    std::uint64_t conn = 0;
    if (KEL_Connect(nullptr, nullptr, &conn) != KEL_OK || KEL_Disconnect(conn) != KEL_OK) {
      return state.SkipWithError("the connection was refused");
    }
  }
}
BENCHMARK(ConnectDisconnect)->Iterations(300)->UseRealTime();

}  // namespace
