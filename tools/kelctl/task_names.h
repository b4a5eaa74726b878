/* SPDX-License-Identifier: MIT */
// Tasks as people name them, and whether a payload fits one.
#pragma once

#include <string>

#include "kel/task_table.hpp"
#include "options.h"
#include "payload.h"

namespace kelctl {

/// The names of a task table.
class TaskNames {
 public:
  /// An empty name is the library's choice. Throws Fault for a table that cannot be read through.
  explicit TaskNames(const std::string& tableFile) : TaskNames(tableFile, true) {}
  /// Those of a device. One elsewhere may have other tasks, unless a table is named: then names that are not known here
  /// are for the device to know.
  explicit TaskNames(const LinkOptions& link)
      : TaskNames(link.table, !link.device.isElsewhere() || !link.table.empty()) {}

  /// The task that a word stands for: its name, in any case, or without TASK_ID_ if no other task ends so; or its TUI,
  /// decimal or with 0x. Throws Fault.
  std::string find(const std::string& word) const;

  bool has(const std::string& name) const { return mTable.find(name).has_value(); }

  /// Throws Fault for a payload that the task's form does not allow.
  void check(const std::string& task, const PayloadOptions& options, const Bytes& payload) const;

 private:
  TaskNames(const std::string& tableFile, bool knowsAll);
  std::vector<std::string> matching(const std::string& word) const;

  const kel::TaskTable mTable;
  const bool mKnowsAll;
};

}  // namespace kelctl
