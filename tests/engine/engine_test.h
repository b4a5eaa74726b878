/* SPDX-License-Identifier: MIT */
// What the tests of the engine share: engines through the front interface, with the stand-in behind them.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "SluiceHubSim.h"
#include "adapter/L5Records.h"
#include "adapter/TaskRecord.h"
#include "engine/Brel.h"
#include "engine/Instances.h"
#include "support/core_process.h"
#include "support/log_file.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

inline constexpr const char* kDebugVal = "TASK_ID_APPLICATION_DEBUG_VAL";
inline constexpr const char* kDebugRef = "TASK_ID_APPLICATION_DEBUG_REF";
inline constexpr std::uint32_t kDebugValTui = 0x38240;
inline constexpr std::uint32_t kDebugRefTui = 0xB8241;

/// Longer than anything here takes unless something is wrong, in milliseconds.
inline constexpr std::uint32_t kLong = 30'000;

using Values = std::array<std::uint32_t, 3>;

inline std::string Bytes(const Values& values) {
  return std::string(reinterpret_cast<const char*>(values.data()), sizeof values);
}

/// A task record as it lies in memory.
inline std::vector<std::uint8_t> Record(std::uint32_t word, std::uint32_t second, std::uint32_t seqTUI,
                                        const std::string& payload) {
  const std::uint32_t head[] = {word, second, seqTUI, static_cast<std::uint32_t>(payload.size())};
  std::vector<std::uint8_t> record(sizeof head + payload.size());
  std::memcpy(record.data(), head, sizeof head);
  std::memcpy(record.data() + sizeof head, payload.data(), payload.size());
  return record;
}

/// One synchronous task and all that came of it.
struct Answer {
  Status status = 4711;
  bool written = false;     ///< the outputs were
  bool hasPayload = false;  ///< and not with null
  std::string payload;
};

inline Answer Invoke(std::uint32_t handle, const char* name, const void* input, std::uint32_t inputSize,
                     std::uint32_t initialSeqTUI = 0, std::uint8_t responseExpected = 1,
                     KEL_StreamCallback streamCallback = nullptr) {
  void* payload = &payload;
  std::uint32_t size = 0xFFFFFFFF;
  Answer answer;
  answer.status = BrelInvokeTask(handle, name, 1, input, inputSize, initialSeqTUI, responseExpected, nullptr, &payload,
                                 &size, nullptr, streamCallback);
  answer.written = payload != &payload;
  if (!answer.written) return answer;
  answer.hasPayload = payload != nullptr;
  if (answer.hasPayload) {
    answer.payload.assign(static_cast<const char*>(payload), size);
  } else {
    EXPECT_EQ(size, 0u);
  }
  std::free(payload);
  return answer;
}

inline Answer InvokeVal(std::uint32_t handle, const Values& values) {
  return Invoke(handle, kDebugVal, values.data(), sizeof values);
}

/// A rule for one task, or for all with 0.
inline SluiceHubSimRule RuleFor(std::uint32_t tui, std::uint32_t flags = 0) {
  SluiceHubSimRule rule{};
  rule.tui = tui;
  rule.tuiMask = tui != 0 ? SLUICEHUBSIM_EXACT : 0;
  rule.flags = flags;
  return rule;
}

inline void AddRule(const SluiceHubSimRule& rule) { SluiceHubSim_AddRule(&rule); }

/// Has the device take the next `times` requests of the task and never answer; 0: all of them.
inline void DropRequests(std::uint32_t tui, std::uint32_t times = 0) {
  SluiceHubSimRule rule = RuleFor(tui, SLUICEHUBSIM_DROP);
  rule.times = times;
  AddRule(rule);
}

inline std::uint64_t Requests() {
  SluiceHubSimCounts counts;
  SluiceHubSim_GetCounts(&counts);
  return counts.requests;
}

inline std::uint32_t OpenConnections() { return SluiceHubSim_GetConnections(nullptr, 0); }

/// The last message that the device had, whole.
inline std::vector<std::uint8_t> LastMessage() {
  SluiceHubSimRequest head{};
  EXPECT_EQ(SluiceHubSim_GetRequest(SLUICEHUBSIM_LAST, &head, nullptr, 0), 1u);
  std::vector<std::uint8_t> body(head.size);
  SluiceHubSim_GetRequest(SLUICEHUBSIM_LAST, nullptr, body.data(), head.size);
  return body;
}

/// The wire words of the last request.
inline WireTask LastRequest() {
  const std::vector<std::uint8_t> body = LastMessage();
  WireTask wire{};
  if (body.size() >= sizeof(KelRequestHeader) + sizeof wire) {
    std::memcpy(&wire, body.data() + sizeof(KelRequestHeader), sizeof wire);
  } else {
    ADD_FAILURE() << "the last message is no request";
  }
  return wire;
}

/// Things that callbacks noted, for a test to wait for.
template <class Item>
class Noted {
 public:
  void add(Item item) {
    const std::lock_guard lock(mMutex);
    mItems.push_back(std::move(item));
    mChanged.notify_all();
  }
  /// The first `count`, and any more; fewer if they did not come in time.
  std::vector<Item> waitFor(std::size_t count) {
    std::unique_lock lock(mMutex);
    mChanged.wait_for(lock, std::chrono::milliseconds(kLong), [&] { return mItems.size() >= count; });
    return mItems;
  }

 private:
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<Item> mItems;
};

/// Writes an expected log of one module.
class Log {
 public:
  explicit Log(std::string module) : mModule(std::move(module)) {}
  Log& info(const std::string& function, const std::string& text) { return add("info", function, text); }
  Log& error(const std::string& function, const std::string& text) { return add("error", function, text); }
  std::string text() const { return mText; }

 private:
  Log& add(const std::string& level, const std::string& function, const std::string& text) {
    mText += LogEntry(level, mModule, function, text);
    return *this;
  }

  const std::string mModule;
  std::string mText;
};

inline Log EngineLog() { return Log("BrelEngine"); }

class EngineTest : public ::testing::Test {
 protected:
  EngineTest() { registry.switchLogsOn(); }
  ~EngineTest() override {
    if (leavesEngines) return;
    for (std::uint32_t handle = 0; handle < 16; ++handle) BrelFinalize(handle);
  }

  /// A new engine, up; the test fails if that fails.
  static std::uint32_t start(KEL_BroadcastCallback broadcastCallback = nullptr,
                             AlertsCallback alertsCallback = nullptr) {
    std::uint32_t handle = kNoBrelHandle;
    EXPECT_EQ(BrelInit(&handle, nullptr, 0, nullptr, broadcastCallback, alertsCallback), kStatusOk);
    return handle;
  }

  CoreProcess process;
  ScratchDirectory folder;
  RegistrySettings registry;
  LogFile engineLog{"Brel.logs"};
  bool leavesEngines = false;  ///< set where an engine can no longer be taken down
};

}  // namespace kel::test
