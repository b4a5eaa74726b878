// SPDX-License-Identifier: MIT
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "files.h"
#include "options.h"
#include "table_check.h"
#include "task_table.h"
#include "text_search.h"

namespace kelctl {
namespace {

/// Of `tasks` and the verbs below it.
struct TasksOptions {
  std::string table;
  std::string query;
  std::string file;
};

// The library keeps a row's name and number. The other columns are shown as the number has them, which is what counts
// when a task is sent, whatever the table says.
void printTasks(const std::string& verb, const std::vector<Task>& tasks, Output& output) {
  if (output.json()) {
    Json list = Json::array();
    for (const Task& task : tasks) list.push_back(tuiJson(task.name, task.tui));
    return output.object({{"verb", verb}, {"tasks", list}});
  }
  std::string text;
  if (output.terminal()) text = output.faint("TUI      TYPE  PRI  TARGET       NAME") + '\n';
  for (const Task& task : tasks) {
    char row[64];
    std::snprintf(row, sizeof row, output.terminal() ? "%s  %-4s  %3u  %-11s  " : "%s\t%s\t%u\t%s\t",
                  tuiText(task.tui).c_str(), typeWord(task.tui).c_str(), priorityOf(task.tui),
                  targetWord(task.tui).c_str());
    text += row + task.name + '\n';
  }
  if (output.terminal()) text += '\n' + std::to_string(tasks.size()) + " tasks\n";
  output.text(text);
}

int list(const TasksOptions& options, Output& output) {
  printTasks("tasks list", readTable(options.table), output);
  return kDone;
}

int find(const TasksOptions& options, Output& output) {
  std::vector<Task> table = readTable(options.table);
  if (const auto tui = toNumber(options.query)) {
    const std::string name = nameOf(table, *tui);
    if (output.json()) {
      output.object({{"verb", "tasks find"}, {"tasks", Json::array({tuiJson(name, *tui)})}});
    } else {
      output.text(tuiText(name, *tui));
    }
    return kDone;
  }
  std::erase_if(table, [&](const Task& task) { return !contains(task.name, options.query); });
  if (!table.empty() || output.json()) printTasks("tasks find", table, output);
  if (!table.empty()) return kDone;
  std::cerr << "kelctl: no task has \"" << options.query << "\" in its name. `kelctl tasks` lists them all.\n";
  return kRefused;
}

int check(const TasksOptions& options, Output& output) {
  const TableFindings findings = checkTable(readTableFile(options.file));
  if (output.json()) {
    Json faults = Json::array();
    for (const TableFault& fault : findings.faults) faults.push_back({{"line", fault.line}, {"text", fault.text}});
    output.object({{"verb", "tasks check"}, {"file", options.file}, {"rows", findings.rows}, {"faults", faults}});
  } else {
    std::string text;
    for (const TableFault& fault : findings.faults) {
      text += options.file + ':' + std::to_string(fault.line) + ": " + fault.text + '\n';
    }
    const std::size_t count = findings.faults.size();
    const std::string verdict =
        count == 0 ? output.good("no faults") : output.bad(std::to_string(count) + (count == 1 ? " fault" : " faults"));
    output.text(text + options.file + ": " + std::to_string(findings.rows) + " tasks, " + verdict + '\n');
  }
  return findings.faults.empty() ? kDone : kRefused;
}

}  // namespace

void addTasks(CLI::App& app, Plan& plan) {
  const auto shared = std::make_shared<TasksOptions>();
  auto [tasks, options] = addVerb<TasksOptions>(app, plan, "tasks", "List, search or check a task table",
                                                "kelctl tasks\n"
                                                "kelctl tasks --table own.csv\n"
                                                "kelctl tasks find debug\n"
                                                "kelctl tasks find 0x38240\n"
                                                "kelctl tasks check own.csv\n",
                                                list, shared);
  addTable(tasks, options.table);

  CLI::App& listed = addVerb(tasks, plan, "list", "List the task table; `kelctl tasks` does so as well",
                             "kelctl tasks list --json\n"
                             "kelctl tasks list | cut -f 5\n",
                             list, shared)
                         .first;
  addTable(listed, options.table);

  CLI::App& found = addVerb(tasks, plan, "find", "Find tasks by a part of the name, or take a TUI apart",
                            "kelctl tasks find debug\n"
                            "kelctl tasks find 0x38240\n",
                            find, shared)
                        .first;
  addQuery(found, options.query, "Part of a name, in any case; or a TUI, decimal or with 0x");
  addTable(found, options.table);

  CLI::App& checked =
      addVerb(tasks, plan, "check", "Check a task table, line by line", "kelctl tasks check own.csv\n", check, shared)
          .first;
  addFile(checked, options.file, "The table");
}

}  // namespace kelctl
