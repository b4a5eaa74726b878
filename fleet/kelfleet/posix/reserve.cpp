// SPDX-License-Identifier: MIT
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include "kelfleet/verbs.h"

namespace kel::fleet {

namespace {

/// The command, which gets no signal before it is there, and none once its end was seen.
class Command {
 public:
  /// False, with errno, if there is no process for it.
  bool start(std::vector<std::string>& words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t process = fork();
    if (process == 0) {
      execvp(arguments[0], arguments.data());
      std::cerr << "kelfleet: " << arguments[0] << ": " << std::strerror(errno) << std::endl;
      _exit(127);
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    mProcess = process;
    if (mIsToEnd && process > 0) kill(process, SIGTERM);
    return process > 0;
  }

  void end() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mIsToEnd = true;
    if (mProcess > 0) kill(mProcess, SIGTERM);
  }

  int wait() {
    siginfo_t info;
    while (waitid(P_PID, static_cast<id_t>(mProcess), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    int status = 0;
    waitpid(mProcess, &status, 0);
    mProcess = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }

 private:
  std::mutex mMutex;
  pid_t mProcess = -1;
  bool mIsToEnd = false;
};

}  // namespace

int reserve(const SiteOptions& options, ReserveOptions which, std::vector<std::string> command) {
  const Result<Site> site = openSite(options);
  if (!site) return tell(site.error());
  // What calls it may come when this function has returned.
  const auto running = std::make_shared<Command>();
  const auto isLost = std::make_shared<std::atomic<bool>>(false);
  which.onLost = [running, isLost] {
    *isLost = true;
    running->end();
  };
  Result<Reservation> reservation = site->reserve(which);
  if (!reservation) return tell(reservation.error());
  std::cerr << "kelfleet: " << reservation->device() << " is reserved\n";
  setenv("KELHANDLER_DEVICE", site->uriOf(reservation->device()).c_str(), 1);
  setenv("KELHANDLER_RESERVATION", reservation->id().c_str(), 1);
  // Ctrl-C is for the command, which the terminal tells itself. This one waits for it, and gives the device back.
  const auto leave = [](int) {};
  signal(SIGINT, leave);
  signal(SIGQUIT, leave);
  if (!running->start(command)) {
    std::cerr << "kelfleet: there is no process for the command: " << std::strerror(errno) << '\n';
    return kNotReached;
  }
  const int status = running->wait();
  reservation->release();
  if (!*isLost) return status;
  std::cerr << "kelfleet: the reservation was lost\n";
  return kReserved;
}

}  // namespace kel::fleet
