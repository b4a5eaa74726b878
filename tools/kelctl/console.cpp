// SPDX-License-Identifier: MIT
#include <CLI/App.hpp>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "options.h"
#include "platform/programs.h"

namespace kelctl {
namespace {

struct ConsoleOptions {
  std::vector<std::string> words;
};

// The console is a program of its own, since it takes packages that kelctl does not.
int console(const ConsoleOptions& options, Output& /*output*/) {
  becomeProgramBeside("kelconsole", options.words);
  std::cerr
      << "kelctl: the console is not installed: there is no program kelconsole beside kelctl.\n"
         "On Debian the package kelhandler-console has it; `./run console` in the sources builds it and starts it.\n";
  return kRefused;
}

}  // namespace

void addConsole(CLI::App& app, Plan& plan) {
  const auto options = std::make_shared<ConsoleOptions>();
  CLI::App& verb =
      addVerb<ConsoleOptions>(
          app, plan, "console",
          "Show a device, or those of a site, in the browser\n"
          "What follows is for the console: `kelconsole --help` tells what.",
          "kelctl console\nkelctl console --port 8500\nkelctl console --fleet nats://server1,server2/lab\n", console,
          options)
          .first;
  verb.prefix_command();
  verb.parse_complete_callback([&verb, options] { options->words = verb.remaining(); });
}

}  // namespace kelctl
