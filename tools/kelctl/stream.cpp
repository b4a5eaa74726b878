// SPDX-License-Identifier: MIT
#include <limits>
#include <nlohmann/json.hpp>

#include "files.h"
#include "interrupt.h"
#include "options.h"
#include "session.h"

namespace kelctl {
namespace {

struct StreamOptions {
  std::string task;
  LinkOptions link;
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

  Session session(options.link);
  kel::StreamOptions reading;
  reading.limit = std::numeric_limits<std::size_t>::max();
  kel::Result<kel::Stream> stream = session.client().stream(options.task, payload, reading);
  if (!stream) throw session.fault(stream.error());
  std::uint64_t number = 0;
  for (const kel::Message& message : *stream) {
    if (interrupted()) break;
    const Bytes bytes = toBytes(message);
    ++number;
    if (file) {
      file.write(bytes);
    } else if (output.json()) {
      output.object({{"verb", "stream"},
                     {"task", options.task},
                     {"number", number},
                     {"end", message.isLast},
                     {"payload", payloadJson(isRef(message), bytes)}});
    } else {
      output.text((message.isLast ? "end     " : "message ") + payloadText(isRef(message), bytes));
    }
  }
  return kDone;
}

}  // namespace

void addStream(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<StreamOptions>(app, plan, "stream",
                             "Send a task and print the stream that answers it\n"
                             "It ends with the stream or with Ctrl-C. Messages that are not printed yet are\n"
                             "kept in memory.",
                             "kelctl stream TASK_ID_APPLICATION_DEBUG_STREAMER --count 5 --interval 100\n"
                             "kelctl stream TASK_ID_APPLICATION_DEBUG_STREAMER --val 5 100 0 --out all.bin\n",
                             stream);
  addTask(verb, options.task);
  addLink(verb, options.link);
  addOut(verb, options.outFile, "Bytes of all messages");
  addPayload(verb, options.payload,
             {addNumber(verb, "--count", "N", options.count, "Payload with the first value N: N messages"),
              addNumber(verb, "--interval", "MS", options.interval,
                        "Payload with the second value MS: so many milliseconds apart")});
}

}  // namespace kelctl
