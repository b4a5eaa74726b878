// SPDX-License-Identifier: MIT
// The start of an async listener's threads, and its lines.
#include <array>
#include <sstream>

#include "async/listener_test.h"
#include "support/platform_calls.h"

namespace kel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const char* const kCreated = " - Listener Thread created. Handle=#\n";
const char* const kRaised = " - Listener Thread's priority hightend. Handle=#\n";

class AsyncListenerStartTest : public AsyncListenerTest {
 protected:
  /// Starts a thread and waits for its end.
  void startAndStop(std::uint32_t seqNum) {
    init(seqNum);
    platform::Handle thread = nullptr;
    ASSERT_EQ(listener->startListen(&thread, arguments(seqNum)), 7u);
    platform::setEvent(stopEvent);
    ASSERT_EQ(platform::waitForOne(thread, platform::kInfinite), platform::kWaitObject);
    platform::closeHandle(thread);
  }
  /// Lines of the start on the console, where the thread's own may fall in between.
  std::string startLines() {
    std::istringstream all(console());
    std::string starts, one;
    while (std::getline(all, one)) {
      if (one.starts_with("startListen")) starts += one + "\n";
    }
    return starts;
  }
};

TEST_F(AsyncListenerStartTest, GivesOutTheThreadAndTellsIt) {
  init(3);
  platform::Handle thread = nullptr;
  EXPECT_EQ(listener->startListen(&thread, arguments(3)), 7u);
  EXPECT_EQ(platform::waitForOne(thread, 0), platform::kWaitTimeout);
  // The first start of all names the file, and so is not in it.
  EXPECT_EQ(log(), "");
  platform::setEvent(stopEvent);
  EXPECT_EQ(platform::waitForOne(thread, platform::kInfinite), platform::kWaitObject);
  EXPECT_TRUE(platform::closeHandle(thread));
  EXPECT_THAT(engine.calls, ElementsAre("free 3"));

  const std::string former = log();
  init(4);
  EXPECT_EQ(listener->startListen(&thread, arguments(4)), 7u);
  EXPECT_EQ(log(), former + line("info", "startListen", std::string(" (4)") + kCreated) +
                       line("info", "startListen", std::string(" (4)") + kRaised));
  platform::setEvent(stopEvent);
  EXPECT_EQ(platform::waitForOne(thread, platform::kInfinite), platform::kWaitObject);
  platform::closeHandle(thread);
  EXPECT_EQ(startLines(), std::string("startListen (3)") + kCreated + "startListen (3)" + kRaised + "startListen (4)" +
                              kCreated + "startListen (4)" + kRaised);
}

TEST_F(AsyncListenerStartTest, NamesTheFileAnewEachTime) {
  startAndStop(3);
  std::filesystem::create_directory("other");
  registry.set("Software\\Brel\\ALogger", "LogPath", "other");
  startAndStop(4);
  startAndStop(5);
  EXPECT_THAT(LogText("Brel_Async_Listener.logs"), testing::Not(HasSubstr("(5)")));
  EXPECT_THAT(LogText("Brel_Async_Listener.logs", "other"), HasSubstr("(5) - sequence data freed. \n"));
  console();
}

TEST_F(AsyncListenerStartTest, WithoutAThreadTheArgumentsStay) {
  startAndStop(3);
  const std::string former = log();
  init(4);
  const std::unique_ptr<AsyncThreadArguments> kept(arguments(4));
  platform::Handle thread = dataEvent;
  {
    const FailingCall noThread(PlatformCall::kCreateThread);
    EXPECT_EQ(listener->startListen(&thread, kept.get()), 6u);
  }
  EXPECT_EQ(thread, dataEvent);
  EXPECT_EQ(kept->seqNum, 4u);
  EXPECT_EQ(log(), former + line("info", "startListen", " (4) - Listener Thread creation failed.\n"));
  EXPECT_THAT(startLines(), testing::EndsWith("startListen (4) - Listener Thread creation failed.\n"));
}

TEST_F(AsyncListenerStartTest, WithoutItsPriorityTheThreadRunsOnAndIsNotGivenOut) {
  startAndStop(3);
  const std::string former = log();
  init(4);
  platform::Handle thread = dataEvent;
  {
    const FailingCall noPriority(PlatformCall::kSetThreadPriority);
    EXPECT_EQ(listener->startListen(&thread, arguments(4)), 6u);
  }
  EXPECT_EQ(thread, dataEvent);
  EXPECT_EQ(log(), former + line("info", "startListen", std::string(" (4)") + kCreated) +
                       line("info", "startListen", " (4) - Listener Thread's priority hightening failed.\n"));
  platform::setEvent(stopEvent);
  waitForThreads();
  EXPECT_EQ(engine.count("free 4"), 1u);
  EXPECT_THAT(startLines(), testing::EndsWith("startListen (4) - Listener Thread's priority change failed.\n"));
}

// The events of each thread are those of its arguments; what init() was given last is another thread's.
TEST_F(AsyncListenerStartTest, ManyThreadsShareTheObject) {
  constexpr std::uint32_t kThreads = 8;
  std::array<platform::Handle, kThreads> stops{}, threads{};
  for (std::uint32_t i = 0; i < kThreads; ++i) {
    init(i);
    stops[i] = platform::createEvent(false, false);
    auto* given = arguments(i, true);
    given->stopEvent = stops[i];
    ASSERT_EQ(listener->startListen(&threads[i], given), 7u);
  }
  for (std::uint32_t i = kThreads; i-- > 0;) {
    platform::setEvent(stops[i]);
    EXPECT_EQ(platform::waitForOne(threads[i], platform::kInfinite), platform::kWaitObject);
    EXPECT_EQ(engine.calls.back(), "free " + std::to_string(i));
  }
  for (const platform::Handle handle : stops) platform::closeHandle(handle);
  for (const platform::Handle handle : threads) platform::closeHandle(handle);
  console();
}

}  // namespace
}  // namespace kel::test
