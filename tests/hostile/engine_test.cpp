// SPDX-License-Identifier: MIT
// The engine from within, for what no export leads to: alerts, fixed tasks, and many client threads on one engine.
#include <vector>

#include "engine/Brel.h"
#include "engine/Instances.h"
#include "hostile/hostile_test.h"
#include "support/core_process.h"

namespace kel::test {
namespace {

std::atomic<bool> gOpen{false};
std::atomic<std::uint32_t> gAlerts{0};
std::atomic<std::uint32_t> gLateAlerts{0};

void OnAlert(Status status) {
  ++gAlerts;
  if (!gOpen || status != kStatusSevered) ++gLateAlerts;
}

void OnBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
}

void OnStream(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t,
              std::uint32_t) {}

class EngineTest : public HostileTest {
 protected:
  static std::uint32_t start() {
    std::uint32_t handle = kNoBrelHandle;
    gOpen = true;
    EXPECT_EQ(BrelInit(&handle, nullptr, 0, nullptr, OnBroadcast, OnAlert), kStatusOk);
    return handle;
  }
  static void stop(std::uint32_t handle) {
    EXPECT_EQ(BrelFinalize(handle), kStatusOk);
    gOpen = false;
  }

  /// Engines that come and go, each with its work on several threads at once.
  template <class Work>
  static void inRounds(std::uint32_t threads, Work work) {
    EXPECT_TRUE(Returns([threads, work] {
      for (Rounds rounds(3000); rounds.next();) {
        const std::uint32_t handle = start();
        std::vector<std::thread> workers;
        for (std::uint32_t i = 0; i < threads; ++i) workers.emplace_back([work, handle] { work(handle); });
        for (std::thread& worker : workers) worker.join();
        stop(handle);
      }
    })) << "a call did not return";
    EXPECT_EQ(gLateAlerts, 0u);
  }

  static void invoke(std::uint32_t handle, std::uint8_t responseExpected, KEL_StreamCallback stream = nullptr) {
    void* payload = nullptr;
    std::uint32_t size = 0;
    BrelInvokeTask(handle, "TASK_ID_APPLICATION_DEBUG_VAL", 1, nullptr, 0, 0, responseExpected, nullptr, &payload,
                   &size, nullptr, stream);
    std::free(payload);
  }

  const CoreProcess process;
};

TEST_F(EngineTest, TheLinkIsLostAtEveryMoment) {
  behave({.connecting = "LLV", .disconnecting = "LVL", .pouring = "LV"});
  Hostile_Pour(3, kSeed);
  inRounds(0, [](std::uint32_t) {});
}

TEST_F(EngineTest, AlertsGoOnUntilTheEngineIsStoppedAndNoLonger) {
  behave({.pouring = "LB"});
  Hostile_Pour(2, kSeed);
  inRounds(1, [](std::uint32_t) {
    const std::uint32_t alerts = gAlerts;
    while (gAlerts < alerts + 5) std::this_thread::yield();
  });
}

TEST_F(EngineTest, FixedTasksTakeWhateverIsAnswered) {
  folder.writeSettings("RxWaitTimeout=50\n");
  behave({.before = "SHOU", .after = "AEM", .pouring = "AMEUOSHRINLV"});
  Hostile_Pour(2, kSeed);
  inRounds(3, [](std::uint32_t handle) {
    char* path = nullptr;
    std::uint8_t* block = nullptr;
    std::uint32_t size = 0;
    BrelGetTraceFilePath(handle, &path);
    std::free(path);
    BrelSetTraceFilePath(handle, "trace");
    if (BrelGetTraceSeverityMultiple(handle, &block, &size) == kStatusOk) std::free(block);
    if (BrelGetAllStatistics(handle, &block, &size) == kStatusOk) std::free(block);
    BrelResetStatisticsBuffer(handle);
  });
}

// One client's refused task frees the number that another client waits on.
TEST_F(EngineTest, WaitingThreadsLoseTheirNumbersToRefusedTasks) {
  folder.writeSettings("RxWaitTimeout=50\n");
  behave({.after = "AU",
          .pouring = "AMEUOSHRINLVB",
          .refuses = HOSTILE_REFUSES_EXPECTANT | HOSTILE_REFUSES_OTHERS | HOSTILE_REFUSES_SOME});
  Hostile_Pour(2, kSeed);
  inRounds(3, [](std::uint32_t handle) {
    for (int i = 0; i < 5; ++i) {
      invoke(handle, 1);
      invoke(handle, 0);
    }
  });
}

TEST_F(EngineTest, ManyThreadsOpenStreamsThatNeverKeepTheirOrder) {
  folder.writeSettings("RxWaitTimeout=500\n");
  behave({.before = "EMA", .after = "MAEMB", .pouring = "BAMEOSHRINLV"});
  Hostile_Pour(2, kSeed);
  inRounds(3, [](std::uint32_t handle) {
    for (int i = 0; i < 3; ++i) {
      invoke(handle, 1, OnStream);
      invoke(handle, 1);
    }
  });
}

}  // namespace
}  // namespace kel::test
