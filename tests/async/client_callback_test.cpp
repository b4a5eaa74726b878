// SPDX-License-Identifier: MIT
// What a client may do from within its own callbacks: which calls return, which wait, and which never come back.
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <utility>

#include "interface/client.h"
#include "support/left_thread.h"

namespace kel::test {
namespace {

constexpr const char* kStreamer = "TASK_ID_APPLICATION_DEBUG_STREAMER";

/// How long a call that must not return is watched.
constexpr auto kWhile = std::chrono::milliseconds(250);

/// What the client does in its next callback, on the library's thread. Never destroyed: some of these threads are still
/// in their callback when the process ends.
std::function<void()>& gInCallback = *new std::function<void()>;

void OnAnswer(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t, std::uint32_t) {
  if (const auto action = std::exchange(gInCallback, nullptr)) action();
}
void OnStream(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t,
              std::uint32_t) {
  if (const auto action = std::exchange(gInCallback, nullptr)) action();
}

/// A client with connections that it leaves open: for some of these tests nobody could close them any more.
class ClientCallbackTest : public ::testing::Test {
 protected:
  static std::uint64_t connect() {
    std::uint64_t conn = 0;
    EXPECT_EQ(KEL_Connect(nullptr, nullptr, &conn), KEL_OK);
    return conn;
  }

  /// Has `action` run in the callback of an asynchronous task. Its result, or nothing yet.
  template <class Action>
  static auto inCallback(std::uint64_t conn, Action action) -> std::future<decltype(action())> {
    auto task = std::make_shared<std::packaged_task<decltype(action())()>>(std::move(action));
    gInCallback = [task] { (*task)(); };
    std::uint32_t seqNum = 0;
    EXPECT_EQ(KEL_SendReceiveAsyncKEL(conn, kDebugRef, 1, nullptr, 0, &seqNum, OnAnswer, nullptr), KEL_OK);
    return task->get_future();
  }

  template <class Result>
  static bool returns(const std::future<Result>& result) {
    return result.wait_for(std::chrono::milliseconds(kLong)) == std::future_status::ready;
  }
  template <class Result>
  static bool waits(const std::future<Result>& result) {
    return result.wait_for(kWhile) == std::future_status::timeout;
  }

  /// Another thread's synchronous task, which the device does not answer before the test does.
  std::future<Answer> askOnAnotherThread(std::uint64_t conn) {
    DropDebugTasks(1);
    const std::uint64_t requests = Requests();
    auto asked = std::async(std::launch::async, [conn] { return SendValues(conn, {1, 2, 3}); });
    EXPECT_EQ(SluiceHubSim_WaitForRequests(requests + 1, kLong), 1u);
    return asked;
  }
  static void answerThat(std::uint64_t conn, std::uint32_t seqNum) {
    const Values values = {4, 5, 6};
    SluiceHubSim_DeliverRecord(conn, kDebugValTui | seqNum << 24, 0, 0, values.data(), sizeof values, 1);
  }

  ScratchDirectory folder;
  RegistrySettings registry;
};

void WithoutLock() {
  EXPECT_EQ(KEL_GetVersion().number[0], 4u);
  KEL_GetCtrlStatus();
  KEL_SetConnParams(1, 2);
  const KEL_CtrlStatusCallback callback = [] {};
  KEL_RegisterCtrlStatusUpdatesCB(callback);
  KEL_UnregisterCtrlStatusUpdatesCB(callback);
}

// ---------------------------------------------------------------------------------------------------------------------
// Calls that return
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ClientCallbackTest, ASynchronousTaskOfItsOwnConnectionIsAnswered) {
  const std::uint64_t conn = connect();
  auto answer = inCallback(conn, [conn] { return SendValues(conn, {1, 2, 3}); });
  ASSERT_TRUE(returns(answer));
  EXPECT_EQ(answer.get().payload, Bytes({1, 2, 3}));
}

TEST_F(ClientCallbackTest, AStreamCallbackMaySendATaskAsWell) {
  const std::uint64_t conn = connect();
  std::promise<Answer> promise;
  auto answer = promise.get_future();
  gInCallback = [&] { promise.set_value(SendValues(conn, {1, 2, 3})); };
  std::uint32_t seqNum = 0;
  EXPECT_EQ(KEL_SendReceiveAsyncKEL(conn, kStreamer, 1, nullptr, 0, &seqNum, nullptr, OnStream), KEL_OK);
  ASSERT_TRUE(returns(answer));
  EXPECT_EQ(answer.get().payload, Bytes({1, 2, 3}));
}

std::atomic<bool> gFirstReturned{false};
std::promise<bool> gSecondCalled;

TEST_F(ClientCallbackTest, AnAsynchronousTaskIsSentAndItsCallbackComesBehindThisOne) {
  const std::uint64_t conn = connect();
  auto sent = inCallback(conn, [conn] {
    std::uint32_t seqNum = 0;
    const std::uint32_t result = KEL_SendReceiveAsyncKEL(
        conn, kDebugRef, 2, nullptr, 0, &seqNum, [](auto...) { gSecondCalled.set_value(gFirstReturned); }, nullptr);
    SluiceHubSimCounts counts{};
    for (; counts.responses < 2; SluiceHubSim_GetCounts(&counts)) std::this_thread::yield();
    std::this_thread::sleep_for(kWhile / 5);  // its answer is there, and would be told now
    gFirstReturned = true;
    return result;
  });
  ASSERT_TRUE(returns(sent));
  EXPECT_EQ(sent.get(), KEL_OK);
  auto second = gSecondCalled.get_future();
  ASSERT_TRUE(returns(second));
  EXPECT_TRUE(second.get());
}

TEST_F(ClientCallbackTest, AnotherConnectionMayBeUsedClosedAndOpened) {
  const std::uint64_t conn = connect();
  const std::uint64_t other = connect();
  auto results = inCallback(conn, [other] {
    std::uint64_t fresh = 0;
    const Answer answer = SendValues(other, {1, 2, 3});
    const std::uint32_t closed = KEL_Disconnect(other);
    const std::uint32_t opened = KEL_Connect(nullptr, nullptr, &fresh);
    return std::vector<std::uint32_t>{answer.result, closed, opened, KEL_Disconnect(fresh)};
  });
  ASSERT_TRUE(returns(results));
  EXPECT_THAT(results.get(), ::testing::Each(KEL_OK));
}

TEST_F(ClientCallbackTest, CallsWithoutALockReturnWhoeverHasIt) {
  const std::uint64_t conn = connect();
  // The first callback stays until another thread has the lock.
  std::promise<void> lockTaken;
  auto done = inCallback(conn, [taken = lockTaken.get_future().share()] {
    taken.wait();
    WithoutLock();
  });
  auto waiting = askOnAnotherThread(conn);
  lockTaken.set_value();
  EXPECT_TRUE(returns(done));
  EXPECT_TRUE(waits(waiting));
  answerThat(conn, 1);
  EXPECT_TRUE(returns(waiting));
}

// ---------------------------------------------------------------------------------------------------------------------
// Calls that wait
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ClientCallbackTest, ACallWaitsForTheTaskThatAnotherThreadWaitsFor) {
  const std::uint64_t conn = connect();
  std::promise<void> lockTaken;
  auto second = inCallback(conn, [conn, taken = lockTaken.get_future().share()] {
    taken.wait();
    return SendValues(conn, {7, 8, 9});
  });
  auto first = askOnAnotherThread(conn);
  lockTaken.set_value();
  EXPECT_TRUE(waits(second));
  // An answer to a waiting thread needs no callback's leave.
  answerThat(conn, 1);
  ASSERT_TRUE(returns(first));
  EXPECT_EQ(first.get().payload, Bytes({4, 5, 6}));
  ASSERT_TRUE(returns(second));
  EXPECT_EQ(second.get().payload, Bytes({7, 8, 9}));
}

TEST_F(ClientCallbackTest, ADisconnectByAnotherThreadWaitsForTheCallback) {
  const std::uint64_t conn = connect();
  std::promise<void> release;
  std::promise<void> entered;
  auto stays = inCallback(conn, [&entered, released = release.get_future().share()] {
    entered.set_value();
    released.wait();
  });
  entered.get_future().wait();
  auto disconnected = std::async(std::launch::async, [conn] { return KEL_Disconnect(conn); });
  EXPECT_TRUE(waits(disconnected));
  release.set_value();
  EXPECT_EQ(disconnected.get(), KEL_OK);
}

// ---------------------------------------------------------------------------------------------------------------------
// Calls that never return
// ---------------------------------------------------------------------------------------------------------------------

/// A call on a thread that is left behind.
template <class Action>
auto OnLeftThread(Action action) -> std::future<decltype(action())> {
  std::packaged_task<decltype(action())()> task(std::move(action));
  auto result = task.get_future();
  LeaveToItself(std::move(task));
  return result;
}

TEST_F(ClientCallbackTest, TheDisconnectOfItsOwnConnectionNeverReturnsAndNobodyElseGetsThrough) {
  const std::uint64_t conn = connect();
  const std::uint64_t other = connect();
  auto disconnected = inCallback(conn, [conn] { return KEL_Disconnect(conn); });
  EXPECT_TRUE(waits(disconnected));
  auto sent = OnLeftThread([other] { return SendValues(other, {1, 2, 3}); });
  EXPECT_TRUE(waits(sent));
  EXPECT_TRUE(waits(disconnected));
  WithoutLock();
}

/// Whether a disconnect has begun to look its connection up, which it does alone.
bool DisconnectHasTheLock() {
  bool begun = false;
  SluiceHubSimTrace trace;
  for (std::uint32_t i = 0; SluiceHubSim_GetTrace(i, &trace) != 0; ++i) {
    if (begun && Narrow(trace.function) == "GetHandle") return true;
    begun = begun || Narrow(trace.function) == "KEL_Disconnect";
  }
  return false;
}

TEST_F(ClientCallbackTest, ACallThatMeetsTheDisconnectOfItsConnectionNeverReturnsAndNorDoesThat) {
  const std::uint64_t conn = connect();
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  const auto begun = std::make_shared<std::promise<void>>();
  auto sent = inCallback(conn, [conn, begun] {
    begun->set_value();
    while (!DisconnectHasTheLock()) std::this_thread::yield();
    return SendValues(conn, {1, 2, 3});
  });
  begun->get_future().wait();  // a disconnect that came first would drop the answer
  auto disconnected = OnLeftThread([conn] { return KEL_Disconnect(conn); });
  EXPECT_TRUE(waits(disconnected));
  EXPECT_TRUE(waits(sent));
  EXPECT_TRUE(waits(disconnected));
  WithoutLock();
}

}  // namespace
}  // namespace kel::test
