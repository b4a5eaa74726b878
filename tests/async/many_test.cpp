// SPDX-License-Identifier: MIT
// All sequences of all connections at once: 64 on each of 15.
#include <algorithm>
#include <map>

#include "async/async_test.h"

namespace kel::test {
namespace {

constexpr std::uint32_t kEngines = 15;
constexpr std::uint32_t kAll = kEngines * kSequenceNumbers;
constexpr const char* kStreamer = "TASK_ID_APPLICATION_DEBUG_STREAMER";

class ManyTest : public EngineTest {
 protected:
  ManyTest() {
    for (const char* level : {"Info", "Warn", "Err"}) registry.set("Software\\Brel\\ALogger", level, 0);
    for (std::uint32_t i = 0; i < kEngines; ++i) start();
  }

  /// Opens all there are, each with a command ID of its own.
  static void openAll(const char* task, const Values& payload, KEL_StreamCallback streamCallback) {
    for (std::uint32_t i = 0; i < kAll; ++i) {
      std::uint32_t seqNum = 4711;
      ASSERT_EQ(BrelInvokeAsyncTask(i % kEngines, task, i, payload.data(), sizeof payload, 0, 1, &seqNum, OnTask,
                                    streamCallback),
                kStatusOk);
    }
  }
  /// Waits until all threads have counted themselves off.
  static void waitForThreads() {
    for (std::uint32_t i = 0; i < kEngines; ++i) {
      while (EngineInside(*GetBrelInst(i)).threads() > 0) std::this_thread::yield();
    }
  }
};

TEST_F(ManyTest, AllTasksAreAnsweredOnce) {
  // With the answers late, so that all are open at once.
  SluiceHubSimRule late = RuleFor(0);
  late.delayMs = 300;
  AddRule(late);
  openAll(kDebugVal, {1, 2, 3}, nullptr);
  std::map<std::uint32_t, std::uint32_t> answers;
  for (const Call& call : gCalls.waitFor(kAll)) {
    EXPECT_EQ(call.errorCode, 0u);
    EXPECT_EQ(call.data, Bytes({1, 2, 3}));
    ++answers[call.commandID];
  }
  waitForThreads();
  EXPECT_EQ(answers.size(), kAll);
  EXPECT_EQ(gCalls.waitFor(0).size(), kAll);
}

TEST_F(ManyTest, AllStreamsFlowAndEnd) {
  constexpr std::uint32_t kMessages = 4;
  openAll(kStreamer, {kMessages, 1, 0}, OnStream);
  std::map<std::uint32_t, std::vector<std::string>> streams;
  for (const Call& call : gCalls.waitFor(kAll * (kMessages + 2))) streams[call.commandID].push_back(call.data);
  waitForThreads();
  EXPECT_EQ(streams.size(), kAll);
  for (const auto& [commandID, data] : streams) {
    ASSERT_EQ(data.size(), kMessages + 2);
    for (std::uint32_t i = 0; i <= kMessages; ++i) EXPECT_EQ(data[i + 1], Bytes({i, kMessages, 1}));
  }
}

TEST_F(ManyTest, AGeneralStopOfAllEndsWithinASecondAndCallsNobody) {
  DropRequests(0);
  openAll(kDebugVal, {1, 2, 3}, nullptr);
  auto fastest = std::chrono::steady_clock::duration::max();
  for (std::uint32_t i = 0; i < kEngines; ++i) {
    EXPECT_EQ(EngineInside(*GetBrelInst(i)).threads(), 64);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(BrelFinalize(i), kStatusOk);
    fastest = std::min(fastest, std::chrono::steady_clock::now() - begin);
  }
  // The best of them, since the machine may have other work.
  EXPECT_LT(fastest, std::chrono::seconds(1));
  EXPECT_EQ(gCalls.waitFor(0).size(), 0u);
}

TEST_F(ManyTest, ALongStreamOfTheDeviceComesWholeAndInOrder) {
  constexpr std::uint32_t kMessages = 20'000;
  static std::atomic<std::uint32_t> next{0}, faults{0}, ended{0};
  const Values payload = {kMessages, 0, 0};
  std::uint32_t seqNum = 0;
  ASSERT_EQ(BrelInvokeAsyncTask(3, kStreamer, 1, payload.data(), sizeof payload, 0, 1, &seqNum, nullptr,
                                [](std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t end, std::uint32_t,
                                   void* data, std::uint32_t, std::uint32_t) {
                                  std::uint32_t index = 0;
                                  std::memcpy(&index, data, sizeof index);
                                  if (index != next++) ++faults;
                                  ended = end;
                                }),
            kStatusOk);
  while (ended == 0) std::this_thread::yield();
  EXPECT_EQ(next, kMessages + 1);
  EXPECT_EQ(faults, 0u);
  waitForThreads();
}

}  // namespace
}  // namespace kel::test
