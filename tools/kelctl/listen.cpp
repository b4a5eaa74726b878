// SPDX-License-Identifier: MIT
#include <iomanip>
#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "files.h"
#include "interrupt.h"
#include "options.h"
#include "session.h"

namespace kelctl {
namespace {

constexpr const char* kBroadcaster = kel::tasks::TASK_ID_APPLICATION_DEBUG_BROADCASTER.name;
constexpr std::uint32_t kTriggerInterval = 10;
constexpr int kNameWidth = 33;

struct ListenOptions {
  LinkOptions link;
  std::optional<std::uint32_t> count;
  std::optional<double> seconds;
  bool trigger = false;
  std::string outFile;
};

Clock::time_point endOf(const ListenOptions& options) {
  return options.seconds ? Clock::now() + toMilliseconds(*options.seconds) : Clock::time_point::max();
}

std::optional<kel::Broadcast> next(kel::Subscription& broadcasts, Clock::time_point end) {
  if (end == Clock::time_point::max()) return broadcasts.next();
  return broadcasts.next(std::chrono::ceil<kel::Milliseconds>(end - Clock::now()));
}

void print(const kel::Broadcast& broadcast, std::uint32_t number, ByteFile& file, Output& output) {
  const Bytes bytes = toBytes(broadcast);
  if (file) {
    file.write(bytes);
  } else if (output.json()) {
    output.object({{"verb", "listen"},
                   {"number", number},
                   {"task", broadcast.task},
                   {"payload", payloadJson(isRef(broadcast), bytes)}});
  } else {
    std::ostringstream line;
    line << std::left << std::setw(kNameWidth) << broadcast.task << payloadText(isRef(broadcast), bytes);
    output.text(line.str());
  }
}

int listen(const ListenOptions& options, Output& output) {
  ByteFile file(options.outFile);
  Session session(options.link);
  session.announce("listening");
  kel::BroadcastOptions all;
  all.limit = std::numeric_limits<std::size_t>::max();
  kel::Subscription broadcasts = session.client().broadcasts(all);
  if (options.trigger) session.ask(kBroadcaster, fromValues({options.count.value_or(1), kTriggerInterval, 0}));
  const Clock::time_point end = endOf(options);
  std::uint32_t seen = 0;
  while (seen != options.count) {
    const std::optional<kel::Broadcast> broadcast = next(broadcasts, end);
    if (!broadcast || interrupted()) break;
    print(*broadcast, ++seen, file, output);
  }
  if (options.count && seen == *options.count) return kDone;
  if (const std::optional<Fault> loss = session.loss()) throw *loss;
  if (!options.count) return kDone;
  std::cerr << "kelctl: " << seen << " of " << *options.count << " broadcasts came\n";
  return interrupted() ? kRefused : kNoAnswer;
}

}  // namespace

void addListen(CLI::App& app, Plan& plan) {
  auto [verb, options] = addVerb<ListenOptions>(app, plan, "listen", "Print broadcasts until Ctrl-C",
                                                "kelctl listen --trigger --count 3\n"
                                                "kelctl listen --for 60 --json >broadcasts.jsonl\n",
                                                listen);
  addLink(verb, options.link);
  addNumber(verb, "--count", "N", options.count, "End after N broadcasts", 1);
  addSeconds(verb, "--for", options.seconds, "End after so many seconds");
  addFlag(verb, "--trigger", options.trigger, "First ask the device for N broadcasts, or for one");
  addOut(verb, options.outFile, "Payloads' bytes");
}

}  // namespace kelctl
