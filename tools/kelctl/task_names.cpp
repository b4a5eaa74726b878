// SPDX-License-Identifier: MIT
#include "task_names.h"

#include "files.h"
#include "settings.h"
#include "suggestion.h"

namespace kelctl {
namespace {

constexpr std::string_view kPrefix = "task_id_";
constexpr std::uint32_t kTuiMask = 0xFFFFFF;  // without the sequence byte

/// What of a name tells it from others.
std::string_view withoutPrefix(std::string_view name) {
  return name.substr(0, kPrefix.size()) == kPrefix ? name.substr(kPrefix.size()) : name;
}

}  // namespace

TaskNames::TaskNames(const std::string& tableFile, bool knowsAll)
    : mTable(kel::TaskTable::inForce(libraryFile(tableOf(tableFile)))), mKnowsAll(knowsAll) {
  if (mTable.size() != 0 || !knowsAll) return;
  throw Fault(kRefused, (tableFile.empty() ? "KEL_ALLTASKS.csv, or the table that Brel.ini names" : tableFile) +
                            ": this task table cannot be read through.\n`kelctl tasks check` tells why.");
}

std::string TaskNames::find(const std::string& word) const {
  if (has(word)) return word;
  if (const std::optional<std::uint32_t> tui = toNumber(word)) {
    for (auto row = mTable.rows().rbegin(); row != mTable.rows().rend(); ++row) {
      if (row->tui == (*tui & kTuiMask)) return row->name;
    }
  }
  const std::vector<std::string> names = matching(word);
  if (names.size() == 1) return names.front();
  if (names.empty() && !mKnowsAll) return word;
  std::string text = "no task " + word;
  if (!names.empty()) {
    text = "which task " + word + " is: " + names[0] + " or " + names[1] + "?";
  } else {
    std::vector<std::string> all;
    for (const kel::TaskTable::Row& row : mTable.rows()) all.push_back(row.name);
    std::string similar = nearest(word, all);
    if (similar.empty()) similar = nearest(std::string("task_id_") + word, all);
    text += similar.empty() ? "." : suggestion(similar);
  }
  throw Fault(kNoTask, text + "\n`kelctl tasks` lists the tasks of the table in force.", "unknown-task");
}

void TaskNames::check(const std::string& task, const PayloadOptions& options, const Bytes& payload) const {
  const std::optional<std::uint32_t> tui = mTable.find(task);
  if (options.force || !tui || kel::formOf(*tui) != kel::Form::val) return;
  if (!options.text && (payload.empty() || payload.size() == sizeof(Values))) return;
  throw Fault(kWrongUsage,
              task + " is a VAL task: it takes three values, --val A B C, or nothing.\n--force sends " +
                  std::to_string(payload.size()) + " bytes all the same.",
              "wrong-form");
}

std::vector<std::string> TaskNames::matching(const std::string& word) const {
  const std::string wanted = lower(word);
  std::vector<std::string> whole, parts;
  for (const kel::TaskTable::Row& row : mTable.rows()) {
    const std::string name = lower(row.name);
    if (name == wanted) whole.push_back(row.name);
    if (withoutPrefix(name) == wanted) parts.push_back(row.name);
  }
  return whole.empty() ? parts : whole;
}

}  // namespace kelctl
