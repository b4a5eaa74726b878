// SPDX-License-Identifier: MIT
// What a peer can do to a connection for good. A thread that finds an answer that it cannot handle keeps its engine's
// lock for deliveries, and a sequence that is freed under its thread leaves that thread counted: closing such a
// connection never returns. Here the others work on, and the client ends with it open.
#include "hostile/hostile_client.h"

namespace kel::test {
namespace {

constexpr std::uint32_t kLost = 0;
constexpr std::uint32_t kOther = 1;

class KeptLockTest : public HostileTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(Connect(kLost), KEL_OK);
    ASSERT_EQ(Connect(kOther), KEL_OK);
  }

  /// The other connection takes tasks of every kind, gets its broadcasts and can be closed, and new ones as well.
  void TearDown() override {
    EXPECT_EQ(Hostile_Quiet(kLong), 0u);
    EXPECT_TRUE(Returns([] {
      for (int round = 0; round < 3; ++round) {
        behave({.before = "A"});
        EXPECT_EQ(Ask(kOther), KEL_OK);
        const std::uint32_t calls = gClients[kOther].calls;
        EXPECT_EQ(AskAsync(kOther), KEL_OK);
        while (gClients[kOther].calls == calls) std::this_thread::yield();
        behave({.before = "AE"});
        EXPECT_EQ(AskAsync(kOther, OnStream), KEL_OK);
        EXPECT_EQ(Disconnect(kOther), KEL_OK);
        EXPECT_EQ(Connect(kOther), KEL_OK);
      }
      EXPECT_EQ(Disconnect(kOther), KEL_OK);
    })) << "a call of the other connection did not return";
    EXPECT_EQ(gClients[kOther].lateCalls, 0u);
  }
};

TEST_F(KeptLockTest, AMessageOfAStreamForATaskThatIsNone) {
  behave({.before = "M"});
  EXPECT_EQ(AskAsync(kLost), KEL_OK);
}

TEST_F(KeptLockTest, TheEndOfAStreamForATaskThatIsNone) {
  behave({.before = "E"});
  EXPECT_EQ(AskAsync(kLost), KEL_OK);
}

TEST_F(KeptLockTest, AnAnswerWhoseClassHasNoMeaning) {
  behave({.before = "U"});
  EXPECT_EQ(AskAsync(kLost), KEL_OK);
}

TEST_F(KeptLockTest, AMessageOfAStreamWhoseClassHasNoMeaning) {
  behave({.before = "AU"});
  EXPECT_EQ(AskAsync(kLost, OnStream), KEL_OK);
}

// Both sides give the thread up, and the one that comes second finds nothing to give up.
TEST_F(KeptLockTest, ATaskThatIsAnsweredAndThenRefused) {
  behave({.before = "A", .refuses = HOSTILE_REFUSES_EXPECTANT});
  for (int i = 0; i < 50; ++i) EXPECT_EQ(AskAsync(kLost), KEL_E_ASYNC_TASK);
}

// A refused task that expects no answer frees the number that its client's variable holds, here under the thread of a
// stream that is at work. Where the thread is at that moment says whether its connection is lost; then there is a new
// one.
TEST_F(KeptLockTest, ARefusedTaskThatFreesTheNumberOfAStreamAtWork) {
  constexpr std::uint32_t kMostLost = 12;
  Hostile_Pour(6, kSeed);
  std::uint32_t lost = 0;
  for (Rounds rounds(500, std::chrono::seconds(3)); lost < kMostLost && rounds.next();) {
    behave({.before = "A", .pouring = "MMMO"});
    std::uint32_t number = 0;
    const std::uint32_t calls = gClients[kLost].calls;
    ASSERT_EQ(AskAsync(kLost, OnStream, true, &number), KEL_OK);
    Rounds looks(~0u, std::chrono::milliseconds(200));
    while (gClients[kLost].calls < calls + 10 && looks.next()) std::this_thread::yield();
    behave({.pouring = "MMMO", .refuses = HOSTILE_REFUSES_OTHERS});
    ASSERT_EQ(AskAsync(kLost, nullptr, false, &number), KEL_E_ASYNC_TASK);
    if (gClients[kLost].calls >= calls + 10) continue;
    ++lost;
    ASSERT_EQ(Connect(kLost), KEL_OK);
  }
}

// The same for a task that is waited for, which has no variable: it frees number 0.
TEST_F(KeptLockTest, ARefusedTaskThatFreesNumber0OfAStreamAtWork) {
  behave({.before = "A", .pouring = "M"});
  Hostile_Pour(2, kSeed);
  ASSERT_EQ(AskAsync(kLost, OnStream), KEL_OK);
  EXPECT_TRUE(Returns([] {
    while (gClients[kLost].calls < 20) std::this_thread::yield();
  }));
  behave({.pouring = "M", .refuses = HOSTILE_REFUSES_OTHERS});
  EXPECT_EQ(Ask(kLost, false), KEL_E_TASK);
}

}  // namespace
}  // namespace kel::test
