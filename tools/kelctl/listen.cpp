#include <algorithm>
#include <iomanip>
#include <iostream>

#include "callbacks.h"
#include "commands.h"
#include "interrupt.h"
#include "session.h"

namespace kelctl {
namespace {

constexpr std::uint32_t kTriggerInterval = 10;

}  // namespace

int listen(const ListenOptions& options) {
  catchInterrupt();
  const Session session(options.table, queueBroadcast);
  if (options.trigger) session.send(kBroadcaster, fromValues({options.count.value_or(1), kTriggerInterval, 0}));

  const auto end =
      options.seconds
          ? Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*options.seconds))
          : Clock::time_point::max();
  std::uint32_t seen = 0;
  while (!interrupted() && Clock::now() < end && seen != options.count) {
    if (const auto broadcast = nextBroadcast(std::min(Clock::now() + kLook, end))) {
      std::cout << std::left << std::setw(33) << broadcast->name << payloadText(broadcast->isRef, broadcast->payload)
                << std::flush;
      ++seen;
    }
  }
  if (!options.count || seen == *options.count) return 0;
  std::cerr << "kelctl: " << seen << " of " << *options.count << " broadcasts came\n";
  return 1;
}

}  // namespace kelctl
