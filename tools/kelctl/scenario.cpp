// SPDX-License-Identifier: MIT
#include <iostream>
#include <nlohmann/json.hpp>

#include "Scenario.h"
#include "options.h"

namespace kelctl {
namespace {

struct ScenarioOptions {
  std::string file;
};

// The mistakes are the result that was asked for, and errors all the same: people get them where errors go.
int check(const ScenarioOptions& options, Output& output) {
  const kel::sim::Reading reading = kel::sim::ReadScenarioFile(options.file);
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

}  // namespace

void addScenario(CLI::App& app, Plan& plan) {
  CLI::App& family =
      addFamily(app, "scenario", "Scenarios of the stand-in device", "kelctl scenario check SluiceHub.json\n");
  auto [verb, options] = addVerb<ScenarioOptions>(family, plan, "check", "Tell the mistakes of a scenario's file",
                                                  "kelctl scenario check SluiceHub.json\n", check);
  addFile(verb, options.file, "The scenario");
}

}  // namespace kelctl
