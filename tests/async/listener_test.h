/* SPDX-License-Identifier: MIT */
// What the tests of the async listener by itself share.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "listeners/AsyncListener.h"
#include "listeners/QueueListener.h"
#include "support/log_file.h"
#include "support/private_member.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

inline constexpr std::uint32_t kEngine = 5;

/// Stands for the engine: writes down how it is called. One thread at a time.
struct FakeEngine {
  std::vector<std::string> calls;
  std::vector<std::string> queue;    ///< what is handed out; then "empty"
  std::uint32_t retrieveResult = 0;  ///< not 0: what taking from the queue gives instead
  std::uint32_t processResult = 1;
  std::function<void()> whileProcessing = [] {};
  platform::Handle givenEvent = nullptr;  ///< the handle that came with the last taking

  std::size_t count(const std::string& call) const {
    return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
  }
};
inline FakeEngine* gFake = nullptr;

inline std::uint32_t FakeProcess(std::uint32_t engineHandle, std::uint32_t seqNum, std::uint32_t errorCode,
                                 std::uint8_t* buffer, std::uint32_t size) {
  EXPECT_EQ(engineHandle, kEngine);
  const std::string data = buffer != nullptr ? std::string(buffer, buffer + size) : "null";
  gFake->calls.push_back("process " + std::to_string(seqNum) + " " + std::to_string(errorCode) + " " + data + " " +
                         std::to_string(size));
  gFake->whileProcessing();
  return gFake->processResult;
}

inline std::uint32_t FakeRetrieve(std::uint32_t engineHandle, platform::Handle event, std::uint32_t seqNum,
                                  std::uint8_t** buffer, std::uint32_t* size) {
  EXPECT_EQ(engineHandle, kEngine);
  gFake->givenEvent = event;
  gFake->calls.push_back("take " + std::to_string(seqNum));
  if (gFake->retrieveResult != 0) return gFake->retrieveResult;
  if (gFake->queue.empty()) return kNextBufferEmpty;
  const std::string next = gFake->queue.front();
  gFake->queue.erase(gFake->queue.begin());
  // The listener's from here on.
  *buffer = static_cast<std::uint8_t*>(std::malloc(next.size()));
  *size = static_cast<std::uint32_t>(next.size());
  std::copy(next.begin(), next.end(), *buffer);
  return kNextBufferTaken;
}

inline bool FakeFree(std::uint32_t engineHandle, std::uint32_t seqNum) {
  EXPECT_EQ(engineHandle, kEngine);
  gFake->calls.push_back("free " + std::to_string(seqNum));
  return true;
}

inline void FakeSetStatus(std::uint8_t*, std::uint32_t) { ADD_FAILURE() << "nobody calls this"; }

/// A listener with log and console switched on. Its console is to be taken before the test's end.
class AsyncListenerTest : public testing::Test {
 protected:
  AsyncListenerTest();
  ~AsyncListenerTest() override;

  std::uint32_t init(std::uint32_t seqNum) {
    return listener->init(kEngine, FakeProcess, FakeRetrieve, FakeFree, FakeSetStatus, seqNum, dataEvent, stopEvent,
                          generalStopEvent, 1);
  }
  AsyncThreadArguments* arguments(std::uint32_t seqNum, bool isStream = false) {
    return new AsyncThreadArguments{seqNum, dataEvent, stopEvent, generalStopEvent, listener.get(), isStream, mInUse};
  }
  /// Waits until no thread has its arguments any more, which is the last of its work.
  void waitForThreads() const {
    while (mInUse.use_count() > 1) std::this_thread::yield();
    std::shared_ptr<void>(mInUse).reset();  // what they did is behind us for this thread too
  }
  /// Runs what a thread runs, on this one. Its exit code.
  std::uint32_t run(std::uint32_t seqNum, bool isStream = false);

  /// What was written and printed, with handles as "#".
  std::string console();
  static std::string log() { return masked(LogText("Brel_Async_Listener.logs")); }
  static std::string line(const std::string& level, const std::string& function, const std::string& text) {
    return LogEntry(level, "AsyncListener", function, text);
  }
  /// Compares both outlets with lines of the thread, each "level text".
  void expectTold(const std::vector<std::string>& lines);

  const ScratchDirectory directory;
  RegistrySettings registry;
  FakeEngine engine;
  std::unique_ptr<AsyncListener> listener;
  const platform::Handle dataEvent = platform::createEvent(false, false);
  const platform::Handle stopEvent = platform::createEvent(false, false);
  const platform::Handle generalStopEvent = platform::createEvent(true, false);

 private:
  static std::string masked(const std::string& text) {
    static const std::regex handle("Handle=( ?)(0x)?[0-9a-fA-F]+");
    return std::regex_replace(text, handle, "Handle=$1#");
  }

  const std::shared_ptr<void> mInUse = std::make_shared<int>();
};

}  // namespace kel::test
