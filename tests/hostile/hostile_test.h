/* SPDX-License-Identifier: MIT */
// What the tests with the hostile pipe library share.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>

#include "hostile/hostile_pipe.h"
#include "support/left_thread.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

/// Longer than anything here takes unless something is wrong, in milliseconds.
inline constexpr std::uint32_t kLong = 20'000;

inline constexpr std::uint32_t kSeed = 20260911;

/// Whether the call returned in time. One that does not is left behind with its thread.
template <class Call>
bool Returns(Call call) {
  auto returned = std::make_shared<std::promise<void>>();
  std::future<void> future = returned->get_future();
  LeaveToItself([call, returned] {
    call();
    returned->set_value();
  });
  return future.wait_for(std::chrono::milliseconds(kLong)) == std::future_status::ready;
}

/// So many rounds, or as many as there is time for.
class Rounds {
 public:
  explicit Rounds(std::uint32_t most, std::chrono::milliseconds time = std::chrono::seconds(2))
      : mMost(most), mEnd(std::chrono::steady_clock::now() + time) {}
  bool next() { return mDone++ < mMost && std::chrono::steady_clock::now() < mEnd; }

 private:
  const std::uint32_t mMost;
  const std::chrono::steady_clock::time_point mEnd;
  std::uint32_t mDone = 0;
};

class HostileTest : public ::testing::Test {
 protected:
  HostileTest() { std::printf("seed %u\n", kSeed); }
  ~HostileTest() override { EXPECT_EQ(Hostile_Quiet(kLong), 0u) << "threads are left inside the handlers"; }

  static void behave(const HostileManners& manners) { Hostile_Behave(&manners); }

  const ScratchDirectory folder;
  RegistrySettings registry;
};

}  // namespace kel::test
