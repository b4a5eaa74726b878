// SPDX-License-Identifier: MIT
#include "command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "diagnosis.h"
#include "help.h"
#include "options.h"
#include "platform/environment.h"
#include "status.h"
#include "suggestion.h"

namespace kelctl {
namespace {

/// A verb as one writes it: "kelctl tasks find".
std::string nameOf(const CLI::App& verb) {
  return verb.get_parent() == nullptr ? verb.get_name() : nameOf(*verb.get_parent()) + ' ' + verb.get_name();
}

/// The verb that the words got to.
const CLI::App& reached(const CLI::App& app) {
  for (const CLI::App* verb : verbsOf(app)) {
    if (verb->parsed()) return reached(*verb);
  }
  return app;
}

bool isOption(const std::string& word) { return word.size() > 1 && word.front() == '-'; }

std::vector<std::string> optionNames(const CLI::App& verb) {
  std::vector<std::string> names;
  for (const CLI::Option* option : namedOptionsOf(verb)) names.push_back(option->get_name(false, false));
  return names;
}

std::string noVerb(const CLI::App& app, const std::string& word) {
  std::vector<std::string> names;
  for (const CLI::App* verb : verbsOf(app)) names.push_back(verb->get_name());
  return "there is no verb \"" + word + '"' + suggestion(nearest(word, names));
}

std::string usageFault(const CLI::App* app, const CLI::Error& error) {
  const CLI::App& verb = reached(*app);
  const std::vector<std::string> names = optionNames(verb);
  std::vector<std::string> words = verb.remaining();
  if (words.empty()) words = app->remaining(true);
  const auto early = std::find_first_of(words.begin(), words.end(), names.begin(), names.end());
  const auto option = std::find_if(words.begin(), words.end(), isOption);
  std::string fault = error.what();
  if (early != words.end()) {
    fault = '"' + *early + "\" belongs behind the verb";
  } else if (option != words.end()) {
    fault = "there is no option \"" + *option + '"' + suggestion(nearest(*option, names));
  } else if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && verb.get_require_subcommand_min() != 0) {
    fault = words.empty() ? "a verb is missing" : noVerb(verb, words.front());
  } else if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !words.empty()) {
    fault = verbsOf(verb).empty() ? '"' + words.front() + "\" is one word too many" : noVerb(verb, words.front());
  }
  return "kelctl: " + fault + "\nRun `" + nameOf(verb) + " --help` for its usage.\n";
}

struct HelpOptions {
  std::vector<std::string> verbs;
};

/// The help of a verb is that of a tree of its own, since the one that asks for it is being parsed.
int help(const HelpOptions& options, Output& output) {
  Plan unused;
  CLI::App app{"", "kelctl"};
  addVerbs(app, unused);
  const CLI::App* verb = &app;
  for (const std::string& word : options.verbs) {
    const std::vector<const CLI::App*> verbs = verbsOf(*verb);
    const auto found =
        std::find_if(verbs.begin(), verbs.end(), [&](const CLI::App* one) { return one->get_name() == word; });
    if (found == verbs.end()) throw Fault(kWrongUsage, noVerb(*verb, word));
    verb = *found;
  }
  output.text(helpOf(verb, nameOf(*verb)));
  return kDone;
}

void addHelp(CLI::App& app, Plan& plan) {
  const auto options = std::make_shared<HelpOptions>();
  CLI::App& verb = *app.add_subcommand("help", "Print the help of kelctl or of a verb");
  verb.footer("kelctl help send\nkelctl help tasks find\n");
  verb.add_option("VERB", options->verbs, "The verb, with those above it");
  verb.callback([&plan, options] { plan.action = [options](Output& output) { return help(*options, output); }; });
}

int failed(Output& output, const Fault& fault) {
  std::cerr << "kelctl: " << fault.what() << '\n';
  if (!output.json()) return fault.status();
  Json json{{"status", fault.status()}, {"text", fault.what()}};
  if (!fault.cause().empty()) json["cause"] = fault.cause();
  try {
    output.object({{"error", json}});
  } catch (const std::exception&) {
    // Standard output takes no more, which was reported just now.
  }
  return fault.status();
}

}  // namespace

void addVerbs(CLI::App& app, Plan& plan) {
  app.description("Talk to the device from the command line");
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // "/own.csv" is a file everywhere
  app.formatter_fn(
      [](const CLI::App* verb, const std::string& name, CLI::AppFormatMode) { return helpOf(verb, name); });
  app.failure_message(usageFault);
  app.set_help_flag("-h,--help", "Print this help");
  app.add_flag("--json", plan.json, "Print JSON, one object a line");
  app.set_version_flag("-V,--version", "kelctl " KELCTL_VERSION, "Print kelctl's version");
  app.footer(
      "kelctl tasks\n"
      "kelctl send TASK_ID_APPLICATION_DEBUG_VAL --val 7 8 9\n"
      "kelctl ping --count 5 --interval 100\n"
      "kelctl send --help\n");
  addDemo(app, plan);
  addSend(app, plan);
  addStream(app, plan);
  addListen(app, plan);
  addPing(app, plan);
  addMonitor(app, plan);
  addShell(app, plan);
  addTasks(app, plan);
  addValidate(app, plan);
  addDoctor(app, plan);
  addStatus(app, plan);
  addLog(app, plan);
  addDecode(app, plan);
  addScenario(app, plan);
  addConsole(app, plan);
  addCompletion(app, plan);
  addVersion(app, plan);
  addHelp(app, plan);
}

int run(std::vector<std::string> words) {
  Plan plan;
  CLI::App app{"", "kelctl"};
  addVerbs(app, plan);
  try {
    std::reverse(words.begin(), words.end());  // the package takes the last one first
    app.parse(std::move(words));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kWrongUsage;
  }
  Output output(plan.json);
  setDefault("KELHANDLER_RELEASE_BLOCKS", "1");  // nothing here holds on to a block that the library would keep
  try {
    return plan.action(output);
  } catch (const ReaderGone&) {
    return kDone;
  } catch (const Fault& fault) {
    return failed(output, fault);
  } catch (const std::exception& error) {
    return failed(output, Fault(kRefused, error.what()));
  }
}

}  // namespace kelctl
