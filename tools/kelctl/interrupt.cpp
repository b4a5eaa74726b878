// SPDX-License-Identifier: MIT
#include "interrupt.h"

#include <atomic>
#include <csignal>

namespace kelctl {
namespace {

std::atomic<bool> gStop{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void stopOnSignal(int signal) {
  gStop = true;
  std::signal(signal, SIG_DFL);
}

}  // namespace

void catchInterrupt() {
  std::signal(SIGINT, stopOnSignal);
  std::signal(SIGTERM, stopOnSignal);
#ifdef SIGPIPE
  std::signal(SIGPIPE, SIG_IGN);
#endif
}

void forgetInterrupt() {
  gStop = false;
  catchInterrupt();
}

bool interrupted() { return gStop; }

}  // namespace kelctl
