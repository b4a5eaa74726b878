/* SPDX-License-Identifier: MIT */
// What --help prints: from the option tree, wrapped to 80 columns, in the order and under the headings that a man page
// is made from.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace kelctl {

/// `name` is the verb with those above it: "kelctl tasks find".
std::string helpOf(const CLI::App* app, const std::string& name);

/// A head, and behind it a text whose lines begin in a column of their own and fit a terminal.
std::string hanging(const std::string& head, const std::string& text, std::size_t column);

// The tree as it is shown, here and in the completions.
std::vector<const CLI::App*> verbsOf(const CLI::App& app);
/// The first line of a verb's description; the others are for its own help.
std::string summaryOf(const CLI::App& app);
/// What follows the verb by place, and what by name.
std::vector<const CLI::Option*> positionalsOf(const CLI::App& app);
std::vector<const CLI::Option*> namedOptionsOf(const CLI::App& app);
/// What an option takes: FILE, TASK, N, ...; empty for a flag.
std::string argumentOf(const CLI::Option& option);

}  // namespace kelctl
