/* SPDX-License-Identifier: MIT */
// What the tests of the adapter share.
#pragma once

#include <gmock/gmock.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "SluiceHubSim.h"
#include "adapter/DorvInstances.h"
#include "adapter/L5Records.h"
#include "support/core_process.h"
#include "support/log_file.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

using Bytes = std::vector<std::uint8_t>;

/// Bytes put together from integers, each in its own width, low byte first.
class Wire {
 public:
  template <class Number>
  Wire& put(Number number) {
    for (std::size_t i = 0; i < sizeof number; ++i) mBytes.push_back(static_cast<std::uint8_t>(number >> 8 * i));
    return *this;
  }
  Wire& u8(std::uint8_t number) { return put(number); }
  Wire& u16(std::uint16_t number) { return put(number); }
  Wire& u32(std::uint32_t number) { return put(number); }
  Wire& bytes(const Bytes& more) {
    mBytes.insert(mBytes.end(), more.begin(), more.end());
    return *this;
  }
  operator Bytes() const { return mBytes; }

 private:
  Bytes mBytes;
};

/// So many bytes, each other than its neighbours.
inline Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
  return bytes;
}

/// Stands for the engine: notes what the adapter hands up. Kept for the life of the process, since a connection that a
/// test has left open may still deliver.
class Engine {
 public:
  struct Record {
    std::uint32_t handle;
    Bytes bytes;
  };
  struct Alert {
    std::uint32_t handle;
    std::uint32_t errorCode;
    bool operator==(const Alert&) const = default;
  };

  static std::uint32_t onRecord(std::uint32_t handle, const std::uint8_t* record, std::uint32_t size) {
    const std::lock_guard lock(sMutex);
    sRecords.push_back({handle, Bytes(record, record + size)});
    return 0;  // dropped by the adapter
  }
  static std::uint32_t onAlert(std::uint32_t handle, std::uint32_t errorCode) {
    const std::lock_guard lock(sMutex);
    sAlerts.push_back({handle, errorCode});
    return 0;
  }
  static std::vector<Record> records() {
    const std::lock_guard lock(sMutex);
    return sRecords;
  }
  static std::vector<Alert> alerts() {
    const std::lock_guard lock(sMutex);
    return sAlerts;
  }

 private:
  inline static std::mutex& sMutex = *new std::mutex;
  inline static std::vector<Record>& sRecords = *new std::vector<Record>;
  inline static std::vector<Alert>& sAlerts = *new std::vector<Alert>;
};

/// Lines of the adapter's log.
inline std::string Line(const char* level, const std::string& function, const std::string& text) {
  return LogEntry(level, "DorvL5", function, text);
}
inline std::string Info(const std::string& function, const std::string& text) { return Line("info", function, text); }
inline std::string Error(const std::string& function, const std::string& text) { return Line("error", function, text); }
/// The same about a row.
inline std::string RowInfo(std::uint32_t handle, const std::string& function, const std::string& text) {
  return Info(function, "(" + std::to_string(handle) + ") - " + text);
}
inline std::string RowError(std::uint32_t handle, const std::string& function, const std::string& text) {
  return Error(function, "(" + std::to_string(handle) + ") - " + text);
}

/// The adapter on top of the stand-in, with its log switched on.
class Adapter : public testing::Test {
 protected:
  Adapter() { registry.switchLogsOn(); }

  static std::uint32_t initRow() { return Dorv_Init(Engine::onRecord, Engine::onAlert); }
  /// A connected row whose socket ID is a letter, which the log can show.
  std::uint32_t connectRow(std::uint8_t socketID = 'A') {
    const SluiceHubSimSocketReply reply = {0, 1001, 1, socketID, 0};
    SluiceHubSim_SetSocketReply(&reply);
    const std::uint32_t handle = initRow();
    EXPECT_EQ(Dorv_Connect(handle, "127.0.0.1", 1234), DORV_OK);
    log.fresh();
    return handle;
  }

  static const DorvInstance& row(std::uint32_t handle) { return gDorvInstances[handle]; }

  /// The last message that reached an agent.
  static SluiceHubSimRequest lastRequest(Bytes* body = nullptr) {
    SluiceHubSimRequest request = {};
    if (SluiceHubSim_GetRequest(SLUICEHUBSIM_LAST, &request, nullptr, 0) == 0 || body == nullptr) return request;
    body->resize(request.size);
    SluiceHubSim_GetRequest(SLUICEHUBSIM_LAST, &request, body->data(), request.size);
    return request;
  }
  static std::uint64_t messagesSent() {
    SluiceHubSimCounts counts;
    SluiceHubSim_GetCounts(&counts);
    return counts.messages;
  }

  const CoreProcess process;
  const ScratchDirectory directory;
  RegistrySettings registry;
  LogFile log{"DorvL5.logs"};
};

}  // namespace kel::test
