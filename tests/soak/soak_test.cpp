// SPDX-License-Identifier: MIT
// Many tasks and many connections in one process.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "SluiceHubSim.h"
#include "adapter/TaskRecord.h"
#include "engine/Brel.h"
#include "platform/platform.h"
#include "support/core_process.h"
#include "support/environment_variable.h"
#include "support/heap_block.h"
#include "support/process_resources.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {
namespace {

/// What the heap's ups and downs may add up to: far less than one more block per turn would.
constexpr std::size_t Slack(std::uint32_t turns) { return 64 * 1024 + turns * std::size_t{4}; }

/// What a process holds at one moment.
struct Held {
  std::optional<std::size_t> handles = OpenHandles();
  std::size_t threads = LivingThreads();
  std::optional<std::size_t> descriptors = OpenDescriptors();
  std::optional<std::size_t> heap = HeapBytes();
};

class SoakTest : public ::testing::Test {
 protected:
  static void takeBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
    std::free(name);
    std::free(payload);
  }

  static std::uint32_t start() {
    std::uint32_t handle = 0;
    EXPECT_EQ(BrelInit(&handle, nullptr, 0, nullptr, &takeBroadcast, [](auto...) {}), kStatusOk);
    return handle;
  }

  /// Sends a task, and frees what the client gets of it.
  static void send(std::uint32_t handle, std::uint32_t i) {
    const std::uint32_t values[3] = {i, i + 1, i + 2};
    void* payload = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(BrelInvokeTask(handle, "TASK_ID_APPLICATION_DEBUG_VAL", 1, values, sizeof values, 0, 1, nullptr, &payload,
                             &size, nullptr, nullptr),
              kStatusOk);
    ASSERT_EQ(size, sizeof values);
    ASSERT_EQ(std::memcmp(payload, values, sizeof values), 0);
    std::free(payload);
  }

  /// Sends a task and waits until its callback was called.
  static void sendAsynchronously(std::uint32_t handle) {
    static std::atomic<std::uint32_t> answered;
    const std::uint32_t before = answered;
    std::uint32_t seqNum = 0;
    const KEL_AsyncCallback count = [](auto...) { ++answered; };
    ASSERT_EQ(
        BrelInvokeAsyncTask(handle, "TASK_ID_APPLICATION_DEBUG_REF", 1, nullptr, 0, 0, 1, &seqNum, count, nullptr),
        kStatusOk);
    while (answered == before) platform::sleepFor(0);
  }

  /// A thread whose end was waited for may be seen for a moment longer.
  static void waitForThreadsToEnd(std::size_t threads) {
    for (int look = 0; LivingThreads() > threads && look < 1000; ++look) platform::sleepFor(10);
  }

  /// Compares with what was held before. The heap must have grown by `perTurn` bytes in each of the turns.
  static void expectLeft(const Held& before, std::uint32_t turns, std::int64_t perTurn) {
    waitForThreadsToEnd(before.threads);
    const Held after;
    EXPECT_EQ(after.handles, before.handles);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_EQ(after.descriptors, before.descriptors);
    if (!after.heap) return;
    const std::size_t expected = *before.heap + turns * static_cast<std::size_t>(perTurn);
    EXPECT_LE(*after.heap, expected + Slack(turns));
    EXPECT_GE(*after.heap + Slack(turns), expected);
  }

  const std::size_t mThreadsAtStart = LivingThreads();
  CoreProcess process;
  ScratchDirectory folder;
  RegistrySettings registry;
};

TEST_F(SoakTest, ManyTasksLeaveTheirRequestAndTheirAnswerAndNothingElse) {
  constexpr std::uint32_t kTasks = KEL_SOAK_TASKS;
  const std::uint32_t handle = start();
  for (std::uint32_t i = 0; i < 200; ++i) send(handle, i);  // until everything has its size
  // The request's block, and the copy of the whole answer.
  const std::int64_t perTask = HeapBytesOfBlock(BrelTaskRecordCapacity) + HeapBytesOfBlock(sizeof(task) + 12);

  const Held before;
  for (std::uint32_t i = 0; i < kTasks && !HasFatalFailure(); ++i) send(handle, i);
  expectLeft(before, kTasks, perTask);
  EXPECT_EQ(BrelFinalize(handle), kStatusOk);
}

/// KEL_SOAK_TASKS in the environment is another number of tasks, a million of them for instance.
TEST_F(SoakTest, ManyTasksLeaveMemoryLevelWhereBlocksAreReleased) {
  std::uint32_t tasks = KEL_SOAK_TASKS;
  platform::environmentNumber("KEL_SOAK_TASKS", &tasks);
  constexpr std::uint32_t kFirst = 10000;  // until everything has its size
  constexpr std::size_t kLevel = 1 << 20;
  const EnvironmentVariable released("KELHANDLER_RELEASE_BLOCKS", "1");
  const std::uint32_t handle = start();
  const auto sendSome = [&](std::uint32_t count) {
    for (std::uint32_t i = 0; i < count && !HasFatalFailure(); ++i) {
      send(handle, i);
      if (i % 64 == 0) sendAsynchronously(handle);
    }
  };
  sendSome(kFirst);
  const Held before;
  const auto residentBefore = ResidentBytes();
  sendSome(tasks);
  waitForThreadsToEnd(before.threads);
  const Held after;
  EXPECT_LE(after.heap.value_or(0), before.heap.value_or(0) + kLevel);
  EXPECT_LE(ResidentBytes().value_or(0), residentBefore.value_or(0) + kLevel);
  EXPECT_EQ(BrelFinalize(handle), kStatusOk);
}

TEST_F(SoakTest, ManyConnectionsLeaveNothingWhereBlocksAreReleased) {
  const EnvironmentVariable released("KELHANDLER_RELEASE_BLOCKS", "1");
  for (int i = 0; i < 20; ++i) EXPECT_EQ(BrelFinalize(start()), kStatusOk);
  waitForThreadsToEnd(mThreadsAtStart);
  const Held before;
  for (std::uint32_t i = 0; i < KEL_SOAK_ROUNDS; ++i) ASSERT_EQ(BrelFinalize(start()), kStatusOk);
  expectLeft(before, KEL_SOAK_ROUNDS, 0);
}

TEST_F(SoakTest, ManyConnectionsLeaveTwoFileNamesAndNothingElse) {
  constexpr std::uint32_t kRounds = KEL_SOAK_ROUNDS;
  for (int i = 0; i < 20; ++i) EXPECT_EQ(BrelFinalize(start()), kStatusOk);
  // The engine's copy of the task table's name and the catalogue's.
  const std::int64_t perRound = 2 * HeapBytesOfBlock(sizeof "KEL_ALLTASKS.csv");

  waitForThreadsToEnd(mThreadsAtStart);
  const Held before;
  for (std::uint32_t i = 0; i < kRounds; ++i) ASSERT_EQ(BrelFinalize(start()), kStatusOk);
  expectLeft(before, kRounds, perRound);
}

/// Threads that the engine stops all at once never have their handles closed, so handles are not counted here.
TEST_F(SoakTest, ManyConnectionsThatAreClosedInTheMidstOfThingsLeaveNoThread) {
  constexpr std::uint32_t kRounds = KEL_SOAK_ROUNDS / 50;  // each waits a while for its threads
  const auto round = [](std::uint32_t i) {
    const std::uint32_t handle = start();
    send(handle, i);
    std::uint32_t seqNum = 0;
    const std::uint32_t countAndInterval[3] = {3, 0, 0};
    for (const char* name : {"TASK_ID_APPLICATION_DEBUG_STREAMER", "TASK_ID_APPLICATION_DEBUG_BROADCASTER"}) {
      EXPECT_EQ(BrelInvokeAsyncTask(
                    handle, name, 1, countAndInterval, sizeof countAndInterval, 0, 1, &seqNum, [](auto...) {},
                    [](auto...) {}),
                kStatusOk);
    }
    EXPECT_EQ(BrelFinalize(handle), kStatusOk);
  };
  for (std::uint32_t i = 0; i < 5; ++i) round(i);

  waitForThreadsToEnd(mThreadsAtStart);
  const Held before;
  for (std::uint32_t i = 0; i < kRounds; ++i) round(i);
  waitForThreadsToEnd(before.threads);
  EXPECT_EQ(LivingThreads(), before.threads);
  EXPECT_EQ(OpenDescriptors(), before.descriptors);
}

}  // namespace
}  // namespace kel::test
