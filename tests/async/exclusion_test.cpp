// SPDX-License-Identifier: MIT
// The callbacks of one engine exclude one another, whatever they are called for.
#include "async/async_test.h"

namespace kel::test {
namespace {

/// Counts the callbacks that are running. Each stays a while for another one to join it.
class Room {
 public:
  void stay() {
    std::unique_lock lock(mMutex);
    mMost = std::max(mMost, ++mInside);
    mChanged.notify_all();
    mChanged.wait_for(lock, std::chrono::milliseconds(100), [this] { return mInside > 1; });
    --mInside;
    ++mGone;
    mChanged.notify_all();
  }
  /// The most that were inside at once, when `count` have been there.
  std::uint32_t mostOf(std::uint32_t count) {
    std::unique_lock lock(mMutex);
    EXPECT_TRUE(mChanged.wait_for(lock, std::chrono::milliseconds(kLong), [&] { return mGone == count; }));
    return mMost;
  }

 private:
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::uint32_t mInside = 0;
  std::uint32_t mMost = 0;
  std::uint32_t mGone = 0;
};
Room gRoom;

void OnBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
  gRoom.stay();
}
void OnAlert(Status) { gRoom.stay(); }

class ExclusionTest : public AsyncTest {
 protected:
  void SetUp() override {
    startEngine(OnBroadcast, OnAlert);
    gDuringCall = [](const Call&) { gRoom.stay(); };
  }
  /// Opens a sequence and has its answer come.
  void answerATask() {
    EXPECT_TRUE(Deliver(handle, kDebugRefTui, InvokeAsync(handle, kDebugRef, OnTask).seqNum, "answer"));
  }
  void broadcast() { SluiceHubSim_Broadcast(0, kDebugValTui, 1, nullptr, 0, 1); }
  void alert() { EXPECT_EQ(BrelEngineAlertsCallback(BrelGetDorvHandle(handle), 3), 1u); }
  void TearDown() override { waitForThreads(); }
};

TEST_F(ExclusionTest, AnAnswerAndAnAnswerOfAnotherTask) {
  answerATask();
  answerATask();
  EXPECT_EQ(gRoom.mostOf(2), 1u);
}

TEST_F(ExclusionTest, AnAnswerAndABroadcast) {
  answerATask();
  broadcast();
  EXPECT_EQ(gRoom.mostOf(2), 1u);
}

TEST_F(ExclusionTest, AnAnswerAndAnAlert) {
  answerATask();
  alert();
  EXPECT_EQ(gRoom.mostOf(2), 1u);
}

TEST_F(ExclusionTest, ABroadcastAndAnAlert) {
  broadcast();
  alert();
  EXPECT_EQ(gRoom.mostOf(2), 1u);
}

}  // namespace
}  // namespace kel::test
