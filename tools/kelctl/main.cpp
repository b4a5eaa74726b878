// kelctl: the device from the command line.
//
// Exit status: 0 success, 1 a call was refused or the outcome is not what was asked for, 2 wrong usage.
#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <memory>

#include "commands.h"
#include "payload.h"

namespace {

using kelctl::ListenOptions;
using kelctl::SendOptions;

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

constexpr char kTableHelp[] = "Task table to use instead of the built-in one";

/// The package's check, without its word for it in the help.
CLI::Validator existingFile() { return CLI::ExistingFile.description(""); }

/// What the command line asks for, run once all of it was found to be right.
using Action = std::function<int()>;

void addDemo(CLI::App& app, Action& action) {
  app.add_subcommand("demo", "Tour the library against the stand-in device")->callback([&action] {
    action = kelctl::demo;
  });
}

void addSend(CLI::App& app, Action& action) {
  auto options = std::make_shared<SendOptions>();
  CLI::App* verb = app.add_subcommand("send", "Send a task and print its answer");
  verb->add_option("TASK", options->task, "Name of the task; see `kelctl tasks`")->required();
  CLI::Option_group* payload =
      verb->add_option_group("Payload", "None: three zeros for a VAL task, nothing for a REF task");
  payload->require_option(0, 1);
  payload->add_option("--val", options->values, "Three values, as in C: 10, 0xa")->expected(3)->type_name("A B C");
  payload->add_option("--hex", options->hex, "Bytes as pairs of hexadecimal digits")
      ->type_name("BYTES")
      ->check([](const std::string& text) {
        return kelctl::fromHex(text) ? std::string() : "\"" + text + "\" is not pairs of hexadecimal digits";
      });
  payload->add_option("--text", options->text, "A text and the zero byte that ends it");
  payload->add_option("--in", options->inFile, "Bytes from a file, - for standard input")->type_name("FILE");
  verb->add_flag("--no-response", options->noResponse, "Do not wait for an answer");
  verb->add_option("--table", options->table, kTableHelp)->check(existingFile())->type_name("FILE");
  verb->add_option("--out", options->outFile, "Answer's bytes to a file, - for standard output")
      ->type_name("FILE")
      ->excludes("--no-response");
  verb->callback([options, &action] { action = [options] { return kelctl::send(*options); }; });
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

void addTasks(CLI::App& app, Action& action) {
  auto table = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand("tasks", "List the task table");
  verb->add_option("--table", *table, "Table to list instead of the built-in one")
      ->check(existingFile())
      ->type_name("FILE");
  verb->callback([table, &action] { action = [table] { return kelctl::tasks(*table); }; });
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
  addListen(app, action);
  addTasks(app, action);
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
