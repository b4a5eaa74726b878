/* SPDX-License-Identifier: MIT */
// What the tests of the exports share: a client's surroundings, its connections, and the traces that it leaves.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "KELHandler.h"
#include "SluiceHubSim.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

inline constexpr const char* kDebugVal = "TASK_ID_APPLICATION_DEBUG_VAL";
inline constexpr const char* kDebugRef = "TASK_ID_APPLICATION_DEBUG_REF";
inline constexpr std::uint32_t kDebugValTui = 0x38240;
inline constexpr std::uint32_t kDebugRefTui = 0xB8241;

/// Longer than anything here takes unless something is wrong.
inline constexpr std::uint32_t kLong = 30'000;

using Values = std::array<std::uint32_t, 3>;

/// Has the device take the next `times` requests of the debug task and never answer; 0: all of them.
inline void DropDebugTasks(std::uint32_t times) {
  SluiceHubSimRule drop{};
  drop.tui = kDebugValTui;
  drop.tuiMask = SLUICEHUBSIM_EXACT;
  drop.times = times;
  drop.flags = SLUICEHUBSIM_DROP;
  SluiceHubSim_AddRule(&drop);
}

/// Has all answers come before their requests' sends return, so that everything happens in one order.
inline void AnswerBeforeSendReturns() {
  SluiceHubSimRule early{};
  early.flags = SLUICEHUBSIM_BEFORE_REPLY;
  SluiceHubSim_AddRule(&early);
}

inline std::vector<std::uint64_t> OpenConnections() {
  std::vector<std::uint64_t> values(16);
  values.resize(SluiceHubSim_GetConnections(values.data(), 16));
  return values;
}

inline std::uint64_t Requests() {
  SluiceHubSimCounts counts;
  SluiceHubSim_GetCounts(&counts);
  return counts.requests;
}

/// One synchronous task and all that came of it.
struct Answer {
  std::uint32_t result = 0xFFFFFFFF;
  bool hasPayload = false;
  std::string payload;
};

inline Answer Send(std::uint64_t conn, const char* task, const void* input, std::uint32_t inputSize) {
  void* payload = &payload;
  std::uint32_t size = 0xFFFFFFFF;
  Answer answer;
  answer.result = KEL_SendReceiveKEL(conn, task, 1, input, inputSize, &payload, &size, nullptr);
  if (payload == &payload) return answer;
  answer.hasPayload = payload != nullptr;
  if (answer.hasPayload) answer.payload.assign(static_cast<const char*>(payload), size);
  std::free(payload);
  return answer;
}

inline Answer SendValues(std::uint64_t conn, const Values& values) {
  return Send(conn, kDebugVal, values.data(), sizeof values);
}

/// The bytes of three values, as a VAL payload has them.
inline std::string Bytes(const Values& values) {
  return std::string(reinterpret_cast<const char*>(values.data()), sizeof values);
}

/// A trace call of the exported layer.
struct Trace {
  std::uint32_t level;
  std::string function;
  std::string text;

  bool operator==(const Trace&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const Trace& trace) {
    return out << trace.level << " " << trace.function << ": " << trace.text;
  }
};

inline std::string Narrow(const wchar_t* text) {
  std::string narrow;
  for (; *text != 0; ++text) narrow += static_cast<char>(*text);
  return narrow;
}

/// The traces since the last call, with what is the same in all of them checked and left out.
inline std::vector<Trace> TakeTraces() {
  std::vector<Trace> traces;
  SluiceHubSimTrace trace;
  for (std::uint32_t i = 0; SluiceHubSim_GetTrace(i, &trace) != 0; ++i) {
    EXPECT_EQ(trace.sourceMask, 0x200000u);
    EXPECT_EQ(Narrow(trace.file), ".\\KELHandler");
    EXPECT_NE(trace.line, 0u);
    traces.push_back({trace.level, Narrow(trace.function), Narrow(trace.text)});
  }
  SluiceHubSim_ClearTraces();
  return traces;
}

/// A connection as a trace shows it: the low half, in hexadecimal digits.
inline std::string Hex(std::uint64_t conn) {
  char text[9];
  std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(conn));
  return text;
}

class ClientTest : public ::testing::Test {
 protected:
  ~ClientTest() override {
    for (const std::uint64_t conn : OpenConnections()) KEL_Disconnect(conn);
  }

  /// A new connection; 0 if that failed.
  static std::uint64_t connect(KEL_BroadcastCallback broadcastCallback = nullptr) {
    std::uint64_t conn = 0;
    EXPECT_EQ(KEL_Connect(nullptr, broadcastCallback, &conn), KEL_OK);
    EXPECT_NE(conn, 0u);
    return conn;
  }

  ScratchDirectory folder;
  RegistrySettings registry;
};

}  // namespace kel::test
