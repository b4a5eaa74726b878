// SPDX-License-Identifier: MIT
#include "keld/posix/Parent.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>

#include "keld/Log.h"
#include "keld/exit_status.h"

namespace kel::fleet {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kFirstPause{100};
constexpr milliseconds kLongestPause{10'000};
/// A worker that ran for so long begins with the first pause again.
constexpr std::chrono::seconds kLongEnough{30};
/// Workers that are told to stop get so long before they are killed.
constexpr std::chrono::seconds kStopTime{10};

struct Child {
  std::vector<std::string> command;
  pid_t process = 0;  // 0: it does not run
  steady_clock::time_point started;
  milliseconds pause{0};
  std::optional<steady_clock::time_point> again;  // when it is to be started
};

/// This program's file, by its name, which the workers have in lists of processes as well.
const std::string& ownFile() {
  static const std::string file = std::filesystem::read_symlink("/proc/self/exe").string();
  return file;
}

void start(Child& child) {
  std::vector<char*> arguments;
  for (std::string& word : child.command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  child.again.reset();
  child.started = steady_clock::now();
  const std::string& file = ownFile();
  child.process = fork();
  if (child.process == 0) {
    // A parent that was killed takes its workers along.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execv(file.c_str(), arguments.data());
    _exit(127);
  }
}

void takeEnd(Child& child, int status) {
  const bool isKilled = WIFSIGNALED(status);
  const int code = isKilled ? WTERMSIG(status) : WEXITSTATUS(status);
  child.process = 0;
  if (!isKilled && code == kExitUsage) {
    logLine("error", "a worker gave up", {{"command", child.command.back()}, {"status", code}});
    return;
  }
  if (steady_clock::now() - child.started > kLongEnough) child.pause = milliseconds(0);
  child.again = steady_clock::now() + child.pause;
  logLine("warning", "a worker ended and is started again",
          {{isKilled ? "signal" : "status", code}, {"pauseMs", child.pause.count()}});
  child.pause = child.pause == milliseconds(0) ? kFirstPause : std::min(child.pause * 2, kLongestPause);
}

void reap(std::vector<Child>& children) {
  int status = 0;
  for (pid_t ended = waitpid(-1, &status, WNOHANG); ended > 0; ended = waitpid(-1, &status, WNOHANG)) {
    const auto child =
        std::find_if(children.begin(), children.end(), [&](const Child& one) { return one.process == ended; });
    if (child != children.end()) takeEnd(*child, status);
  }
}

bool anyRuns(const std::vector<Child>& children) {
  return std::any_of(children.begin(), children.end(), [](const Child& one) { return one.process != 0; });
}

/// Waits for one of the signals until then. 0: none came.
int awaitSignal(const sigset_t& signals, steady_clock::time_point until) {
  const auto left = std::max(std::chrono::nanoseconds(0), std::chrono::nanoseconds(until - steady_clock::now()));
  const timespec time{static_cast<time_t>(left.count() / 1'000'000'000),
                      static_cast<long>(left.count() % 1'000'000'000)};
  return std::max(sigtimedwait(&signals, nullptr, &time), 0);
}

}  // namespace

int superviseWorkers(const std::vector<std::vector<std::string>>& commands) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGCHLD, SIGINT, SIGTERM}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);

  std::vector<Child> children;
  for (const std::vector<std::string>& command : commands) {
    Child child;
    child.command = command;
    children.push_back(std::move(child));
    start(children.back());
  }
  for (int signal = 0; signal != SIGINT && signal != SIGTERM;) {
    steady_clock::time_point next = steady_clock::now() + kLongestPause;
    for (Child& child : children) {
      if (child.again && *child.again <= steady_clock::now()) start(child);
      if (child.again) next = std::min(next, *child.again);
    }
    const bool waits =
        std::any_of(children.begin(), children.end(), [](const Child& one) { return one.again.has_value(); });
    if (!anyRuns(children) && !waits) return 1;
    signal = awaitSignal(signals, next);
    reap(children);
  }

  for (const Child& child : children) {
    if (child.process != 0) kill(child.process, SIGTERM);
  }
  const steady_clock::time_point until = steady_clock::now() + kStopTime;
  while (anyRuns(children) && steady_clock::now() < until) {
    awaitSignal(signals, until);
    int status = 0;
    for (pid_t ended = waitpid(-1, &status, WNOHANG); ended > 0; ended = waitpid(-1, &status, WNOHANG)) {
      for (Child& child : children) {
        if (child.process == ended) child.process = 0;
      }
    }
  }
  for (Child& child : children) {
    if (child.process == 0) continue;
    kill(child.process, SIGKILL);
    waitpid(child.process, nullptr, 0);
  }
  return 0;
}

}  // namespace kel::fleet
