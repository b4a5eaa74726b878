// SPDX-License-Identifier: MIT
#include <iostream>
#include <nlohmann/json.hpp>

#include "files.h"
#include "options.h"
#include "session.h"
#include "tally.h"
#include "task_names.h"

namespace kelctl {
namespace {

struct SendOptions {
  std::string task;
  LinkOptions link;
  PayloadOptions payload;
  std::string outFile;
  bool noResponse = false;
  bool async = false;
  std::optional<std::uint32_t> inFlight;  ///< so many at once, asynchronously
};

int sendAtOnce(const SendOptions& options, const std::string& task, const Bytes& payload, Output& output) {
  const std::uint32_t count = options.inFlight.value_or(1);
  Session session(options.link, !options.payload.force);
  Tally tally;
  tally.tasks = count;
  const Clock::time_point start = Clock::now();
  std::vector<kel::Call> calls;
  for (std::uint32_t i = 0; i < count; ++i) calls.push_back(session.client().start(task, payload));
  std::optional<kel::Error> failure;  // that is not just the time
  for (const kel::Call& call : calls) {
    const kel::Result<kel::Payload> answer = call.get();
    if (answer) {
      ++tally.answered;
    } else {
      const bool isUnanswered = answer.cause() == kel::Cause::noAnswer || answer.cause() == kel::Cause::linkLost ||
                                answer.cause() == kel::Cause::closed;
      ++(isUnanswered ? tally.timedOut : tally.refused);
      if (answer.cause() != kel::Cause::noAnswer) failure = answer.error();
    }
  }
  tally.time = Clock::now() - start;
  if (output.json()) {
    output.object({{"verb", "send"},
                   {"task", task},
                   {"tasks", tally.tasks},
                   {"answered", tally.answered},
                   {"timedOut", tally.timedOut},
                   {"refused", tally.refused},
                   {"milliseconds", milliseconds(tally.time)}});
  } else {
    output.text(summary(tally) + '\n');
  }
  if (failure) throw session.fault(*failure);
  return tally.timedOut == 0 ? kDone : kNoAnswer;
}

int send(const SendOptions& options, Output& output) {
  const TaskNames names(options.link);
  const std::string task = names.find(options.task);
  const Bytes payload = payloadOf(options.payload);
  names.check(task, options.payload, payload);
  if (options.async || options.inFlight) return sendAtOnce(options, task, payload, output);
  // The file is opened ahead of the task, so that a name that leads nowhere costs no answer.
  ByteFile file(options.outFile);

  Session session(options.link, !options.payload.force);
  if (options.noResponse) {
    const kel::Result<void> sent = session.client().post(task, payload);
    if (!sent) throw session.fault(sent.error());
    if (output.json()) output.object({{"verb", "send"}, {"task", task}});
    std::cerr << "sent, no answer asked for\n";
    return kDone;
  }
  const Clock::time_point start = Clock::now();
  const kel::Payload answer = session.ask(task, payload);
  const Clock::duration time = Clock::now() - start;
  const Bytes bytes = toBytes(answer);
  if (file) {
    file.write(bytes);
  } else if (output.json()) {
    output.object({{"verb", "send"},
                   {"task", task},
                   {"milliseconds", milliseconds(time)},
                   {"payload", payloadJson(isRef(answer), bytes)}});
  } else if (bytes.empty()) {
    std::cerr << "answered with an empty payload\n";
  } else {
    const std::optional<Values> values = toValues(bytes);
    output.text(values && !isRef(answer) ? valuesText(*values) + '\n' : hexDump(bytes));
  }
  return kDone;
}

}  // namespace

void addSend(CLI::App& app, Plan& plan) {
  auto [verb, options] = addVerb<SendOptions>(app, plan, "send", "Send a task and print its answer",
                                              "kelctl send TASK_ID_APPLICATION_DEBUG_VAL --val 7 8 9\n"
                                              "kelctl send TASK_ID_APPLICATION_DEBUG_REF --text hello\n"
                                              "kelctl send TASK_ID_APPLICATION_DEBUG_REF --in - --out answer.bin\n"
                                              "kelctl send TASK_ID_APPLICATION_DEBUG_VAL --in-flight 64\n",
                                              send);
  addTask(verb, options.task);
  addLink(verb, options.link);
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
