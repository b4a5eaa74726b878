// SPDX-License-Identifier: MIT
// Signals keep away from the library's threads.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>

#include "platform/background.h"

namespace kel::platform {
namespace {

sigset_t ownMask() {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return mask;
}

TEST(Signal, AThreadBlocksAllButItsOwnFaults) {
  sigset_t mask;
  Background([&] { mask = ownMask(); }).join();
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    const bool cannotBeBlocked = signal == SIGKILL || signal == SIGSTOP || (signal > SIGSYS && signal < SIGRTMIN);
    const bool isFault = signal == SIGBUS || signal == SIGFPE || signal == SIGILL || signal == SIGSEGV ||
                         signal == SIGSYS || signal == SIGTRAP;
    if (cannotBeBlocked) continue;
    EXPECT_EQ(sigismember(&mask, signal), isFault ? 0 : 1) << strsignal(signal);
  }
}

TEST(Signal, WhoStartsAThreadKeepsTheSignalsThatHeTakes) {
  const sigset_t before = ownMask();
  const Background thread([] {});
  const sigset_t after = ownMask();
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << strsignal(signal);
  }
}

std::atomic<pid_t> gHandledBy = 0;

TEST(Signal, OneThatIsSentToTheProcessWaitsForAThreadOfTheClients) {
  struct sigaction handling = {};
  handling.sa_handler = [](int) { gHandledBy = gettid(); };
  ASSERT_EQ(sigaction(SIGUSR1, &handling, nullptr), 0);

  const Owned stay(createEvent(false, false));
  Background thread([&] { waitForOne(stay, kLong); });
  sigset_t usr1;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
  kill(getpid(), SIGUSR1);
  setEvent(stay);
  thread.join();
  EXPECT_EQ(gHandledBy, 0);
  pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);
  EXPECT_EQ(gHandledBy, gettid());
}

TEST(Signal, ASleepThatOneInterruptsLastsItsWholeTime) {
  struct sigaction handling = {};
  handling.sa_handler = [](int) { gHandledBy = gettid(); };
  ASSERT_EQ(sigaction(SIGUSR1, &handling, nullptr), 0);

  std::atomic<bool> awake = false;
  Background sender([&awake, sleeper = pthread_self()] {
    while (!awake) {
      pthread_kill(sleeper, SIGUSR1);
      sleepFor(1);
    }
  });
  const auto begin = std::chrono::steady_clock::now();
  sleepFor(50);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
  while (gHandledBy == 0) sleepFor(1);
  awake = true;
  sender.join();
  EXPECT_EQ(gHandledBy, gettid());
}

}  // namespace
}  // namespace kel::platform
