// SPDX-License-Identifier: MIT
// Where the system appends in one step, no piece of a line takes another's place.
#include <thread>
#include <vector>

#include "logging/logger_test.h"

namespace kel::test {
namespace {

TEST_F(Logger, LosesNoPieceOfManyThreads) {
  setUp(true, true, true);
  constexpr std::size_t kThreads = 4, kLines = 50;
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([this] {
      for (std::size_t line = 0; line < kLines; ++line) logger.log(kInfo, "function", kLogFlags) << "<piece>" << 11u;
    });
  }
  for (auto& thread : threads) thread.join();
  const std::string line = "\n[0 - 0] info - Module - function - <piece>11";
  EXPECT_EQ(written().size(), kThreads * kLines * line.size());
}

}  // namespace
}  // namespace kel::test
