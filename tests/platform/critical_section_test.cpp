// SPDX-License-Identifier: MIT
// Critical sections: exclusion, re-entry, and what their owners' comings and goings leave as it is.
#include <atomic>
#include <thread>

#include "platform/background.h"
#include "support/left_thread.h"

namespace kel::platform {
namespace {

// These tests enter and leave in ways that the compiler's analysis is there to forbid.

/// Another thread that wants to get in.
class Visitor {
 public:
  explicit Visitor(CriticalSection& section)
      : mThread([this, &section] {
          const InSection inside(section);
          setEvent(mEntered);
        }) {}

  bool getsInWithin(std::uint32_t milliseconds) { return waitForOne(mEntered, milliseconds) == kWaitObject; }

 private:
  const Owned mEntered{createEvent(true, false)};
  const Background mThread;
};

TEST(CriticalSection, ItKeepsOthersOut) {
  constexpr int kTimes = 20'000;
  CriticalSection section;
  section.init();
  int count = 0;
  {
    const auto countUp = [&] {
      for (int i = 0; i < kTimes; ++i) {
        const InSection inside(section);
        ++count;
      }
    };
    const Background first(countUp);
    const Background second(countUp);
    countUp();
  }
  EXPECT_EQ(count, 3 * kTimes);
}

TEST(CriticalSection, ItsOwnerEntersAgainAndLeavesAsOften) NO_THREAD_SAFETY_ANALYSIS {
  CriticalSection section;
  section.init();
  section.enter();
  section.enter();
  Visitor other(section);
  section.leave();
  EXPECT_FALSE(other.getsInWithin(kShort));
  section.leave();
  EXPECT_TRUE(other.getsInWithin(kLong));
}

TEST(CriticalSection, InitialisingItAgainDoesNotDisturbItsOwner) NO_THREAD_SAFETY_ANALYSIS {
  CriticalSection section;
  section.init();
  section.enter();
  section.init();
  Visitor other(section);
  EXPECT_FALSE(other.getsInWithin(kShort));
  section.leave();
  EXPECT_TRUE(other.getsInWithin(kLong));
}

TEST(CriticalSection, OneThatIsDestroyedStaysItsOwnersUntilHeLeaves) NO_THREAD_SAFETY_ANALYSIS {
  CriticalSection section;
  section.init();
  section.enter();
  Visitor early(section);
  section.destroy();
  Visitor late(section);
  EXPECT_FALSE(early.getsInWithin(kShort));
  EXPECT_FALSE(late.getsInWithin(kShort));
  section.leave();
  EXPECT_TRUE(early.getsInWithin(kLong));
  EXPECT_TRUE(late.getsInWithin(kLong));
}

TEST(CriticalSection, OneThatIsMadeAnewUnderItsOwnerHasNoSecondOne) NO_THREAD_SAFETY_ANALYSIS {
  CriticalSection section;
  section.init();
  section.enter();
  Visitor early(section);
  section.destroy();
  section.init();
  Visitor late(section);
  EXPECT_FALSE(early.getsInWithin(kShort));
  EXPECT_FALSE(late.getsInWithin(kShort));
  section.leave();
  EXPECT_TRUE(early.getsInWithin(kLong));
  EXPECT_TRUE(late.getsInWithin(kLong));
}

TEST(CriticalSection, OneThatWasNeverMadeKeepsOthersOutAllTheSame) NO_THREAD_SAFETY_ANALYSIS {
  CriticalSection section;
  section.enter();
  Visitor other(section);
  EXPECT_FALSE(other.getsInWithin(kShort));
  section.leave();
  EXPECT_TRUE(other.getsInWithin(kLong));
}

TEST(CriticalSection, LeavingItFromOutsideChangesNothing) NO_THREAD_SAFETY_ANALYSIS {
  CriticalSection section;
  section.init();
  section.leave();
  section.enter();
  Background([&]() NO_THREAD_SAFETY_ANALYSIS { section.leave(); }).join();
  Visitor other(section);
  EXPECT_FALSE(other.getsInWithin(kShort));
  section.leave();
  EXPECT_TRUE(other.getsInWithin(kLong));
}

TEST(CriticalSection, ItMayBeDestroyedTwiceAndMadeAnew) {
  CriticalSection section;
  section.init();
  section.destroy();
  section.destroy();
  section.init();
  EXPECT_TRUE(Visitor(section).getsInWithin(kLong));
  const InSection inside(section);
}

TEST(CriticalSection, ItKeepsOthersOutWhileItIsDestroyedAndMadeAnewAllTheTime) {
  constexpr int kTimes = 20'000;
  CriticalSection section;
  std::atomic<bool> done = false;
  int count = 0;
  {
    const Background maker([&] {
      while (!done) {
        section.init();
        section.destroy();
      }
    });
    {
      const auto countUp = [&] {
        for (int i = 0; i < kTimes; ++i) {
          const InSection inside(section);
          ++count;
        }
      };
      const Background first(countUp);
      const Background second(countUp);
    }
    done = true;
  }
  EXPECT_EQ(count, 2 * kTimes);
}

TEST(CriticalSection, OneLeftBehindByAThreadThatEndedStaysTaken) {
  // Both outlive the test: a thread will wait for the section until the process ends.
  static CriticalSection section;
  static const Handle entered = createEvent(true, false);
  section.init();
  std::thread([]() NO_THREAD_SAFETY_ANALYSIS { section.enter(); }).join();
  test::LeaveToItself([] {
    const InSection inside(section);
    setEvent(entered);
  });
  EXPECT_EQ(waitForOne(entered, kShort), kWaitTimeout);
}

}  // namespace
}  // namespace kel::platform
