// SPDX-License-Identifier: MIT
#include <CLI/App.hpp>
#include <iostream>
#include <memory>

#include "command_line.h"
#include "interrupt.h"
#include "options.h"
#include "platform/line_editor.h"
#include "platform/standard_streams.h"
#include "session.h"
#include "shell_line.h"
#include "task_table.h"

namespace kelctl {
namespace {

struct ShellOptions {
  bool keepGoing = false;
};

std::vector<std::string> taskNames() {
  std::vector<std::string> names;
  for (const Task& task : readTable("")) names.push_back(task.name);
  return names;
}

/// Runs one line. Returns its status, or none for a line that asks for the end.
std::optional<int> runLine(const std::string& line, bool json) {
  std::optional<std::vector<std::string>> words = wordsOf(line);
  if (!words) {
    std::cerr << "kelctl: a quotation has no end\n";
    return kWrongUsage;
  }
  if (words->empty()) return kDone;
  if (words->front() == "exit" || words->front() == "quit") return std::nullopt;
  if (words->front() == "shell") {
    std::cerr << "kelctl: this is the shell\n";
    return kWrongUsage;
  }
  if (json) words->insert(words->begin() + 1, "--json");
  forgetInterrupt();
  return run(std::move(*words));
}

int runPerson(bool json) {
  Plan unused;
  CLI::App app{"", "kelctl"};
  addVerbs(app, unused);
  const std::vector<std::string> names = taskNames();
  LineEditor editor("kel> ", historyFile(),
                    [&](const std::string& beginning) { return candidates(app, beginning, names); });
  std::optional<std::string> line;
  while ((line = editor.next()) && runLine(*line, json)) {
  }
  return kDone;
}

/// Ends at the first line that fails, or goes on; the status is that of the first that failed.
int runBatch(const ShellOptions& options, bool json) {
  int result = kDone;
  std::string line;
  for (std::uint32_t number = 1; std::getline(std::cin, line) && !interrupted(); ++number) {
    const std::optional<int> status = runLine(line, json);
    if (!status) break;
    if (*status == kDone) continue;
    std::cerr << "kelctl: line " << number << " ended with status " << *status << '\n';
    if (result == kDone) result = *status;
    if (!options.keepGoing) break;
  }
  return result;
}

int shell(const ShellOptions& options, Output& output) {
  catchInterrupt();
  const KeptDevice device;
  return isTerminal(stdin) ? runPerson(output.json()) : runBatch(options, output.json());
}

}  // namespace

void addShell(CLI::App& app, Plan& plan) {
  auto [verb, options] = addVerb<ShellOptions>(
      app, plan, "shell",
      "Keep one connection, and read verbs from lines\n"
      "Lines share the connection as long as their options for it are the same.\n"
      "A line is what would follow kelctl: words, '...' and \"...\" around those with\n"
      "blanks, # for a comment. exit or Ctrl-D ends it. At a terminal lines are edited,\n"
      "kept for the next time, and completed by the tabulator. From a file or pipe it\n"
      "stops at the first line that fails, with its status.",
      "kelctl shell\n"
      "kelctl shell <lines.txt\n"
      "kelctl shell --keep-going --json <lines.txt\n",
      shell);
  addFlag(verb, "--keep-going", options.keepGoing, "Go on when a line fails");
}

}  // namespace kelctl
