/* SPDX-License-Identifier: MIT */
// What the tests of the client share: a device that does as it is told, and a client that tells what became of it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "SluiceHubSim.h"
#include "kel/client.hpp"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

using namespace std::chrono_literals;

inline constexpr auto kEcho = tasks::TASK_ID_APPLICATION_DEBUG_VAL;
inline constexpr auto kEchoBytes = tasks::TASK_ID_APPLICATION_DEBUG_REF;
inline constexpr auto kOther = tasks::TASK_ID_HDI_UT_VAL_TEST_RESPOND;
inline constexpr auto kStreamer = tasks::TASK_ID_APPLICATION_DEBUG_STREAMER;
inline constexpr auto kBroadcaster = tasks::TASK_ID_APPLICATION_DEBUG_BROADCASTER;

/// Longer than anything here takes unless something is wrong.
inline constexpr Milliseconds kLong{30'000};
/// A deadline that passes while a test waits for it.
inline constexpr Milliseconds kShort{50};
/// Time for what must not happen.
inline constexpr Milliseconds kWhile{100};

template <class Task>
SluiceHubSimRule RuleFor(const Task& task) {
  SluiceHubSimRule rule{};
  rule.tui = task.tui;
  rule.tuiMask = SLUICEHUBSIM_EXACT;
  return rule;
}

/// Has the device take the next `times` requests of a task and never answer; 0: all of them.
template <class Task>
std::uint32_t Drop(const Task& task, std::uint32_t times = 0) {
  SluiceHubSimRule rule = RuleFor(task);
  rule.flags = SLUICEHUBSIM_DROP;
  rule.times = times;
  return SluiceHubSim_AddRule(&rule);
}

/// Has the device refuse them.
template <class Task>
std::uint32_t Refuse(const Task& task, std::uint32_t times = 0) {
  SluiceHubSimRule rule = RuleFor(task);
  rule.L4status = 1;
  rule.times = times;
  return SluiceHubSim_AddRule(&rule);
}

/// Has their answers come late.
template <class Task>
std::uint32_t Delay(const Task& task, Milliseconds delay, std::uint32_t times = 0) {
  SluiceHubSimRule rule = RuleFor(task);
  rule.delayMs = static_cast<std::uint32_t>(delay.count());
  rule.times = times;
  return SluiceHubSim_AddRule(&rule);
}

/// Has a task answer with a stream without end.
template <class Task>
void MakeEndless(const Task& task, std::uint32_t messages, Milliseconds interval = Milliseconds(0)) {
  SluiceHubSimRule rule = RuleFor(task);
  rule.flags = SLUICEHUBSIM_STREAM | SLUICEHUBSIM_NO_END;
  rule.streamCount = messages;
  rule.streamIntervalMs = static_cast<std::uint32_t>(interval.count());
  SluiceHubSim_AddRule(&rule);
}

inline std::uint64_t Requests() {
  SluiceHubSimCounts counts;
  SluiceHubSim_GetCounts(&counts);
  return counts.requests;
}

inline void WaitForRequests(std::uint64_t count) {
  ASSERT_EQ(SluiceHubSim_WaitForRequests(count, static_cast<std::uint32_t>(kLong.count())), 1u);
}

/// Has the next connects fail, or not any more.
inline void RefuseConnects() { SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1); }
inline void AllowConnects() { SluiceHubSim_UnforceResult(SLUICEHUBSIM_L5_CONNECT); }

/// The library as another client sees it that connects, disconnects or checks a version for long.
using LibraryAtWork = detail::Alone;
inline detail::Gate& Gate() { return detail::Process::get().gate; }

/// Things that callbacks tell, in their order.
template <class T>
class Told {
 public:
  void tell(T what) {
    const std::lock_guard lock(mMutex);
    mAll.push_back(std::move(what));
    mChanged.notify_all();
  }

  /// Waits for the next one that has not been taken.
  std::optional<T> next(Milliseconds time = kLong) {
    std::unique_lock lock(mMutex);
    if (!mChanged.wait_for(lock, time, [this] { return mTaken < mAll.size(); })) return std::nullopt;
    return mAll[mTaken++];
  }

  std::vector<T> all() const {
    const std::lock_guard lock(mMutex);
    return {mAll.begin(), mAll.end()};
  }

 private:
  mutable std::mutex mMutex;
  std::condition_variable mChanged;
  std::deque<T> mAll;
  std::size_t mTaken = 0;
};

/// Something that happens once.
class Event {
 public:
  void set() { mTold.tell(true); }
  bool wait(Milliseconds time = kLong) { return mTold.next(time).has_value(); }

 private:
  Told<bool> mTold;
};

inline Cause CauseOf(const Result<Payload>& result) { return result.ok() ? Cause{} : result.cause(); }

class ClientTest : public ::testing::Test {
 protected:
  /// What a client is made with that watches its link closely and comes back.
  Options watching() {
    Options options;
    options.supervision.heartbeat = kOther.name;
    options.supervision.interval = Milliseconds(50);
    options.supervision.misses = 2;
    options.supervision.reconnect = true;
    options.supervision.firstPause = Milliseconds(10);
    return toldBy(std::move(options));
  }

  Options comingBack() {
    Options options;
    options.supervision.reconnect = true;
    options.supervision.firstPause = Milliseconds(10);
    return toldBy(std::move(options));
  }

  Options toldBy(Options options) {
    options.onState = [this](const StateChange& change) { states.tell(change); };
    return options;
  }

  /// Waits until the client has told of that state.
  StateChange awaitState(State state) {
    for (;;) {
      const std::optional<StateChange> change = states.next();
      EXPECT_TRUE(change) << "never " << text(state);
      if (!change || change->state == state) return change.value_or(StateChange{state, "", 0, {}});
    }
  }

  ScratchDirectory folder;
  RegistrySettings registry;
  Told<StateChange> states;
};

}  // namespace kel::test
