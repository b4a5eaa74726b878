// SPDX-License-Identifier: MIT
#include <limits>
#include <nlohmann/json.hpp>

#include "files.h"
#include "interrupt.h"
#include "options.h"
#include "session.h"
#include "task_names.h"

namespace kelctl {
namespace {

constexpr double kIdle = 10;

struct StreamOptions {
  std::string task;
  LinkOptions link;
  PayloadOptions payload;
  // Either of them makes the payload, if none is given.
  std::optional<std::uint32_t> count;
  std::optional<std::uint32_t> interval;
  std::optional<double> seconds;
  std::optional<double> idle;  ///< 0: for ever
  std::string outFile;

  bool makesPayload() const {
    const bool isGiven = !payload.values.empty() || payload.hex || payload.text || !payload.inFile.empty();
    return !isGiven && (count || interval);
  }
};

Bytes requestOf(const StreamOptions& options) {
  if (!options.makesPayload()) return payloadOf(options.payload);
  return fromValues({options.count.value_or(0), options.interval.value_or(0), 0});
}

/// Prints the messages of a stream, from its opening or from where it was opened anew.
class Printer {
 public:
  Printer(const std::string& task, const StreamOptions& options, Output& output)
      : mTask(task), mFile(options.outFile), mOutput(output) {}

  void opening(const kel::Payload& payload) {
    // One that a message has overtaken is empty.
    if (mFile || payload.size() == 0) return;
    const Bytes bytes = toBytes(payload);
    if (mOutput.json()) {
      mOutput.object({{"verb", "stream"}, {"task", mTask}, {"opening", payloadJson(isRef(payload), bytes)}});
    } else {
      mOutput.text("opening " + payloadText(isRef(payload), bytes));
    }
  }

  void message(const kel::Message& message) {
    const Bytes bytes = toBytes(message);
    ++mNumber;
    if (mFile) {
      mFile.write(bytes);
    } else if (mOutput.json()) {
      mOutput.object({{"verb", "stream"},
                      {"task", mTask},
                      {"number", mNumber},
                      {"end", message.isLast},
                      {"payload", payloadJson(isRef(message), bytes)}});
    } else {
      mOutput.text((message.isLast ? "end     " : "message ") + payloadText(isRef(message), bytes));
    }
  }

  /// Of the messages so far.
  std::uint64_t number() const { return mNumber; }

 private:
  const std::string mTask;
  ByteFile mFile;
  Output& mOutput;
  std::uint64_t mNumber = 0;
};

Fault silence(double idle, const std::string& task) {
  return {kNoAnswer,
          "no message came for " + timeText(toMilliseconds(idle)) +
              ".\nNot every task answers with a stream; see whether " + task + " does. --idle 0 waits for ever.",
          kel::text(kel::End::idle)};
}

int stream(const StreamOptions& options, Output& output) {
  const TaskNames names(options.link);
  const std::string task = names.find(options.task);
  const Bytes payload = requestOf(options);
  names.check(task, options.payload, payload);
  Printer printer(task, options, output);

  // The end that a device marks is a message of its own, behind those that were asked for.
  const std::uint64_t most = !options.count           ? std::numeric_limits<std::uint64_t>::max()
                             : options.makesPayload() ? std::uint64_t{*options.count} + 1
                                                      : *options.count;
  const double idle = options.idle.value_or(kIdle);
  kel::StreamOptions reading;
  reading.limit = std::numeric_limits<std::size_t>::max();
  if (idle != 0) reading.idle = toMilliseconds(idle);

  Session session(options.link, !options.payload.force);
  session.announce("waiting for the stream");
  const std::optional<Clock::time_point> until =
      options.seconds ? std::optional(Clock::now() + toMilliseconds(*options.seconds)) : std::nullopt;
  for (;;) {
    if (until) reading.duration = std::chrono::ceil<kel::Milliseconds>(*until - Clock::now());
    kel::Result<kel::Stream> stream = session.client().stream(task, payload, reading);
    kel::End end = kel::End::linkLost;
    if (stream) {
      printer.opening(stream->opening());
      while (printer.number() < most) {
        const std::optional<kel::Message> message = stream->next();
        if (!message || interrupted()) break;
        printer.message(*message);
      }
      if (printer.number() >= most || interrupted()) return kDone;
      end = stream->reason();
    } else if (stream.cause() != kel::Cause::linkLost) {
      throw session.fault(stream.error());
    }
    if (end == kel::End::idle) throw silence(idle, task);
    const bool isLost = end == kel::End::linkLost || end == kel::End::closed;
    if (!isLost || (until && Clock::now() >= *until)) return kDone;
    if (interrupted() || !options.link.reconnect) throw session.fault({kel::Cause::linkLost, 0, task});
  }
}

}  // namespace

void addStream(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<StreamOptions>(app, plan, "stream",
                             "Send a task and print the stream that answers it\n"
                             "It ends with the stream, with Ctrl-C, or as the options say. Messages that are\n"
                             "not printed yet are kept in memory. With --reconnect the task is sent again\n"
                             "when the link is back.",
                             "kelctl stream TASK_ID_APPLICATION_DEBUG_STREAMER --count 5 --interval 100\n"
                             "kelctl stream TASK_ID_APPLICATION_DEBUG_STREAMER --val 5 100 0 --out all.bin\n",
                             stream);
  addTask(verb, options.task);
  addLink(verb, options.link);
  addOut(verb, options.outFile, "Bytes of all messages");
  addSeconds(verb, "--for", options.seconds, "End after so many seconds");
  addSeconds(verb, "--idle", options.idle, "End with status 3 when no message has come for so long (10; 0: never)");
  CLI::Option* interval = addNumber(verb, "--interval", "MS", options.interval,
                                    "Payload with the second value MS: so many milliseconds apart");
  addNumber(verb, "--count", "N", options.count,
            "End after N messages. Without a payload: ask for N, as the first value, and wait for their end as well",
            1);
  addPayload(verb, options.payload, {interval});
}

}  // namespace kelctl
