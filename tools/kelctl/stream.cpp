#include <iostream>

#include "callbacks.h"
#include "commands.h"
#include "files.h"
#include "interrupt.h"
#include "session.h"

namespace kelctl {

int stream(const StreamOptions& options) {
  const bool shaped = options.count || options.interval;
  const Bytes payload =
      shaped ? fromValues({options.count.value_or(0), options.interval.value_or(0), 0}) : payloadOf(options.payload);
  catchInterrupt();

  // The opening is waited for, so that a device that does not answer is told. Messages may overtake it.
  const Session session(options.table);
  session.send(options.task, payload, true, queueStreamMessage);
  while (!interrupted()) {
    const auto message = nextStreamMessage(Clock::now() + kLook);
    if (!message) continue;
    std::cout << (message->isEnd ? "end     " : "message ") << payloadText(message->isRef, message->payload)
              << std::flush;
    if (message->isEnd) return 0;
  }
  return 0;
}

}  // namespace kelctl
