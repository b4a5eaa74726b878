// SPDX-License-Identifier: MIT
// The task table: reading it, and finding a task in it.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue/BrelTUIsList.h"
#include "client.h"

namespace {

/// The list of the built-in table: an empty name cannot be opened.
void Name(kel::BrelTUIsList& list) { list.SetTUIsFile(nullptr, ""); }

std::string_view ReadTableText() {
  static kel::BrelTUIsList list;
  const char* name = nullptr;
  const char* text = nullptr;
  std::uint32_t length = 0;
  Name(list);
  if (!list.ReadTUIs() || !list.RetrieveRawTUIsList(&name, &text, &length)) std::abort();
  return {text, length};
}

std::string_view TableText() {
  static const std::string_view text = ReadTableText();
  return text;
}

void LoadTaskTable(benchmark::State& state) {
  bench::EnterScratchFolder();
  for (auto _ : state) {
    kel::BrelTUIsList list;
    Name(list);
    if (!list.ReadTUIs()) return state.SkipWithError("the table was not read");
  }
}
BENCHMARK(LoadTaskTable)->Iterations(2000)->UseRealTime();

struct PlainTable {
  std::map<std::string, std::uint32_t, std::less<>> tuiByName;
  std::map<std::uint32_t, std::string> nameByTui;

  PlainTable() {
    constexpr int kDecimalTui = 6;
    std::string_view rest = TableText();
    while (!rest.empty()) {
      const std::string_view row = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(std::min(row.size() + 1, rest.size()));
      const std::string name(row.substr(0, row.find(',')));
      std::size_t field = 0;
      for (int i = 0; i < kDecimalTui; ++i) field = row.find(',', field) + 1;
      field = row.find_first_not_of(' ', field);
      std::uint32_t tui = 0;
      std::from_chars(row.data() + field, row.data() + row.size(), tui);
      tuiByName.emplace(name, tui);
      nameByTui.emplace(tui, name);
    }
  }
};

/// The same maps, filled by the least that finds name and number.
void SplitTaskTable(benchmark::State& state) {
  for (auto _ : state) {
    const PlainTable table;
    benchmark::DoNotOptimize(&table);
  }
}
BENCHMARK(SplitTaskTable)->Iterations(2000)->UseRealTime();

std::vector<std::string> Names(const PlainTable& table) {
  std::vector<std::string> names;
  for (const auto& [name, tui] : table.tuiByName) names.push_back(name);
  return names;
}

void FindTuiByName(benchmark::State& state) {
  bench::EnterScratchFolder();
  kel::BrelTUIsList list;
  Name(list);
  if (!list.ReadTUIs()) return state.SkipWithError("the table was not read");
  const std::vector<std::string> names = Names(PlainTable());
  std::size_t next = 0;
  for (auto _ : state) {
    std::uint32_t tui = 0;
    if (!list.FindTuiByName("FindTuiByName", names[next], &tui)) return state.SkipWithError("a task is missing");
    benchmark::DoNotOptimize(tui);
    if (++next == names.size()) next = 0;
  }
}
BENCHMARK(FindTuiByName)->Iterations(1000000)->UseRealTime();

void MapLookup(benchmark::State& state) {
  const PlainTable table;
  const std::vector<std::string> names = Names(table);
  std::size_t next = 0;
  for (auto _ : state) {
    const auto found = table.tuiByName.find(names[next]);
    if (found == table.tuiByName.end()) return state.SkipWithError("a task is missing");
    benchmark::DoNotOptimize(found->second);
    if (++next == names.size()) next = 0;
  }
}
BENCHMARK(MapLookup)->Iterations(1000000)->UseRealTime();

}  // namespace
