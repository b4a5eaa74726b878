// SPDX-License-Identifier: MIT
#include "help.h"

#include <CLI/CLI.hpp>
#include <sstream>

#include "status.h"

namespace kelctl {
namespace {

constexpr std::size_t kWidth = 80;
constexpr std::size_t kColumn = 24;

/// A name and, in a column of its own, what it is for.
std::string entry(const std::string& name, const std::string& help) {
  return hanging("  " + name + "  ", help, kColumn);
}

std::string entryOf(const CLI::Option& option) {
  std::string name = option.get_name(option.get_positional(), !option.get_positional());
  if (const std::size_t comma = name.find(','); comma != std::string::npos) name.insert(comma + 1, " ");
  if (!option.get_positional() && !argumentOf(option).empty()) name += ' ' + argumentOf(option);
  return entry(name, option.get_description());
}

std::string usage(const CLI::App& app, const std::string& name) {
  std::string line = "Usage: " + name + " [OPTIONS]";
  for (const CLI::Option* option : positionalsOf(app)) {
    const std::string word = option->get_name(true);
    line += option->get_required() ? ' ' + word : " [" + word + ']';
  }
  if (!verbsOf(app).empty()) line += app.get_require_subcommand_min() != 0 ? " VERB" : " [VERB]";
  return line + '\n';
}

}  // namespace

std::string hanging(const std::string& head, const std::string& text, std::size_t column) {
  std::string lines, line = head;
  line.resize(std::max(line.size(), column), ' ');
  std::istringstream words(text);
  bool first = true;
  for (std::string word; words >> word; first = false) {
    if (!first && line.size() + 1 + word.size() >= kWidth) {
      lines += line + '\n';
      line.assign(column, ' ');
    } else if (!first) {
      line += ' ';
    }
    line += word;
  }
  return lines + line + '\n';
}

std::vector<const CLI::App*> verbsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* verb) { return !verb->get_name().empty(); });
}

std::string summaryOf(const CLI::App& app) {
  const std::string description = app.get_description();
  return description.substr(0, description.find('\n'));
}

std::vector<const CLI::Option*> positionalsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

std::vector<const CLI::Option*> namedOptionsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

std::string argumentOf(const CLI::Option& option) {
  if (option.get_positional()) return option.get_name(true);
  return option.get_type_size() == 0 ? "" : option.get_type_name();
}

std::string helpOf(const CLI::App* app, const std::string& name) {
  const std::string summary = summaryOf(*app);
  std::string help = usage(*app, name) + summary + '.' + app->get_description().substr(summary.size()) + '\n';
  if (!positionalsOf(*app).empty()) help += '\n';
  for (const CLI::Option* option : positionalsOf(*app)) help += entryOf(*option);
  if (!verbsOf(*app).empty()) help += "\nVerbs:\n";
  for (const CLI::App* verb : verbsOf(*app)) help += entry(verb->get_name(), summaryOf(*verb));
  for (const std::string& group : app->get_groups()) {
    std::string entries;
    for (const CLI::Option* option : namedOptionsOf(*app)) {
      if (option->get_group() == group) entries += entryOf(*option);
    }
    if (!entries.empty()) help += '\n' + group + ":\n" + entries;
  }
  help += "\nExit status:\n" + statusTable();
  std::istringstream examples(app->get_footer());
  if (examples.peek() != std::istringstream::traits_type::eof()) help += "\nExamples:\n";
  for (std::string line; std::getline(examples, line);) help += "  $ " + line + '\n';
  return help;
}

}  // namespace kelctl
