// SPDX-License-Identifier: MIT
// Threads whose wait for an answer is over before their client has filed them.
#include <future>

#include "async/async_test.h"
#include "support/platform_calls.h"

namespace kel::test {
namespace {

using ::testing::IsEmpty;

class ShortWaitTest : public AsyncTest {
 protected:
  ShortWaitTest() {
    for (const char* level : {"Info", "Warn", "Err"}) registry.set(kLoggerRegistryKey, level, 0);
    folder.writeSettings("RxWaitTimeout=0\n");
  }
  void SetUp() override { startEngine(); }

  /// That no thread has left the connection locked.
  void expectToEnd() {
    waitForThreads();
    EXPECT_EQ(inside().threads(), 0);
    engine.reset();
    auto finalized = std::async(std::launch::async, [this] { return BrelFinalize(handle); });
    ASSERT_EQ(finalized.wait_for(std::chrono::milliseconds(kLong)), std::future_status::ready);
    EXPECT_EQ(finalized.get(), kStatusOk);
  }
};

TEST_F(ShortWaitTest, EachTaskIsToldThatNoAnswerCame) {
  constexpr std::size_t kTasks = 300;
  for (std::size_t i = 1; i <= kTasks; ++i) {
    ASSERT_EQ(InvokeAsync(handle, kDebugRef, OnTask).status, kStatusOk);
    const auto calls = gCalls.waitFor(i);
    ASSERT_EQ(calls.size(), i);
    EXPECT_EQ(calls.back().errorCode, kErrorCodeTimeout);
  }
  expectToEnd();
}

TEST_F(ShortWaitTest, AThreadThatIsGivenUpAtItsStartDeliversNothing) {
  if (HandleValuesComeAgain()) GTEST_SKIP() << "a closed handle's value is the next object's on this system";
  for (int i = 0; i < 100; ++i) {
    const FailingCall noPriority(PlatformCall::kSetThreadPriority);
    EXPECT_EQ(InvokeAsync(handle, kDebugRef, OnTask).status, kStatusFailed);
  }
  expectToEnd();
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
}

TEST_F(ShortWaitTest, AThreadThatCannotBeFiledDeliversNothing) {
  constexpr std::uint32_t kNotOpen = 40;
  const platform::Handle dataEvent = platform::createEvent(false, false);
  const platform::Handle stopEvent = platform::createEvent(false, false);
  for (int i = 0; i < 100; ++i) EXPECT_FALSE(inside().generate(kNotOpen, dataEvent, stopEvent, false));
  expectToEnd();
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
  for (const platform::Handle event : {dataEvent, stopEvent}) platform::closeHandle(event);
}

}  // namespace
}  // namespace kel::test
