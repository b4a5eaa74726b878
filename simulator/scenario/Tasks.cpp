// SPDX-License-Identifier: MIT
#include "Tasks.h"

#include <algorithm>
#include <iterator>

namespace kel::sim {
namespace {

struct NamedTask {
  std::string_view name;
  std::uint32_t TUI;
};

constexpr NamedTask kTasks[] = {
#include "TaskNames.inc"  // made from the table when the build is configured
};

}  // namespace

std::optional<std::uint32_t> FindTask(std::string_view name) {
  const auto* found =
      std::find_if(std::begin(kTasks), std::end(kTasks), [name](const NamedTask& task) { return task.name == name; });
  if (found == std::end(kTasks)) return std::nullopt;
  return found->TUI;
}

}  // namespace kel::sim
