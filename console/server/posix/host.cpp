// SPDX-License-Identifier: MIT
#include "host.h"

#include <sys/socket.h>

#include <csignal>
#include <cstdlib>

namespace kel::console {
namespace {

sigset_t signalsOfEnd() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

}  // namespace

void claimPort(int socket) {
  const int yes = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

void keepSignals() {
  const sigset_t signals = signalsOfEnd();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

void awaitEnd() {
  const sigset_t signals = signalsOfEnd();
  int signal = 0;
  sigwait(&signals, &signal);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void setDefault(const char* name, const char* value) { setenv(name, value, 0); }

}  // namespace kel::console
