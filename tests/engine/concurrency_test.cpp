// SPDX-License-Identifier: MIT
// Many client threads on one engine, past the lock of the exports.
#include <atomic>
#include <thread>

#include "engine/DorvBinding.h"
#include "engine/engine_test.h"
#include "support/private_member.h"

namespace kel::test {

struct GetRxMsgBufOf {
  friend auto memberOf(GetRxMsgBufOf);
};
template struct OpenMember<GetRxMsgBufOf, &BrelEngine::GetRxMsgBuf>;

namespace {

constexpr std::uint32_t kThreads = 8;
constexpr std::uint32_t kTasks = 100;

using ConcurrencyTest = EngineTest;

/// How often a text stands in another.
std::size_t Count(const std::string& log, const std::string& text) {
  std::size_t count = 0;
  for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++count;
  return count;
}

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

/// A task that goes out and waits for nothing.
Status SendOnly(std::uint32_t handle) { return Invoke(handle, kDebugVal, nullptr, 0, 0, 0).status; }

TEST_F(ConcurrencyTest, AnEngineSendsOneRequestAtATime) {
  SwitchLogsOff(registry);
  const std::uint32_t handle = start();
  static std::atomic<std::uint32_t> inside{0};
  static std::atomic<bool> met{false};
  gDorv.Send = [](std::uint32_t dorvHandle, const task* record, std::uint32_t size) {
    if (++inside > 1) met = true;
    std::this_thread::yield();
    const std::uint32_t code = Dorv_Send(dorvHandle, record, size);
    --inside;
    return code;
  };
  OnManyThreads([&](std::uint32_t) {
    for (std::uint32_t i = 0; i < kTasks; ++i) ASSERT_EQ(SendOnly(handle), kStatusOk);
  });
  EXPECT_FALSE(met);
}

TEST_F(ConcurrencyTest, EnginesSendWithoutWaitingForEachOther) {
  const std::uint32_t handles[] = {start(), start()};
  static std::atomic<std::uint32_t> inside{0};
  gDorv.Send = [](std::uint32_t, const task*, std::uint32_t) {
    ++inside;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLong);
    while (inside < 2 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return std::uint32_t{inside == 2 ? DORV_OK : DORV_FAILED};
  };
  std::thread other([&] { EXPECT_EQ(SendOnly(handles[1]), kStatusOk); });
  EXPECT_EQ(SendOnly(handles[0]), kStatusOk);
  other.join();
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
  EXPECT_EQ(Count(LogText("Brel.logs"), "response received from Dorv"), kThreads * 5);
}

TEST_F(ConcurrencyTest, ATextOfTheLogIsNeverPartedByAnotherThread) {
  const std::uint32_t handle = start();
  const std::shared_ptr<BrelEngine> engine = GetBrelInst(handle);
  constexpr std::uint32_t kNeverOpen = 64;
  OnManyThreads([&](std::uint32_t t) {
    const platform::Handle dataEvent = platform::createEvent(true, true);
    for (std::uint32_t i = 0; i < kTasks; ++i) {
      EXPECT_EQ(Invoke(handle, kDebugVal, nullptr, 0, 0, t % 2).status, kStatusOk);
      EXPECT_EQ(((*engine).*memberOf(GetRxMsgBufOf{}))("Test", kNeverOpen, dataEvent), nullptr);
    }
    platform::closeHandle(dataEvent);
  });
  // A line's head and its numbers are pieces of their own; what stands between them is one.
  const std::string log = LogText("Brel.logs");
  for (const auto& [begin, whole] : std::initializer_list<std::pair<const char*, const char*>>{
           {"Send START", "Send START \n"},
           {"Send END", "Send END \n"},
           {"- WaitForRx", "- WaitForRx - dataEvent was signaled. \n"},
           {"- GetRxMsgBuf", "- GetRxMsgBuf - could not find data for sequence number "},
           {", event", ", event handle "}}) {
    EXPECT_GE(Count(log, begin), kTasks) << begin;
    EXPECT_EQ(Count(log, whole), Count(log, begin)) << whole;
  }
}

}  // namespace
}  // namespace kel::test
