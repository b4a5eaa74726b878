#include "interrupt.h"

#include <atomic>
#include <csignal>

namespace kelctl {
namespace {

std::atomic<bool> gStop{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void stopOnSignal(int /*signal*/) { gStop = true; }

}  // namespace

void catchInterrupt() {
  std::signal(SIGINT, stopOnSignal);
  std::signal(SIGTERM, stopOnSignal);
}

bool interrupted() { return gStop; }

}  // namespace kelctl
