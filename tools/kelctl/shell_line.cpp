// SPDX-License-Identifier: MIT
#include "shell_line.h"

#include <CLI/App.hpp>
#include <algorithm>

#include "help.h"

namespace kelctl {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

const CLI::App* verbOf(const CLI::App& app, const std::string& word) {
  for (const CLI::App* verb : verbsOf(app)) {
    if (verb->get_name() == word) return verb;
  }
  return nullptr;
}

const CLI::Option* optionOf(const CLI::App& app, const std::string& word) {
  for (const CLI::Option* option : namedOptionsOf(app)) {
    if (option->check_name(word)) return option;
  }
  return nullptr;
}

}  // namespace

std::optional<std::vector<std::string>> wordsOf(const std::string& line) {
  std::vector<std::string> words;
  bool inWord = false;
  char quote = '\0';
  for (std::size_t at = 0; at < line.size(); ++at) {
    const char c = line[at];
    if (quote == '\0' && isBlank(c)) {
      inWord = false;
      continue;
    }
    if (!inWord) {
      if (c == '#') break;
      words.emplace_back();
      inWord = true;
    }
    if (c == quote) {
      quote = '\0';
    } else if (quote == '\0' && (c == '\'' || c == '"')) {
      quote = c;
    } else if (c == '\\' && quote != '\'' && at + 1 < line.size()) {
      words.back() += line[++at];
    } else {
      words.back() += c;
    }
  }
  if (quote != '\0') return std::nullopt;
  return words;
}

std::vector<std::string> candidates(const CLI::App& app, const std::string& line,
                                    const std::vector<std::string>& taskNames) {
  std::vector<std::string> words = wordsOf(line).value_or(std::vector<std::string>());
  if (line.empty() || isBlank(line.back())) words.emplace_back();
  if (words.empty()) return {};
  const std::string last = words.back();
  words.pop_back();

  const CLI::App* verb = &app;
  const CLI::Option* option = nullptr;  // whose argument is due
  for (const std::string& word : words) {
    if (const CLI::App* next = verbOf(*verb, word)) verb = next;
    option = optionOf(*verb, word);
  }

  std::vector<std::string> all;
  const std::string argument = option == nullptr ? "" : argumentOf(*option);
  if (argument.empty()) {
    for (const CLI::App* next : verbsOf(*verb)) all.push_back(next->get_name());
    for (const CLI::Option* named : namedOptionsOf(*verb)) {
      for (const std::string& name : named->get_lnames()) all.push_back("--" + name);
    }
  }
  const auto places = positionalsOf(*verb);
  if (argument == "TASK" || (argument.empty() && !places.empty() && argumentOf(*places.front()) == "TASK")) {
    all.insert(all.end(), taskNames.begin(), taskNames.end());
  }
  std::erase_if(all, [&](const std::string& word) { return word.compare(0, last.size(), last) != 0; });
  std::sort(all.begin(), all.end());
  return all;
}

}  // namespace kelctl
