/* SPDX-License-Identifier: MIT */
// Calls of the operating system that no test can have fail from outside, and the times that they are given. A program
// that uses this links test_platform_calls, which puts its own functions in front of the platform's.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace kel::test {

enum class PlatformCall {
  kCreateThread,
  kSetThreadPriority,
  kCloseHandle,
  kSetEvent,
  kWaitForOne,
  kWaitForOneInTime,  ///< the failure is a time-out
  kReleaseMutex,
};

/// While one lives, a call fails on the thread that made it, with nothing done, once `after` such calls were let
/// through. One at a time.
class FailingCall {
 public:
  explicit FailingCall(PlatformCall call, std::uint32_t after = 0);
  ~FailingCall();
  FailingCall(const FailingCall&) = delete;
  FailingCall& operator=(const FailingCall&) = delete;
};

/// While one lives, `action` runs behind each event that its thread sets, those that it sets itself left out. One at a
/// time.
class AfterSetEvent {
 public:
  explicit AfterSetEvent(std::function<void()> action);
  ~AfterSetEvent();
  AfterSetEvent(const AfterSetEvent&) = delete;
  AfterSetEvent& operator=(const AfterSetEvent&) = delete;

 private:
  const std::function<void()> mAction;
};

/// `action` runs behind the first mutex that its thread gives back while one lives. One at a time.
class AfterReleaseMutex {
 public:
  explicit AfterReleaseMutex(std::function<void()> action);
  ~AfterReleaseMutex();
  AfterReleaseMutex(const AfterReleaseMutex&) = delete;
  AfterReleaseMutex& operator=(const AfterReleaseMutex&) = delete;

 private:
  const std::function<void()> mAction;
};

/// Notes the limits of its thread's waits and the lengths of its sleeps, in milliseconds, while it lives. One at a
/// time.
class NotedTimes {
 public:
  NotedTimes();
  ~NotedTimes();
  NotedTimes(const NotedTimes&) = delete;
  NotedTimes& operator=(const NotedTimes&) = delete;

  std::vector<std::uint32_t> waits;        ///< of waitForOne()
  std::vector<std::uint32_t> waitsForAny;  ///< of waitForAny()
  std::vector<std::uint32_t> sleeps;       ///< of sleepFor()
};

/// How often the whole process has called for a library so far.
struct LibraryCalls {
  std::uint32_t loads = 0;
  std::uint32_t frees = 0;

  bool operator==(const LibraryCalls&) const = default;
};
LibraryCalls CountedLibraryCalls();

}  // namespace kel::test
