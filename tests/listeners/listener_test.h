/* SPDX-License-Identifier: MIT */
// What the tests of the broadcast listener and the alerts listener share.
#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "listeners/QueueListener.h"
#include "support/log_file.h"
#include "support/private_member.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

/// Stands for the engine: notes what it is handed, and can be told to hold the listener's thread up.
class Engine {
 public:
  struct Processed {
    std::uint32_t engineHandle;
    std::string data;
    std::thread::id thread;
  };

  Engine() { sEngine = this; }
  ~Engine() { sEngine = nullptr; }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  static std::uint32_t process(std::uint32_t engineHandle, const std::uint8_t* buffer, std::uint32_t size) {
    return sEngine.load()->take({engineHandle, std::string(buffer, buffer + size), std::this_thread::get_id()});
  }

  /// From the next buffer on, the thread is held up in the engine until letGo().
  void hold() {
    const std::lock_guard lock(mMutex);
    mHolds = true;
  }
  void letGo() {
    const std::lock_guard lock(mMutex);
    mHolds = false;
    mChanged.notify_all();
  }
  /// What the engine says to each buffer. 0 ends the thread.
  void answer(std::uint32_t result) {
    const std::lock_guard lock(mMutex);
    mResult = result;
  }

  /// Waits until the thread has brought `count` buffers.
  void waitFor(std::size_t count) {
    std::unique_lock lock(mMutex);
    ASSERT_TRUE(mChanged.wait_for(lock, std::chrono::seconds(60), [&] { return mProcessed.size() >= count; }));
  }
  std::vector<Processed> processed() {
    const std::lock_guard lock(mMutex);
    return mProcessed;
  }
  std::vector<std::string> data() {
    std::vector<std::string> result;
    for (const Processed& one : processed()) result.push_back(one.data);
    return result;
  }

 private:
  std::uint32_t take(Processed one) {
    std::unique_lock lock(mMutex);
    mProcessed.push_back(std::move(one));
    mChanged.notify_all();
    mChanged.wait(lock, [&] { return !mHolds; });
    return mResult;
  }

  inline static std::atomic<Engine*> sEngine{nullptr};

  std::mutex mMutex;
  std::condition_variable mChanged;
  bool mHolds = false;
  std::uint32_t mResult = 1;
  std::vector<Processed> mProcessed;
};

struct BroadcastQueueOf {
  friend auto memberOf(BroadcastQueueOf);
};
struct AlertsQueueOf {
  friend auto memberOf(AlertsQueueOf);
};
template struct OpenMember<BroadcastQueueOf, &BroadcastListener::mQueue>;
template struct OpenMember<AlertsQueueOf, &AlertsListener::mQueue>;

template <class Listener>
struct NameOf;
template <>
struct NameOf<BroadcastListener> {
  static constexpr const char* kModule = "BroadcastListener";
  using QueueOf = BroadcastQueueOf;
  static constexpr const char* kLog = "Brel_Broadcast_Listener.logs";
};
template <>
struct NameOf<AlertsListener> {
  static constexpr const char* kModule = "AlertsListener";
  using QueueOf = AlertsQueueOf;
  static constexpr const char* kLog = "Brel_Alerts_Listener.logs";
};

/// A listener that an engine has made, with log and console switched on.
template <class Listener>
class ListenerTest : public testing::Test {
 protected:
  ListenerTest() {
    registry.switchLogsOn();
    listener = std::make_unique<Listener>();
    listener->mLogToConsole = 1;
    testing::internal::CaptureStdout();
  }
  ~ListenerTest() override {
    engine.letGo();
    platform::setEvent(generalStopEvent);
    listener->stopListen();  // in case that the test has not come so far
    listener.reset();
    if (!mConsoleTaken) testing::internal::GetCapturedStdout();
    platform::closeHandle(generalStopEvent);
  }

  ListenerResult init() { return listener->init(5, Engine::process, &dataEvent, &stopWaitEvent, generalStopEvent); }
  void start() {
    ASSERT_EQ(init(), LISTENER_INIT_OK);
    ASSERT_EQ(listener->startListen(), LISTENER_STARTED);
  }
  /// The same without the lines of the listener's thread, which may come between those that a test looks for.
  void startQuietly() {
    registry.set("Software\\Brel\\ALogger", "Info", 0);
    listener = std::make_unique<Listener>();
    listener->mLogToConsole = 1;
    start();
  }
  ListenerResult receive(const std::string& data) {
    return listener->recvData(data.data(), static_cast<std::uint32_t>(data.size()));
  }

  /// What the listener has queued and not handed on. Nobody else would free it.
  std::vector<std::string> leftInQueue() {
    std::vector<std::string> left;
    std::uint8_t* buffer = nullptr;
    std::uint32_t size = 0;
    while (((*listener).*memberOf(typename NameOf<Listener>::QueueOf{})).extract(&buffer, &size) == QUEUE_EXTRACT_OK) {
      left.emplace_back(buffer, buffer + size);
      std::free(buffer);
    }
    return left;
  }

  /// All that was printed, without the line on the thread's start, which may fall between any others.
  std::string console() {
    mConsoleTaken = true;
    const std::string printed = testing::internal::GetCapturedStdout();
    const std::string start = "Listener Thread created. Handle=";
    const std::size_t begin = printed.find(start);
    if (begin == std::string::npos) return printed;
    const std::size_t end = printed.find('\n', begin);
    handleText = printed.substr(begin + start.size(), end - begin - start.size());
    return printed.substr(0, begin) + printed.substr(end + 1);
  }

  static std::string line(const std::string& level, const std::string& function, const std::string& text) {
    return LogEntry(level, NameOf<Listener>::kModule, function, text);
  }
  std::string log() const { return LogText(NameOf<Listener>::kLog); }

  const ScratchDirectory directory;
  RegistrySettings registry;
  Engine engine;
  platform::Handle generalStopEvent = platform::createEvent(true, false);
  platform::Handle dataEvent = nullptr;
  platform::Handle stopWaitEvent = nullptr;
  std::unique_ptr<Listener> listener;
  std::string handleText;  ///< the thread's handle as console() has found it

 private:
  bool mConsoleTaken = false;
};

using Listeners = testing::Types<BroadcastListener, AlertsListener>;

class ListenerName {
 public:
  template <class Listener>
  static std::string GetName(int) {
    return NameOf<Listener>::kModule;
  }
};

}  // namespace kel::test
