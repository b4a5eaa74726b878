// The header for C++, by what it adds to the C interface: owners, exceptions, callbacks with a life of their own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "KELHandler.hpp"
#include "SluiceHubSim.h"
#include "support/scratch_directory.h"

namespace kelhandler {
namespace {

constexpr char kEcho[] = "TASK_ID_APPLICATION_DEBUG_VAL";
constexpr char kEchoBytes[] = "TASK_ID_APPLICATION_DEBUG_REF";
constexpr char kStreamer[] = "TASK_ID_APPLICATION_DEBUG_STREAMER";
constexpr char kBroadcaster[] = "TASK_ID_APPLICATION_DEBUG_BROADCASTER";
constexpr char kUnknown[] = "NO_SUCH_TASK";

std::uint32_t OpenConnections() { return SluiceHubSim_GetConnections(nullptr, 0); }

/// Has the device take every request and answer none.
void DropEverything() {
  SluiceHubSimRule drop{};
  drop.flags = SLUICEHUBSIM_DROP;
  SluiceHubSim_AddRule(&drop);
}

std::uint32_t CodeOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const Error& error) {
    return error.code();
  }
  return KEL_OK;
}

/// A promise that a callback may keep while the test goes on.
template <typename T>
std::shared_ptr<std::promise<T>> MakePromise() {
  return std::make_shared<std::promise<T>>();
}

class CppHeaderTest : public testing::Test {
 protected:
  kel::test::ScratchDirectory mFolder;
  Library mLibrary;
};

TEST_F(CppHeaderTest, AConnectionIsClosedAtTheEndOfItsScope) {
  {
    const Connection device;
    EXPECT_EQ(OpenConnections(), 1u);
  }
  EXPECT_EQ(OpenConnections(), 0u);
}

TEST_F(CppHeaderTest, AMovedConnectionIsClosedOnce) {
  Connection first;
  Connection second(std::move(first));
  second = Connection();
  EXPECT_EQ(OpenConnections(), 1u);
  EXPECT_EQ(second.send(kEcho, Values{1, 2, 3}).values(), (Values{1, 2, 3}));
}

TEST_F(CppHeaderTest, AMovedConnectionKeepsItsCallbacks) {
  const auto heard = MakePromise<Values>();
  Connection first([heard](std::string_view, const Message& message) { heard->set_value(message.payload.values()); });
  Connection second(std::move(first));
  second.send(kBroadcaster, Values{1, 0, 0});
  EXPECT_EQ(heard->get_future().get(), (Values{0, 1, 0}));
}

TEST_F(CppHeaderTest, AFailedConnectThrowsAndLeavesNothingOpen) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1);
  EXPECT_EQ(CodeOf([] { const Connection device; }), KEL_E_CONNECTION);
  SluiceHubSim_UnforceResult(SLUICEHUBSIM_L5_CONNECT);
  EXPECT_EQ(OpenConnections(), 0u);
}

TEST_F(CppHeaderTest, ASixteenthConnectionIsRefusedUntilOneIsClosed) {
  std::vector<Connection> devices(KEL_MAX_CONNECTIONS);
  EXPECT_EQ(CodeOf([] { const Connection device; }), KEL_E_CONNECTION);
  devices.pop_back();
  EXPECT_EQ(CodeOf([] { const Connection device; }), KEL_OK);
}

TEST_F(CppHeaderTest, EachConnectionHearsItsOwnBroadcasts) {
  std::vector<std::future<Values>> heard;
  std::vector<Connection> devices;
  for (std::uint32_t i = 0; i < 3; ++i) {
    const auto promise = MakePromise<Values>();
    heard.push_back(promise->get_future());
    devices.emplace_back(
        [promise](std::string_view, const Message& message) { promise->set_value(message.payload.values()); });
  }
  for (std::uint32_t i = 0; i < 3; ++i) devices[i].send(kBroadcaster, Values{1, i, 0});
  for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(heard[i].get(), (Values{0, 1, i}));
}

TEST_F(CppHeaderTest, PayloadsOfEachFormAreEchoed) {
  Connection device;
  EXPECT_EQ(device.send(kEcho, Values{1, 2, 3}).values(), (Values{1, 2, 3}));
  EXPECT_EQ(device.send(kEcho).values(), (Values{0, 0, 0}));
  EXPECT_EQ(device.send(kEchoBytes, "a text").text(), "a text");
  const std::vector<std::byte> bytes{std::byte{0}, std::byte{255}};
  EXPECT_TRUE(std::ranges::equal(device.send(kEchoBytes, bytes).bytes(), bytes));
  EXPECT_EQ(device.send(kEchoBytes).bytes().size(), 0u);
  EXPECT_THROW(device.send(kEchoBytes, "a text").values(), std::length_error);
}

TEST_F(CppHeaderTest, ARefusalIsAnErrorWithItsCode) {
  Connection device;
  EXPECT_EQ(CodeOf([&] { device.send(kUnknown); }), KEL_E_TASK);
  EXPECT_EQ(CodeOf([&] { device.post(kUnknown); }), KEL_E_TASK);
  EXPECT_EQ(CodeOf([&] { device.stream(kUnknown, {}, [](const Message&) {}); }), KEL_E_TASK);
  EXPECT_EQ(CodeOf([&] { device.sendAsync(kUnknown, {}, [](const Message*) {}); }), KEL_E_ASYNC_TASK);
}

TEST_F(CppHeaderTest, AClosedConnectionRefusesEverything) {
  Connection device;
  device.disconnect();
  device.disconnect();
  EXPECT_EQ(CodeOf([&] { device.send(kEcho); }), KEL_E_CONNECTION);
  EXPECT_EQ(CodeOf([&] { device.sendAsync(kEcho, {}, [](const Message*) {}); }), KEL_E_CONNECTION);
  EXPECT_EQ(CodeOf([&] { device.stream(kStreamer, {}, [](const Message&) {}); }), KEL_E_CONNECTION);
  EXPECT_EQ(CodeOf([&] { device.validateVersion("file", {}, "."); }), KEL_E_CONNECTION);
}

TEST_F(CppHeaderTest, AFileOfTheGenerationIsValid) {
  Connection device;
  EXPECT_TRUE(device.validateVersion("Statistics.bm", {}, "."));
}

TEST_F(CppHeaderTest, AnAnswerThatDoesNotComeIsToldAsNull) {
  mFolder.writeSettings("RxWaitTimeout=50\n");
  Connection device;
  DropEverything();
  const auto told = MakePromise<bool>();
  device.sendAsync(kEcho, {}, [told](const Message* answer) { told->set_value(answer == nullptr); });
  EXPECT_TRUE(told->get_future().get());
  SluiceHubSim_ClearRules();
}

TEST_F(CppHeaderTest, ACallbackMaySendTasks) {
  Connection device;
  const auto answered = MakePromise<Values>();
  device.sendAsync(kEcho, Values{4, 0, 0}, [&device, answered](const Message* first) {
    const Values next{first->payload.values()[0] + 1, 0, 0};
    device.sendAsync(kEcho, next, [answered](const Message* second) { answered->set_value(second->payload.values()); });
  });
  EXPECT_EQ(answered->get_future().get(), (Values{5, 0, 0}));
}

TEST_F(CppHeaderTest, AStreamGoesToItsCallbackUpToTheLastMessage) {
  Connection device;
  const auto end = MakePromise<std::uint32_t>();
  std::uint32_t count = 0;
  device.stream(kStreamer, Values{4, 1, 0}, [end, &count](const Message& message) {
    if (message.isLast) return end->set_value(count);
    ++count;
  });
  EXPECT_EQ(end->get_future().get(), 4u);
}

TEST_F(CppHeaderTest, WhatACallbackCapturesIsReleasedWithItsLastCall) {
  Connection device;
  const auto captured = std::make_shared<int>();
  const std::weak_ptr<int> watch = captured;
  device.sendAsync(kEcho, {}, [captured](const Message*) {});
  device.disconnect();
  EXPECT_EQ(watch.use_count(), 1);
}

TEST_F(CppHeaderTest, WhatARefusedTaskCapturedIsReleasedAtOnce) {
  Connection device;
  const auto captured = std::make_shared<int>();
  EXPECT_THROW(device.sendAsync(kUnknown, {}, [captured](const Message*) {}), Error);
  EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(CppHeaderTest, NoCallbackRunsAfterDisconnect) {
  Connection device;
  std::atomic<bool> closed = false, late = false;
  device.stream(kStreamer, Values{100'000, 1, 0}, [&](const Message&) {
    if (closed) late = true;
  });
  device.disconnect();
  closed = true;
  EXPECT_FALSE(late);
}

TEST_F(CppHeaderTest, ADisconnectWaitsForACallbackThatSendsATask) {
  Connection device;
  const auto begun = MakePromise<void>(), disconnecting = MakePromise<void>();
  std::atomic<bool> answered = false;
  device.sendAsync(kEcho, {}, [&, begun, disconnecting](const Message*) {
    begun->set_value();
    disconnecting->get_future().wait();
    // Time for a disconnect that does not wait: KEL_Disconnect and this call would keep each other waiting for good.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    device.send(kEcho);
    answered = true;
  });
  begun->get_future().wait();
  disconnecting->set_value();
  device.disconnect();
  EXPECT_TRUE(answered);
}

TEST_F(CppHeaderTest, ACallbackThatClosesItsConnectionIsToldSo) {
  Connection device;
  const auto told = MakePromise<bool>();
  device.sendAsync(kEcho, {}, [&device, told](const Message*) {
    try {
      device.disconnect();
      told->set_value(false);
    } catch (const std::logic_error&) {
      told->set_value(true);
    }
  });
  EXPECT_TRUE(told->get_future().get());
}

TEST_F(CppHeaderTest, AConnectionThatCannotBeClosedIsToldOnce) {
  Connection device;
  ASSERT_EQ(KEL_Disconnect(device.handle()), KEL_OK);
  EXPECT_EQ(CodeOf([&] { device.disconnect(); }), KEL_E_CONNECTION);
  EXPECT_EQ(CodeOf([&] { device.disconnect(); }), KEL_OK);
}

}  // namespace
}  // namespace kelhandler
