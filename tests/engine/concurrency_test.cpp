// Many client threads on one engine, past the lock of the exports.
#include <thread>

#include "engine/engine_test.h"

namespace kel::test {
namespace {

constexpr std::uint32_t kThreads = 8;
constexpr std::uint32_t kTasks = 100;

using ConcurrencyTest = EngineTest;

/// Runs `work` on kThreads threads at once, each with its number.
template <class Work>
void OnManyThreads(Work work) {
  std::vector<std::thread> threads;
  for (std::uint32_t t = 0; t < kThreads; ++t) threads.emplace_back([&work, t] { work(t); });
  for (std::thread& thread : threads) thread.join();
}

void SwitchLogsOff(RegistrySettings& registry) {
  for (const char* level : {"Info", "Warn", "Err"}) registry.set("Software\\Brel\\ALogger", level, 0);
}

TEST_F(ConcurrencyTest, EachThreadGetsTheAnswersToItsOwnTasks) {
  SwitchLogsOff(registry);
  const std::uint32_t handle = start();
  OnManyThreads([&](std::uint32_t t) {
    for (std::uint32_t i = 0; i < kTasks; ++i) {
      ASSERT_EQ(InvokeVal(handle, {t, i, t ^ i}).payload, Bytes({t, i, t ^ i}));
      const std::string text(1 + (t * 977 + i * 131) % 3000, static_cast<char>('a' + t));
      ASSERT_EQ(Invoke(handle, kDebugRef, text.data(), static_cast<std::uint32_t>(text.size())).payload, text);
    }
  });
}

TEST_F(ConcurrencyTest, AnswersThatComeInAnotherOrderStillFindTheirTasks) {
  SwitchLogsOff(registry);
  const std::uint32_t handle = start();
  // Each second answer is overtaken: it comes 1 ms late.
  SluiceHubSimRule late = RuleFor(kDebugValTui);
  late.delayMs = 1;
  AddRule(late);
  OnManyThreads([&](std::uint32_t t) {
    for (std::uint32_t i = 0; i < kTasks / 2; ++i) {
      if (i % 2 == 0) {
        ASSERT_EQ(InvokeVal(handle, {t, i, 1}).payload, Bytes({t, i, 1}));
      } else {
        ASSERT_EQ(Invoke(handle, kDebugRef, &i, sizeof i).payload.size(), sizeof i);
      }
    }
  });
}

TEST_F(ConcurrencyTest, EnginesComeAndGoBesideOnesThatWork) {
  SwitchLogsOff(registry);
  const std::uint32_t steady[] = {start(), start()};
  OnManyThreads([&](std::uint32_t t) {
    // Starts and stops come one at a time, as the exports have them.
    for (std::uint32_t i = 0; i < kTasks; ++i) {
      if (t != 0) {
        ASSERT_EQ(InvokeVal(steady[t % 2], {t, i, 3}).payload, Bytes({t, i, 3}));
        continue;
      }
      const std::uint32_t handle = start();
      ASSERT_EQ(handle, 2u);
      ASSERT_EQ(InvokeVal(handle, {t, i, 2}).payload, Bytes({t, i, 2}));
      ASSERT_EQ(BrelFinalize(handle), kStatusOk);
    }
  });
  EXPECT_EQ(OpenConnections(), 2u);
}

TEST_F(ConcurrencyTest, TasksGoOnWhileBroadcastsPour) {
  SwitchLogsOff(registry);
  static std::atomic<std::uint32_t> broadcasts;
  const std::uint32_t handle = start([](char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
    std::free(name);
    std::free(payload);
    ++broadcasts;
  });
  OnManyThreads([&](std::uint32_t t) {
    for (std::uint32_t i = 0; i < kTasks; ++i) {
      if (t % 2 == 0) {
        SluiceHubSim_Broadcast(0, kDebugValTui, i, "payload", 7, 1);
      } else {
        ASSERT_EQ(InvokeVal(handle, {t, i, 1}).payload, Bytes({t, i, 1}));
      }
    }
  });
  while (broadcasts < kThreads / 2 * kTasks) std::this_thread::yield();
}

TEST_F(ConcurrencyTest, LoggingFromManyThreadsLosesNoPiece) {
  const std::uint32_t handle = start();
  OnManyThreads([&](std::uint32_t t) {
    for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(InvokeVal(handle, {t, i, 1}).payload, Bytes({t, i, 1}));
  });
  // Pieces of lines may mix, but each is there.
  const std::string log = LogText("Brel.logs");
  std::size_t count = 0;
  for (std::size_t at = log.find("response received from Dorv"); at != std::string::npos;
       at = log.find("response received from Dorv", at + 1)) {
    ++count;
  }
  EXPECT_EQ(count, kThreads * 5);
}

}  // namespace
}  // namespace kel::test
