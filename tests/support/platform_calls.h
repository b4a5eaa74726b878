// Calls of the operating system that no test can have fail from outside. A program that uses this links
// test_platform_calls, which puts its own functions in front of the platform's.
#pragma once

#include <functional>

namespace kel::test {

enum class PlatformCall { kCreateThread, kSetThreadPriority, kCloseHandle };

/// While one lives, a call fails on the thread that made it, with nothing done. One at a time.
class FailingCall {
 public:
  explicit FailingCall(PlatformCall call);
  ~FailingCall();
  FailingCall(const FailingCall&) = delete;
  FailingCall& operator=(const FailingCall&) = delete;
};

/// While one lives, `action` runs behind each event that its thread sets. One at a time.
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

}  // namespace kel::test
