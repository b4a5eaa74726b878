// SPDX-License-Identifier: MIT
#include <iostream>
#include <nlohmann/json.hpp>

#include "files.h"
#include "in_flight.h"
#include "options.h"
#include "session.h"

namespace kelctl {
namespace {

struct SendOptions {
  std::string task;
  std::string table;
  PayloadOptions payload;
  std::string outFile;
  bool noResponse = false;
  bool async = false;
  std::optional<std::uint32_t> inFlight;  ///< so many at once, asynchronously
};

int sendAtOnce(const SendOptions& options, std::uint32_t count, Output& output) {
  const Bytes payload = payloadOf(options.payload);
  const Session session(options.table);
  const InFlight outcome =
      sendInFlight(session.connection(), options.task, count, [&](std::uint32_t) { return payload; });
  if (output.json()) {
    output.object({{"verb", "send"},
                   {"task", options.task},
                   {"tasks", outcome.tasks},
                   {"answered", outcome.answered()},
                   {"timedOut", outcome.timedOut()},
                   {"refused", outcome.refused},
                   {"milliseconds", milliseconds(outcome.time)}});
  } else {
    output.text(summary(outcome) + '\n');
  }
  if (outcome.refused != 0) throw Refused("KEL_SendReceiveAsyncKEL", outcome.refusalCode);
  if (outcome.interrupted) throw Interrupted();
  return outcome.timedOut() == 0 ? kDone : kNoAnswer;
}

int send(const SendOptions& options, Output& output) {
  if (options.async || options.inFlight) return sendAtOnce(options, options.inFlight.value_or(1), output);
  const Bytes payload = payloadOf(options.payload);
  // The file is opened ahead of the task, so that a name that leads nowhere costs no answer.
  ByteFile file(options.outFile);

  const Session session(options.table);
  if (options.noResponse) {
    session.tell(options.task, payload);
    if (output.json()) output.object({{"verb", "send"}, {"task", options.task}});
    std::cerr << "sent, no answer asked for\n";
    return kDone;
  }
  const Clock::time_point start = Clock::now();
  const Answer answer = session.ask(options.task, payload);
  if (file) {
    file.write(answer.payload);
  } else if (output.json()) {
    output.object({{"verb", "send"},
                   {"task", options.task},
                   {"milliseconds", milliseconds(answer.arrival - start)},
                   {"payload", payloadJson(answer.isRef, answer.payload)}});
  } else if (answer.payload.empty()) {
    std::cerr << "answered with an empty payload\n";
  } else {
    const std::optional<Values> values = toValues(answer.payload);
    output.text(values && !answer.isRef ? valuesText(*values) + '\n' : hexDump(answer.payload));
  }
  return kDone;
}

}  // namespace

void addSend(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<SendOptions>(app, plan, "send",
                           "Send a task and print its answer\n"
                           "How long an answer is waited for is RxWaitTimeout in Brel.ini, in milliseconds;\n"
                           "10000 if it is not there.",
                           "kelctl send TASK_ID_APPLICATION_DEBUG_VAL --val 7 8 9\n"
                           "kelctl send TASK_ID_APPLICATION_DEBUG_REF --text hello\n"
                           "kelctl send TASK_ID_APPLICATION_DEBUG_REF --in - --out answer.bin\n"
                           "kelctl send TASK_ID_APPLICATION_DEBUG_VAL --in-flight 64\n",
                           send);
  addTask(verb, options.task);
  addTable(verb, options.table);
  CLI::Option* noResponse = addFlag(verb, "--no-response", options.noResponse, "Do not wait for an answer");
  CLI::Option* out = addOut(verb, options.outFile, "Answer's bytes");
  CLI::Option* async =
      addFlag(verb, "--async", options.async, "Print what became of the task, not what the answer says");
  CLI::Option* inFlight = addNumber(verb, "--in-flight", "N", options.inFlight,
                                    "The same of N tasks sent all at once (1 to 64)", 1, kMaxInFlight);
  exclude(out, {noResponse, async, inFlight});
  exclude(noResponse, {async, inFlight});
  addPayload(verb, options.payload);
}

}  // namespace kelctl
