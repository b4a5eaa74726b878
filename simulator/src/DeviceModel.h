/* SPDX-License-Identifier: MIT */
// The device behind the stand-in: what it makes of each task of the built-in table. Guarded by the hub's lock.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kel::sim {

/// A task request as it arrived.
struct KelRequest {
  std::uint32_t TUI = 0;  ///< without sequence byte
  std::uint32_t seqTUI = 0;
  bool responseExpected = false;
  std::span<const std::uint8_t> payload;
};

/// What the device answers. One object serves request after request, so that its payload keeps its memory.
struct Answer {
  enum class Follow { kNothing, kStream, kBroadcasts };

  std::uint32_t type = 0;
  std::vector<std::uint8_t> payload;
  Follow follow = Follow::kNothing;
  std::uint32_t count = 0;
  std::uint32_t intervalMs = 0;
  bool losesLink = false;          ///< the response is the last that comes over this link
  std::uint32_t endStreamsOf = 0;  ///< TUI of the task whose streams this one ends, or 0
};

class DeviceModel {
 public:
  /// Acts on a request. False if the device does not know the task; `answer` is then as for an echo.
  bool Act(const KelRequest& request, Answer& answer);
  void Reset();

  static constexpr std::size_t kTaskCount = 50;

 private:
  void AnswerPath(Answer& answer) const;
  void SetPath(const KelRequest& request, Answer& answer);
  void SetSeverities(const KelRequest& request, Answer& answer);

  std::string mTracePath = kFirstTracePath;
  std::array<std::uint8_t, 256> mSeverities{};
  std::array<std::uint32_t, 1 + kTaskCount> mStatistics{};  ///< requests in all, then of each task

  static constexpr const char* kFirstTracePath = "BrelTrace.log";
};

}  // namespace kel::sim
