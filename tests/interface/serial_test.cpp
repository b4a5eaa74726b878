// SPDX-License-Identifier: MIT
// Calls into the engine run one at a time over all connections; the others take no lock.
#include <chrono>
#include <future>
#include <thread>

#include "interface/client.h"

namespace kel::test {
namespace {

/// How many traces with that text are kept.
std::size_t CountTraces(const char* text) {
  std::size_t count = 0;
  SluiceHubSimTrace trace;
  for (std::uint32_t i = 0; SluiceHubSim_GetTrace(i, &trace) != 0; ++i) count += Narrow(trace.text) == text ? 1 : 0;
  return count;
}

class SerialTest : public ClientTest {
 protected:
  /// Answers the one request that was dropped: sequence number 0 of its connection.
  static void answer(std::uint64_t conn, const Values& values) {
    EXPECT_EQ(SluiceHubSim_DeliverRecord(conn, kDebugValTui, 0, 0, values.data(), sizeof values, 1), 1u);
  }
};

TEST_F(SerialTest, ATaskOnOneConnectionWaitsForATaskOnAnother) {
  folder.writeSettings("RxWaitTimeout=30000\n");
  const std::uint64_t slow = connect();
  const std::uint64_t other = connect();
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  DropDebugTasks(1);

  auto first = std::async(std::launch::async, [&] { return SendValues(slow, {}); });
  ASSERT_EQ(SluiceHubSim_WaitForRequests(1, kLong), 1u);
  auto second = std::async(std::launch::async, [&] { return SendValues(other, {4, 5, 6}); });
  while (CountTraces("KEL_SendReceiveKELEx - started") < 2) std::this_thread::yield();
  EXPECT_EQ(Requests(), 1u);
  answer(slow, {1, 2, 3});

  EXPECT_EQ(first.get().payload, Bytes({1, 2, 3}));
  EXPECT_EQ(second.get().payload, Bytes({4, 5, 6}));
  // The second call looked its connection up after the first had ended.
  const auto traces = TakeTraces();
  const Trace ended{32, "KEL_SendReceiveKELEx", "KEL_SendReceiveKELEx finished OK"};
  const Trace lookedUp{32, "GetHandle", "GetHandle - started. Conn=" + Hex(other)};
  const auto end = std::find(traces.begin(), traces.end(), ended);
  EXPECT_LT(end, std::find(traces.begin(), traces.end(), lookedUp));
}

TEST_F(SerialTest, ConnectsAndDisconnectsWaitForATaskToo) {
  folder.writeSettings("RxWaitTimeout=30000\n");
  const std::uint64_t slow = connect();
  const std::uint64_t other = connect();
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  DropDebugTasks(1);

  auto task = std::async(std::launch::async, [&] { return SendValues(slow, {}); });
  ASSERT_EQ(SluiceHubSim_WaitForRequests(1, kLong), 1u);
  auto disconnect = std::async(std::launch::async, [&] { return KEL_Disconnect(other); });
  const std::string opening = "KEL_Disconnect - started. Conn=" + Hex(other);
  while (CountTraces(opening.c_str()) < 1) std::this_thread::yield();
  EXPECT_EQ(OpenConnections().size(), 2u);
  answer(slow, {1, 2, 3});

  EXPECT_EQ(task.get().result, KEL_OK);
  EXPECT_EQ(disconnect.get(), KEL_OK);
  EXPECT_EQ(OpenConnections(), std::vector<std::uint64_t>{slow});
}

TEST_F(SerialTest, TheExportsThatAskNoEngineDoNotWait) {
  folder.writeSettings("RxWaitTimeout=30000\n");
  const std::uint64_t conn = connect();
  DropDebugTasks(1);
  auto task = std::async(std::launch::async, [&] { return SendValues(conn, {}); });
  ASSERT_EQ(SluiceHubSim_WaitForRequests(1, kLong), 1u);

  KEL_Init();
  KEL_RegisterCtrlStatusUpdatesCB(nullptr);
  KEL_UnregisterCtrlStatusUpdatesCB(nullptr);
  KEL_GetCtrlStatus();
  KEL_SetConnParams(1, 2);
  EXPECT_EQ(KEL_GetVersion().number[0], 4u);
  KEL_Finalize();
  EXPECT_EQ(task.wait_for(std::chrono::seconds(0)), std::future_status::timeout);

  answer(conn, {1, 2, 3});
  EXPECT_EQ(task.get().result, KEL_OK);
}

TEST_F(SerialTest, ManyThreadsOnManyConnectionsEachGetTheirOwnAnswers) {
  constexpr std::uint32_t kThreads = 4;
  constexpr std::uint32_t kRounds = 25;
  std::vector<std::thread> threads;
  for (std::uint32_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (std::uint32_t round = 0; round < kRounds; ++round) {
        std::uint64_t conn = 0;
        ASSERT_EQ(KEL_Connect(nullptr, nullptr, &conn), KEL_OK);
        EXPECT_EQ(SendValues(conn, {t, round, 1}).payload, Bytes({t, round, 1}));
        EXPECT_EQ(Send(conn, kDebugRef, &round, sizeof round).payload.size(), sizeof round);
        EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(OpenConnections().empty());
}

}  // namespace
}  // namespace kel::test
