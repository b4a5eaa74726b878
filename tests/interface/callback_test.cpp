// SPDX-License-Identifier: MIT
// The broadcast callback of a connection.
#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include "interface/client.h"

namespace kel::test {
namespace {

struct Broadcast {
  std::string name;
  std::uint32_t isRef;
  bool hasPayload;
  std::string payload;
  std::uint32_t seqTUI;

  bool operator==(const Broadcast&) const = default;
};

std::mutex gMutex;
std::condition_variable gChanged;
std::vector<Broadcast> gBroadcasts;

void Note(char* name, std::uint32_t isRef, void* payload, std::uint32_t size, std::uint32_t seqTUI) {
  Broadcast broadcast{name, isRef, payload != nullptr, {}, seqTUI};
  if (payload != nullptr) broadcast.payload.assign(static_cast<const char*>(payload), size);
  // Both blocks are the client's.
  std::free(name);
  std::free(payload);
  const std::lock_guard lock(gMutex);
  gBroadcasts.push_back(std::move(broadcast));
  gChanged.notify_all();
}

std::vector<Broadcast> WaitForBroadcasts(std::size_t count) {
  std::unique_lock lock(gMutex);
  gChanged.wait_for(lock, std::chrono::milliseconds(kLong), [&] { return gBroadcasts.size() >= count; });
  return gBroadcasts;
}

using CallbackTest = ClientTest;

TEST_F(CallbackTest, BroadcastsReachTheCallbackInTheirOrder) {
  const std::uint64_t conn = connect(&Note);
  const Values values = {1, 2, 3};
  SluiceHubSim_Broadcast(conn, kDebugValTui, 0x11223344, values.data(), sizeof values, 0);
  SluiceHubSim_Broadcast(conn, kDebugRefTui, 5, "REF!", 4, 0);
  SluiceHubSim_Broadcast(conn, kDebugRefTui, 6, nullptr, 0, 0);
  EXPECT_THAT(
      WaitForBroadcasts(3),
      ::testing::ElementsAre(Broadcast{"UNKNOWN_TASK", 0, true, Bytes(values), 0x11223344},
                             Broadcast{"UNKNOWN_TASK", 1, true, "REF!", 5}, Broadcast{"UNKNOWN_TASK", 1, true, "", 6}));
}

TEST_F(CallbackTest, ABroadcasterTaskIsAnsweredAndThenBroadcasts) {
  const std::uint64_t conn = connect(&Note);
  const Values countAndInterval = {3, 1, 0};
  EXPECT_EQ(
      Send(conn, "TASK_ID_APPLICATION_DEBUG_BROADCASTER", countAndInterval.data(), sizeof countAndInterval).result,
      KEL_OK);
  const auto broadcasts = WaitForBroadcasts(3);
  ASSERT_EQ(broadcasts.size(), 3u);
  for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(broadcasts[i].payload, Bytes({i, 3, 1}));
}

TEST_F(CallbackTest, WithoutACallbackBroadcastsAreDropped) {
  const std::uint64_t silent = connect();
  const std::uint64_t listening = connect(&Note);
  EXPECT_EQ(SluiceHubSim_Broadcast(silent, kDebugRefTui, 1, "lost", 4, 1), 1u);
  EXPECT_EQ(SluiceHubSim_Broadcast(listening, kDebugRefTui, 2, "taken", 5, 1), 1u);
  EXPECT_THAT(WaitForBroadcasts(1), ::testing::ElementsAre(Broadcast{"UNKNOWN_TASK", 1, true, "taken", 2}));
  EXPECT_EQ(SendValues(silent, {1, 2, 3}).payload, Bytes({1, 2, 3}));
}

TEST_F(CallbackTest, AfterDisconnectTheCallbackIsNotCalledAgain) {
  const std::uint64_t conn = connect(&Note);
  SluiceHubSim_Broadcast(conn, kDebugRefTui, 1, "taken", 5, 1);
  WaitForBroadcasts(1);
  EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);
  EXPECT_EQ(SluiceHubSim_Broadcast(conn, kDebugRefTui, 2, "late", 4, 1), 0u);
  EXPECT_EQ(gBroadcasts.size(), 1u);
}

std::uint64_t gConn = 0;
std::promise<Answer> gAnswer;

void SendFromCallback(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
  gAnswer.set_value(SendValues(gConn, {7, 8, 9}));
}

TEST_F(CallbackTest, ACallbackMaySendATaskOfItsOwnConnection) {
  gConn = connect(&SendFromCallback);
  SluiceHubSim_Broadcast(gConn, kDebugRefTui, 1, nullptr, 0, 0);
  EXPECT_EQ(gAnswer.get_future().get().payload, Bytes({7, 8, 9}));
}

std::promise<void> gEntered;
std::atomic<bool> gLeft{false};

/// Stays until the disconnect has begun.
void Linger(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
  gEntered.set_value();
  while (SluiceHubSim_TraceCount() == 0) std::this_thread::yield();
  gLeft = true;
}

TEST_F(CallbackTest, ADisconnectWaitsForARunningCallback) {
  const std::uint64_t conn = connect(&Linger);
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  SluiceHubSim_Broadcast(conn, kDebugRefTui, 1, nullptr, 0, 0);
  gEntered.get_future().get();
  EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);
  EXPECT_TRUE(gLeft);
}

}  // namespace
}  // namespace kel::test
