// SPDX-License-Identifier: MIT
#include <nlohmann/json.hpp>

#include "callbacks.h"
#include "files.h"
#include "interrupt.h"
#include "options.h"
#include "session.h"

namespace kelctl {
namespace {

struct StreamOptions {
  std::string task;
  std::string table;
  PayloadOptions payload;
  // Either of them makes the payload.
  std::optional<std::uint32_t> count;
  std::optional<std::uint32_t> interval;
  std::string outFile;
};

int stream(const StreamOptions& options, Output& output) {
  const bool shaped = options.count || options.interval;
  const Bytes payload =
      shaped ? fromValues({options.count.value_or(0), options.interval.value_or(0), 0}) : payloadOf(options.payload);
  ByteFile file(options.outFile);

  const Session session(options.table);
  session.openStream(options.task, payload);
  for (std::uint64_t number = 1; const auto message = nextStreamMessage(Clock::time_point::max()); ++number) {
    if (file) {
      file.write(message->payload);
    } else if (output.json()) {
      output.object({{"verb", "stream"},
                     {"task", options.task},
                     {"number", number},
                     {"end", message->isEnd},
                     {"payload", payloadJson(message->isRef, message->payload)}});
    } else {
      output.text((message->isEnd ? "end     " : "message ") + payloadText(message->isRef, message->payload));
    }
    if (message->isEnd) break;
  }
  return kDone;
}

}  // namespace

void addStream(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<StreamOptions>(app, plan, "stream",
                             "Send a task and print the stream that answers it\n"
                             "It ends with the stream or with Ctrl-C. Messages that are not printed yet are\n"
                             "kept in memory. For the stream to open it waits as long as RxWaitTimeout in\n"
                             "Brel.ini says: 10000 ms if it is not there.",
                             "kelctl stream TASK_ID_APPLICATION_DEBUG_STREAMER --count 5 --interval 100\n"
                             "kelctl stream TASK_ID_APPLICATION_DEBUG_STREAMER --val 5 100 0 --out all.bin\n",
                             stream);
  addTask(verb, options.task);
  addTable(verb, options.table);
  addOut(verb, options.outFile, "Bytes of all messages");
  addPayload(verb, options.payload,
             {addNumber(verb, "--count", "N", options.count, "Payload with the first value N: N messages"),
              addNumber(verb, "--interval", "MS", options.interval,
                        "Payload with the second value MS: so many milliseconds apart")});
}

}  // namespace kelctl
