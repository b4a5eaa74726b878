// Critical sections: existence, re-entry, exclusion.
#include <thread>

#include "platform/background.h"

namespace kel::platform {
namespace {

// These tests enter and leave in ways that the compiler's analysis is there to forbid.

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
  const Owned entered(createEvent(false, false));
  section.enter();
  section.enter();
  Background other([&] {
    const InSection inside(section);
    setEvent(entered);
  });
  section.leave();
  EXPECT_EQ(waitForOne(entered, kShort), kWaitTimeout);
  section.leave();
  EXPECT_EQ(waitForOne(entered, kLong), kWaitObject);
  other.join();
}

TEST(CriticalSection, InitialisingItAgainDoesNotDisturbItsOwner) NO_THREAD_SAFETY_ANALYSIS {
  CriticalSection section;
  section.init();
  section.enter();
  section.init();
  const Owned entered(createEvent(false, false));
  Background other([&] {
    const InSection inside(section);
    setEvent(entered);
  });
  EXPECT_EQ(waitForOne(entered, kShort), kWaitTimeout);
  section.leave();
  EXPECT_EQ(waitForOne(entered, kLong), kWaitObject);
  other.join();
}

TEST(CriticalSection, OneThatDoesNotExistStopsNobody) NO_THREAD_SAFETY_ANALYSIS {
  CriticalSection section;
  section.destroy();
  section.enter();
  Background([&] { const InSection inside(section); }).join();
  section.leave();
}

TEST(CriticalSection, ItMayBeDestroyedTwiceAndMadeAnew) {
  CriticalSection section;
  section.init();
  section.destroy();
  section.destroy();
  section.init();
  Background([&] { const InSection inside(section); }).join();
  const InSection inside(section);
}

TEST(CriticalSection, OneLeftBehindByAThreadThatEndedStaysTaken) {
  // Both outlive the test: a thread will wait for the section until the process ends.
  static CriticalSection section;
  static const Handle entered = createEvent(true, false);
  section.init();
  std::thread([]() NO_THREAD_SAFETY_ANALYSIS { section.enter(); }).join();
  std::thread([] {
    const InSection inside(section);
    setEvent(entered);
  }).detach();
  EXPECT_EQ(waitForOne(entered, kShort), kWaitTimeout);
}

}  // namespace
}  // namespace kel::platform
