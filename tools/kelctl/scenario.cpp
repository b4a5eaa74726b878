// SPDX-License-Identifier: MIT
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "Scenario.h"
#include "files.h"
#include "options.h"
#include "platform/text.h"
#include "task_names.h"

namespace kelctl {
namespace {

constexpr std::uint32_t kDay = 86400000;  // in milliseconds, the longest time in a scenario
constexpr std::uint32_t kFirstBroadcast = 100;

struct ScenarioOptions {
  std::string file;
};

// The mistakes are the result that was asked for, and errors all the same: people get them where errors go.
int check(const ScenarioOptions& options, Output& output) {
  const kel::sim::Reading reading = kel::sim::ReadScenarioFile(libraryFile(options.file));
  const bool good = reading.mistakes.empty();
  if (output.json()) {
    Json mistakes = Json::array();
    for (const auto& mistake : reading.mistakes)
      mistakes.push_back({{"line", mistake.line}, {"found", mistake.found}, {"expected", mistake.expected}});
    output.object({{"verb", "scenario check"}, {"file", options.file}, {"mistakes", mistakes}});
  } else {
    for (const auto& mistake : reading.mistakes) std::cerr << kel::sim::TextOf(options.file, mistake) << '\n';
    if (good) output.text(options.file + ": " + output.good("good") + '\n');
  }
  return good ? kDone : kRefused;
}

struct NewOptions {
  std::string file;
  std::optional<std::string> task;
  std::optional<std::uint32_t> delay, dropEvery, refuse, broadcastEvery, loseLinkAt;

  bool hasRule() const { return task || delay || dropEvery || refuse; }
};

/// The keys that the options name; the rest of the language is left to the user's editor.
Json scenarioOf(const NewOptions& options) {
  Json scenario = Json::object();
  if (options.hasRule()) {
    Json rule = Json::object();
    if (options.task) rule["task"] = TaskNames("").find(*options.task);
    if (options.delay) rule["delay"] = *options.delay;
    if (options.dropEvery) rule["drop"] = *options.dropEvery == 1 ? Json(true) : Json{{"every", *options.dropEvery}};
    if (options.refuse) rule["refuse"] = Json{{"L4status", *options.refuse}};
    scenario["rules"] = Json::array({rule});
  }
  if (options.broadcastEvery) {
    const Json broadcast{{"task", "TASK_ID_TIMER_POST_TASKS"},
                         {"at", kFirstBroadcast},
                         {"every", *options.broadcastEvery},
                         {"payload", {{"values", {1, 2, 3}}}}};
    scenario["broadcasts"] = Json::array({broadcast});
  }
  if (options.loseLinkAt) scenario["linkLosses"] = Json::array({Json{{"at", *options.loseLinkAt}}});
  return scenario;
}

int write(const NewOptions& options, Output& output) {
  const Json scenario = scenarioOf(options);
  const std::string text = scenario.dump(2) + '\n';
  Json json{{"verb", "scenario new"}, {"scenario", scenario}};
  if (options.file.empty() || options.file == kStandardStream) {
    if (output.json()) {
      output.object(json);
    } else {
      output.text(text);
    }
    return kDone;
  }
  if (std::filesystem::exists(pathOf(options.file))) {
    throw Fault(kWrongUsage, options.file + " exists already, and is left as it is.");
  }
  ByteFile(options.file).write({text.begin(), text.end()});
  std::cerr << "written; SLUICEHUB_SCENARIO=" << options.file << " puts it in force\n";
  if (output.json()) {
    json["file"] = options.file;
    output.object(json);
  }
  return kDone;
}

}  // namespace

void addScenario(CLI::App& app, Plan& plan) {
  CLI::App& family =
      addFamily(app, "scenario", "Scenarios of the stand-in device", "kelctl scenario check SluiceHub.json\n");
  auto [made, terms] = addVerb<NewOptions>(family, plan, "new", "Write a first scenario, to go on with in an editor",
                                           "kelctl scenario new late.json --task application_debug_val --delay 200\n"
                                           "kelctl scenario new --broadcast-every 500 --lose-link-at 3000\n",
                                           write);
  addNewFile(made, terms.file, "File to write, which must not be there yet; none: standard output");
  addText(made, "--task", "TASK", terms.task, "The task that the rule is for (every task)");
  CLI::Option* delay = addNumber(made, "--delay", "MS", terms.delay, "Answers come so much later", 0, kDay);
  CLI::Option* drop =
      addNumber(made, "--drop-every", "N", terms.dropEvery, "Each N-th answer is lost; 1: every one", 1);
  exclude(addNumber(made, "--refuse", "STATUS", terms.refuse, "The request is refused with this status", 1, 65535),
          {delay, drop});
  addNumber(made, "--broadcast-every", "MS", terms.broadcastEvery, "The device says something so often", 1, kDay);
  addNumber(made, "--lose-link-at", "MS", terms.loseLinkAt, "The link is lost so long after each connect", 0, kDay);

  auto [verb, options] = addVerb<ScenarioOptions>(family, plan, "check", "Tell the mistakes of a scenario's file",
                                                  "kelctl scenario check SluiceHub.json\n", check);
  addFile(verb, options.file, "The scenario");
}

}  // namespace kelctl
