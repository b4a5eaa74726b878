// SPDX-License-Identifier: MIT
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "callbacks.h"
#include "files.h"
#include "interrupt.h"
#include "options.h"
#include "session.h"

namespace kelctl {
namespace {

constexpr std::uint32_t kTriggerInterval = 10;
constexpr int kNameWidth = 33;

struct ListenOptions {
  std::string table;
  std::optional<std::uint32_t> count;
  std::optional<double> seconds;
  bool trigger = false;
  std::string outFile;
};

Clock::time_point endOf(const ListenOptions& options) {
  if (!options.seconds) return Clock::time_point::max();
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*options.seconds));
}

void print(const Broadcast& broadcast, std::uint32_t number, ByteFile& file, Output& output) {
  if (file) {
    file.write(broadcast.payload);
  } else if (output.json()) {
    output.object({{"verb", "listen"},
                   {"number", number},
                   {"task", broadcast.name},
                   {"payload", payloadJson(broadcast.isRef, broadcast.payload)}});
  } else {
    std::ostringstream line;
    line << std::left << std::setw(kNameWidth) << broadcast.name << payloadText(broadcast.isRef, broadcast.payload);
    output.text(line.str());
  }
}

int listen(const ListenOptions& options, Output& output) {
  ByteFile file(options.outFile);
  const Session session(options.table, queueBroadcast);
  if (options.trigger) session.ask(kBroadcaster, fromValues({options.count.value_or(1), kTriggerInterval, 0}));
  const Clock::time_point end = endOf(options);
  std::uint32_t seen = 0;
  while (seen != options.count) {
    const std::optional<Broadcast> broadcast = nextBroadcast(end);
    if (!broadcast) break;
    print(*broadcast, ++seen, file, output);
  }
  if (!options.count || seen == *options.count) return kDone;
  std::cerr << "kelctl: " << seen << " of " << *options.count << " broadcasts came\n";
  return interrupted() ? kRefused : kNoAnswer;
}

}  // namespace

void addListen(CLI::App& app, Plan& plan) {
  auto [verb, options] = addVerb<ListenOptions>(app, plan, "listen", "Print broadcasts until Ctrl-C",
                                                "kelctl listen --trigger --count 3\n"
                                                "kelctl listen --for 60 --json >broadcasts.jsonl\n",
                                                listen);
  addTable(verb, options.table);
  addNumber(verb, "--count", "N", options.count, "End after N broadcasts", 1);
  addSeconds(verb, "--for", options.seconds, "End after so many seconds");
  addFlag(verb, "--trigger", options.trigger, "First ask the device for N broadcasts, or for one");
  addOut(verb, options.outFile, "Payloads' bytes");
}

}  // namespace kelctl
