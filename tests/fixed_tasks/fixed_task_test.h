/* SPDX-License-Identifier: MIT */
// What the tests of the fixed tasks share: the six operations side by side, and what each says.
#pragma once

#include <ostream>

#include "engine/engine_test.h"
#include "support/private_member.h"
#include "support/transcript.h"

namespace kel::test {

/// One call of an operation and all that came of it.
struct Outcome {
  Status status = 4711;
  bool written = false;  ///< the outputs were
  std::string data;
  std::uint32_t size = 4711;
};

/// An operation as the tests see it, with the arguments that they call it with.
struct Operation {
  const char* name;
  const char* taskName;
  std::uint32_t TUI;
  bool reads;  ///< its answer is REF and goes to its outputs; of the others' VAL, the first value is the result
  std::string request;  ///< payload
  Outcome (*call)(std::uint32_t handle);
};

inline void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

inline constexpr const char* kPath = "traces/today.log";

/// 256 bytes, no two alike.
inline std::string Severities() {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(255 - i);
  return bytes;
}

inline Outcome CallGetTraceFilePath(std::uint32_t handle) {
  char unset[] = "unset";
  char* path = unset;
  Outcome outcome;
  outcome.status = BrelGetTraceFilePath(handle, &path);
  outcome.written = path != unset;
  if (outcome.written) {
    outcome.data = path;
    std::free(path);
  }
  return outcome;
}

inline Outcome CallReader(std::uint32_t handle, Status (*reader)(std::uint32_t, std::uint8_t**, std::uint32_t*)) {
  std::uint8_t unset = 0;
  std::uint8_t* block = &unset;
  Outcome outcome;
  outcome.status = reader(handle, &block, &outcome.size);
  outcome.written = block != &unset;
  if (outcome.written) {
    outcome.data.assign(reinterpret_cast<const char*>(block), outcome.size);
    std::free(block);
  }
  return outcome;
}

inline Outcome StatusAlone(Status status) {
  Outcome outcome;
  outcome.status = status;
  return outcome;
}

inline const Operation kOperations[] = {
    {"GetTraceFilePath", "TASK_ID_TRACE_UTIL_PATH_GET", 0x160C0, true, std::string(12, '\0'), CallGetTraceFilePath},
    {"SetTraceFilePath", "TASK_ID_TRACE_UTIL_PATH_SET", 0x960C1, false, std::string(kPath) + '\0',
     [](std::uint32_t handle) { return StatusAlone(BrelSetTraceFilePath(handle, kPath)); }},
    {"GetTraceSeverityMultiple", "TASK_ID_TRACE_UTIL_SEVERITY_MULTIPLE_GET", 0x181A0, true, std::string(12, '\0'),
     [](std::uint32_t handle) { return CallReader(handle, BrelGetTraceSeverityMultiple); }},
    {"SetTraceSeverityMultiple", "TASK_ID_TRACE_UTIL_SEVERITY_MULTIPLE_SET", 0x981A1, false, Severities(),
     [](std::uint32_t handle) {
       const std::string bytes = Severities();
       return StatusAlone(BrelSetTraceSeverityMultiple(handle, reinterpret_cast<const std::uint8_t*>(bytes.data())));
     }},
    {"GetAllStatistics", "TASK_ID_STAT_VIEWER_GET_COMMAND", 0x18140, true, std::string(12, '\0'),
     [](std::uint32_t handle) { return CallReader(handle, BrelGetAllStatistics); }},
    {"ResetStatisticsBuffer", "TASK_ID_STAT_VIEWER_RESET_COMMAND", 0x18141, false, std::string(12, '\0'),
     [](std::uint32_t handle) { return StatusAlone(BrelResetStatisticsBuffer(handle)); }},
};

inline bool IsGetTraceFilePath(const Operation& operation) { return operation.call == CallGetTraceFilePath; }
inline bool IsSetTraceFilePath(const Operation& operation) { return operation.TUI == 0x960C1; }

/// Names a test after its operation.
inline std::string OperationName(const ::testing::TestParamInfo<Operation>& info) { return info.param.name; }

class FixedTaskTest : public EngineTest {
 protected:
  /// An engine that prints what it says, waits for `rxWaitTimeout` at most, and has its answers before its sends
  /// return.
  std::uint32_t startTold(std::uint32_t rxWaitTimeout = kLong) {
    folder.writeSettings("LogToConsole=1\nRxWaitTimeout=" + std::to_string(rxWaitTimeout) + "\n");
    std::uint32_t handle = kNoBrelHandle;
    recorder.of([&] { handle = start(); });
    return handle;
  }

  /// Has the device answer a task with this, before the send returns.
  static void answerWith(std::uint32_t TUI, std::uint32_t type, const std::string& payload) {
    SluiceHubSimRule rule = RuleFor(TUI, SLUICEHUBSIM_TYPE | SLUICEHUBSIM_DATA | SLUICEHUBSIM_BEFORE_REPLY);
    rule.type = type;
    rule.data = payload.data();
    rule.dataSize = static_cast<std::uint32_t>(payload.size());
    AddRule(rule);
  }

  /// Has the device answer as it does by itself, but before the send returns.
  static void answerAtOnce() { AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY)); }

  /// What an operation says before it has its sequence. GetTraceFilePath looks its task up first; the others print
  /// before they know it.
  static Transcript begun(const Operation& operation) {
    const std::uint32_t printed = IsGetTraceFilePath(operation) ? operation.TUI : 0;
    return Transcript().printed("\nTUI = " + std::to_string(printed) + "\n");
  }
  /// The same up to the send.
  static Transcript opened(const Operation& operation, std::uint32_t seqNum = 0) {
    return begun(operation).assigned(seqNum);
  }
  /// The same up to the wait.
  static Transcript unanswered(const Operation& operation) {
    return toldPath(opened(operation).sent(operation.name), operation);
  }
  /// The same up to the judgement of the answer.
  static Transcript answered(const Operation& operation) {
    return toldPath(opened(operation).sentAndAnswered(operation.name, 0), operation).answerTaken(operation.name, 0);
  }
  /// The whole of a success.
  static Transcript succeeded(const Operation& operation, const std::string& answer) {
    Transcript transcript = answered(operation).info(operation.name, "response received from Dorv \n");
    if (IsGetTraceFilePath(operation)) {
      transcript.info(operation.name, "filePath received from driver is: " + answer + " \n");
    }
    return transcript;
  }

  Recorder recorder;

 private:
  static Transcript toldPath(Transcript transcript, const Operation& operation) {
    if (IsSetTraceFilePath(operation)) {
      transcript.info(operation.name, std::string("filePath sent to driver is: ") + kPath + " \n");
    }
    return transcript;
  }
};

/// A test of all six.
class EachFixedTask : public FixedTaskTest, public ::testing::WithParamInterface<Operation> {};

}  // namespace kel::test
