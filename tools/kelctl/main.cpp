// kelctl: the device from the command line.
//
// Exit status: 0 success, 1 a call was refused or the outcome is not what was asked for, 2 wrong usage.
#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <memory>

#include "commands.h"
#include "in_flight.h"
#include "payload.h"

namespace {

using kelctl::ListenOptions;
using kelctl::PayloadOptions;
using kelctl::SendOptions;
using kelctl::StreamOptions;
using kelctl::ValidateOptions;

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

constexpr char kTableHelp[] = "Task table to use instead of the built-in one";

/// The package's check, without its word for it in the help.
CLI::Validator existingFile() { return CLI::ExistingFile.description(""); }

/// What the command line asks for, run once all of it was found to be right.
using Action = std::function<int()>;

void addDemo(CLI::App& app, Action& action) {
  auto progress = std::make_shared<bool>(false);
  CLI::App* verb = app.add_subcommand("demo", "Tour the library against the stand-in device");
  verb->add_flag("--progress", *progress, "Show a progress bar; for a terminal");
  verb->callback([progress, &action] { action = [progress] { return kelctl::demo(*progress); }; });
}

CLI::Option_group* addPayload(CLI::App& verb, PayloadOptions& payload) {
  CLI::Option_group* group =
      verb.add_option_group("Payload", "None: three zeros for a VAL task, nothing for a REF task");
  group->require_option(0, 1);
  group->add_option("--val", payload.values, "Three values, as in C: 10, 0xa")->expected(3)->type_name("A B C");
  group->add_option("--hex", payload.hex, "Bytes as pairs of hexadecimal digits")
      ->type_name("BYTES")
      ->check([](const std::string& text) {
        return kelctl::fromHex(text) ? std::string() : "\"" + text + "\" is not pairs of hexadecimal digits";
      });
  group->add_option("--text", payload.text, "A text and the zero byte that ends it");
  group->add_option("--in", payload.inFile, "Bytes from a file, - for standard input")->type_name("FILE");
  return group;
}

/// What each verb that sends a task takes.
void addTask(CLI::App& verb, std::string& task, std::string& table) {
  verb.add_option("TASK", task, "Name of the task; see `kelctl tasks`")->required();
  verb.add_option("--table", table, kTableHelp)->check(existingFile())->type_name("FILE");
}

void addSend(CLI::App& app, Action& action) {
  auto options = std::make_shared<SendOptions>();
  CLI::App* verb = app.add_subcommand("send", "Send a task and print its answer");
  addTask(*verb, options->task, options->table);
  addPayload(*verb, options->payload);
  verb->add_flag("--no-response", options->noResponse, "Do not wait for an answer");
  verb->add_option("--out", options->outFile, "Answer's bytes to a file, - for standard output")
      ->type_name("FILE")
      ->excludes("--no-response");
  verb->add_flag_callback(
          "--async", [options] { options->inFlight = options->inFlight.value_or(1); },
          "Send it asynchronously, and print what became of it")
      ->excludes("--no-response")
      ->excludes("--out");
  verb->add_option("--in-flight", options->inFlight, "Send it asynchronously N times, all at once (1 to 64)")
      ->type_name("N")
      ->check(CLI::Range(1u, kelctl::kMaxInFlight).description(""))
      ->excludes("--no-response")
      ->excludes("--out");
  verb->callback([options, &action] { action = [options] { return kelctl::send(*options); }; });
}

void addStream(CLI::App& app, Action& action) {
  auto options = std::make_shared<StreamOptions>();
  CLI::App* verb = app.add_subcommand("stream", "Send a task and print the stream that answers it");
  verb->footer("It ends with the stream, or with Ctrl-C. Messages that are not printed yet are kept in memory.\n" +
               app.get_footer());
  addTask(*verb, options->task, options->table);
  CLI::Option_group* payload = addPayload(*verb, options->payload);
  for (auto* option :
       {verb->add_option("--count", options->count, "Payload with the first value N: so many messages")->type_name("N"),
        verb->add_option("--interval", options->interval,
                         "Payload with the second value MS: so many milliseconds apart")
            ->type_name("MS")}) {
    payload->excludes(option);
  }
  verb->callback([options, &action] { action = [options] { return kelctl::stream(*options); }; });
}

void addListen(CLI::App& app, Action& action) {
  auto options = std::make_shared<ListenOptions>();
  CLI::App* verb = app.add_subcommand("listen", "Print broadcasts until Ctrl-C");
  verb->add_option("--count", options->count, "End after N broadcasts")
      ->type_name("N")
      ->check(CLI::PositiveNumber.description(""));
  verb->add_option("--for", options->seconds, "End after so many seconds")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 1e9).description(""));
  verb->add_flag("--trigger", options->trigger, "First ask the device for N broadcasts, or for one");
  verb->add_option("--table", options->table, kTableHelp)->check(existingFile())->type_name("FILE");
  verb->callback([options, &action] { action = [options] { return kelctl::listen(*options); }; });
}

void addValidate(CLI::App& app, Action& action) {
  auto options = std::make_shared<ValidateOptions>();
  CLI::App* verb = app.add_subcommand("validate", "Ask whether a file belongs to the device's software generation");
  verb->add_option("FILE", options->file, "The file")->required()->check(existingFile());
  verb->add_option("--vectors", options->vectors, "Folder of *VersionsVector.txt files (the working directory)")
      ->type_name("DIR")
      ->check(CLI::ExistingDirectory.description(""));
  verb->callback([options, &action] { action = [options] { return kelctl::validate(*options); }; });
}

void addTasks(CLI::App& app, Action& action) {
  auto table = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand("tasks", "List the task table");
  verb->add_option("--table", *table, "Table to list instead of the built-in one")
      ->check(existingFile())
      ->type_name("FILE");
  verb->callback([table, &action] { action = [table] { return kelctl::tasks(*table); }; });
}

void addScenario(CLI::App& app, Action& action) {
  auto file = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand("scenario", "Scenarios of the stand-in device")->require_subcommand(1);
  CLI::App* check = verb->add_subcommand("check", "Tell the mistakes of a scenario's file");
  check->add_option("FILE", *file, "The file")->required()->check(existingFile());
  check->callback([file, &action] { action = [file] { return kelctl::checkScenario(*file); }; });
}

void addVersion(CLI::App& app, Action& action) {
  app.add_subcommand("version", "Print the versions of library and kelctl")->callback([&action] {
    action = kelctl::version;
  });
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Talks to the device from the command line.", "kelctl"};
  app.require_subcommand(1);
  app.get_formatter()->column_width(24);
  app.footer("Exit status: 0 success, 1 a call refused or a wrong outcome, 2 wrong usage.");
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("kelctl: ") + error.what() + "\nRun it with --help for its usage.\n";
  });
  Action action;
  addDemo(app, action);
  addSend(app, action);
  addStream(app, action);
  addListen(app, action);
  addValidate(app, action);
  addTasks(app, action);
  addScenario(app, action);
  addVersion(app, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kWrongUsage;
  }
  try {
    return action();
  } catch (const std::exception& error) {
    std::cerr << "kelctl: " << error.what() << '\n';
    return kFailed;
  }
}
