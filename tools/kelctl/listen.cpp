#include <algorithm>
#include <atomic>
#include <csignal>
#include <iomanip>
#include <iostream>

#include "broadcasts.h"
#include "commands.h"
#include "session.h"

namespace kelctl {
namespace {

using namespace std::chrono_literals;

// A signal handler can set this and nothing more, so the wait for a broadcast looks at it from time to time.
std::atomic<bool> gStop{false};
static_assert(std::atomic<bool>::is_always_lock_free);
constexpr auto kLook = 100ms;

constexpr std::uint32_t kTriggerInterval = 10;

extern "C" void stopOnSignal(int /*signal*/) { gStop = true; }

void print(const Broadcast& broadcast) {
  std::cout << std::left << std::setw(32) << broadcast.name << (broadcast.isRef ? " REF" : " VAL") << std::right
            << std::setw(7) << broadcast.payload.size() << " bytes";
  const std::optional<Values> values = toValues(broadcast.payload);
  if (values && !broadcast.isRef) {
    std::cout << "  " << valuesText(*values) << std::endl;
  } else {
    std::cout << '\n' << hexDump(broadcast.payload) << std::flush;
  }
}

}  // namespace

int listen(const ListenOptions& options) {
  std::signal(SIGINT, stopOnSignal);
  std::signal(SIGTERM, stopOnSignal);

  const Session session(options.table, queueBroadcast);
  if (options.trigger) session.send(kBroadcaster, fromValues({options.count.value_or(1), kTriggerInterval, 0}));

  const auto end =
      options.seconds
          ? Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*options.seconds))
          : Clock::time_point::max();
  std::uint32_t seen = 0;
  while (!gStop && Clock::now() < end && seen != options.count) {
    if (const auto broadcast = nextBroadcast(std::min(Clock::now() + kLook, end))) {
      print(*broadcast);
      ++seen;
    }
  }
  if (!options.count || seen == *options.count) return 0;
  std::cerr << "kelctl: " << seen << " of " << *options.count << " broadcasts came\n";
  return 1;
}

}  // namespace kelctl
