// SPDX-License-Identifier: MIT
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "files.h"
#include "interrupt.h"
#include "options.h"
#include "session.h"
#include "text_search.h"

namespace kelctl {
namespace {

constexpr const char* kBroadcaster = kel::tasks::TASK_ID_APPLICATION_DEBUG_BROADCASTER.name;
constexpr std::uint32_t kTriggerInterval = 10;
constexpr int kNameWidth = 32;
constexpr int kWordWidth = 11;

struct ListenOptions {
  LinkOptions link;
  std::optional<std::uint32_t> count;
  std::optional<double> seconds;
  bool trigger = false;
  std::optional<std::string> filter;
  std::string outFile;
};

Clock::time_point endOf(const ListenOptions& options) {
  return options.seconds ? Clock::now() + toMilliseconds(*options.seconds) : Clock::time_point::max();
}

std::optional<kel::Broadcast> next(kel::Subscription& broadcasts, Clock::time_point end) {
  if (end == Clock::time_point::max()) return broadcasts.next();
  return broadcasts.next(std::chrono::ceil<kel::Milliseconds>(end - Clock::now()));
}

std::string wordText(std::uint32_t word) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%05x", word);
  return text;
}

void print(const kel::Broadcast& broadcast, std::uint32_t number, ByteFile& file, Output& output) {
  const Bytes bytes = toBytes(broadcast);
  const std::chrono::system_clock::time_point now = std::chrono::system_clock::now();
  if (file) {
    file.write(bytes);
  } else if (output.json()) {
    output.object({{"verb", "listen"},
                   {"number", number},
                   {"time", isoText(now)},
                   {"task", broadcast.task},
                   {"sequenceWord", broadcast.sequenceWord()},
                   {"payload", payloadJson(isRef(broadcast), bytes)}});
  } else {
    std::ostringstream line;
    line << clockText(now) << "  " << std::left << std::setw(kNameWidth) << broadcast.task << ' '
         << std::setw(kWordWidth) << wordText(broadcast.sequenceWord()) << payloadText(isRef(broadcast), bytes);
    output.text(line.str());
  }
}

/// Whether it is one of those that were asked for: by a part of the name, or by the sequence word.
bool isWanted(const kel::Broadcast& broadcast, const std::optional<std::string>& filter) {
  if (!filter) return true;
  if (const std::optional<std::uint32_t> word = toNumber(*filter)) return broadcast.sequenceWord() == *word;
  return contains(broadcast.task, *filter);
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
    if (isWanted(*broadcast, options.filter)) print(*broadcast, ++seen, file, output);
  }
  if (options.count && seen == *options.count) return kDone;
  if (const std::optional<Fault> loss = session.loss()) throw *loss;
  if (!options.count) return kDone;
  std::cerr << "kelctl: " << seen << " of " << *options.count << " broadcasts came\n";
  return interrupted() ? kRefused : kNoAnswer;
}

}  // namespace

void addListen(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<ListenOptions>(app, plan, "listen",
                             "Print broadcasts until Ctrl-C\n"
                             "Each is printed with its time, its name, its sequence word and its payload. The\n"
                             "name is UNKNOWN_TASK unless the task table has a row for it.",
                             "kelctl listen --trigger --count 3\n"
                             "kelctl listen --filter unknown --for 60\n"
                             "kelctl listen --for 60 --json >broadcasts.jsonl\n",
                             listen);
  addLink(verb, options.link);
  addNumber(verb, "--count", "N", options.count, "End after N broadcasts", 1);
  addSeconds(verb, "--for", options.seconds, "End after so many seconds");
  addFlag(verb, "--trigger", options.trigger, "First ask the device for N broadcasts, or for one");
  addText(verb, "--filter", "NAME|WORD", options.filter,
          "Only those with NAME in their name, in any case, or with this sequence word, decimal or with 0x");
  addOut(verb, options.outFile, "Payloads' bytes");
}

}  // namespace kelctl
