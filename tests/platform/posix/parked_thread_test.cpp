// SPDX-License-Identifier: MIT
// Threads of the system's that serve one thread of the library's after the other.
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>

#include "platform/background.h"

// Asked by ThreadSanitizer, which else ends a copy of the process that starts a thread.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "die_after_fork=0"; }

namespace kel::platform {
namespace {

using testing::Contains;
using testing::Not;

/// The thread of the system's that the work runs on.
pid_t runsOn(const std::function<void()>& work) {
  pid_t thread = 0;
  Background([&] {
    thread = gettid();
    work();
  }).join();
  return thread;
}

pid_t runsOn() {
  return runsOn([] {});
}

/// Runs so many threads at once, and tells on which of the system's.
std::vector<pid_t> runTogether(std::size_t count) {
  std::vector<pid_t> systems(count);
  const Owned stay(createEvent(true, false));
  std::vector<std::unique_ptr<Background>> threads;
  for (pid_t& thread : systems) {
    threads.push_back(std::make_unique<Background>([&] {
      thread = gettid();
      waitForOne(stay, kLong);
    }));
  }
  setEvent(stay);
  threads.clear();
  return systems;
}

/// Whether all of these are gone in the end. One that ends is signalled some time before the system has lost it.
bool end(const std::vector<pid_t>& threads) {
  const auto lives = [](pid_t thread) { return tgkill(getpid(), thread, 0) == 0; };
  for (int look = 0; std::ranges::any_of(threads, lives) && look < 1000; ++look) sleepFor(10);
  return std::ranges::none_of(threads, lives);
}

TEST(ParkedThread, ServesTheNextOne) {
  const pid_t first = runsOn();
  EXPECT_EQ(runsOn(), first);
}

TEST(ParkedThread, IsAnotherThreadToAMutex) {
  const Owned mutex(createMutex(false));
  const pid_t first = runsOn([&] { EXPECT_EQ(waitForOne(mutex, 0), kWaitObject); });
  const pid_t second = runsOn([&] {
    EXPECT_FALSE(releaseMutex(mutex));
    EXPECT_EQ(waitForOne(mutex, 0), kWaitAbandoned);
    EXPECT_TRUE(releaseMutex(mutex));
  });
  EXPECT_EQ(first, second);
}

TEST(ParkedThread, IsAnotherThreadToACriticalSection) {
  // All outlive the test: a thread will wait for the section until the process ends.
  static CriticalSection section;
  static const Handle entered = createEvent(true, false);
  static std::atomic<pid_t> second = 0;
  const pid_t first = runsOn([]() NO_THREAD_SAFETY_ANALYSIS { section.enter(); });
  std::uint32_t id = 0;
  const ThreadFunction enter = [](void*) -> std::uint32_t {
    second = gettid();
    const InSection inside(section);
    setEvent(entered);
    return 0;
  };
  EXPECT_TRUE(closeHandle(createThread(enter, nullptr, &id)));
  EXPECT_EQ(waitForOne(entered, kShort), kWaitTimeout);
  EXPECT_EQ(second, first);
}

TEST(ParkedThread, HasItsSignalsAndItsNamePutBack) {
  char name[16] = {};
  sigset_t signals;
  const auto look = [&] {
    pthread_getname_np(pthread_self(), name, sizeof name);
    pthread_sigmask(SIG_SETMASK, nullptr, &signals);
  };
  const pid_t first = runsOn([&] {
    look();
    pthread_setname_np(pthread_self(), "changed");
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
  });
  const std::string nameBefore = name;
  const sigset_t signalsBefore = signals;
  EXPECT_EQ(runsOn(look), first);
  EXPECT_EQ(name, nameBefore);
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    EXPECT_EQ(sigismember(&signals, signal), sigismember(&signalsBefore, signal)) << signal;
  }
}

TEST(ParkedThread, IsNoneThatWasEndedByTheSystemsOwnCall) {
  const pid_t thread = runsOn([] { pthread_exit(nullptr); });
  EXPECT_NE(runsOn(), thread);
  EXPECT_TRUE(end({thread}));
}

TEST(ParkedThread, ThereAreNoMoreThanTheBound) {
  constexpr int kMost = 256;
  const std::vector<pid_t> first = runTogether(kMost + 20);
  const std::vector<pid_t> second = runTogether(kMost + 20);
  const auto servedBefore = [&](pid_t thread) { return std::ranges::count(first, thread) != 0; };
  EXPECT_LE(std::ranges::count_if(second, servedBefore), kMost);
}

TEST(ParkedThread, EndsWhenItIsReleased) {
  const std::vector<pid_t> threads = runTogether(10);
  releaseThreads();
  EXPECT_THAT(threads, Not(Contains(runsOn())));
  EXPECT_TRUE(end(threads));
}

TEST(ParkedThread, IsNoneThatEndsAfterTheRelease) {
  const pid_t thread = runsOn([] { releaseThreads(); });
  const pid_t next = runsOn();
  EXPECT_NE(next, thread);
  EXPECT_TRUE(end({thread}));
  EXPECT_EQ(runsOn(), next);
}

TEST(ParkedThread, EndsWhenThereIsNoWorkForIt) { EXPECT_TRUE(end(runTogether(10))); }

TEST(ParkedThread, DoesNotServeACopyOfTheProcess) {
  constexpr unsigned kSecondsToEnd = 20;  // then the copy hangs
  runTogether(10);
  const pid_t copy = fork();
  ASSERT_GE(copy, 0);
  if (copy == 0) {
    alarm(kSecondsToEnd);
    runsOn();
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(copy, &status, 0), copy);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

}  // namespace
}  // namespace kel::platform
