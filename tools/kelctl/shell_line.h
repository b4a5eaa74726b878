/* SPDX-License-Identifier: MIT */
// A line of the shell: its words, and what the last of them may become.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kelctl {

/// The words of a line. Blanks part them, but within '...' and "..." and behind \; # begins a comment where a word
/// could begin. None if a quotation has no end.
std::optional<std::vector<std::string>> wordsOf(const std::string& line);

/// What the last word of an unfinished line may become, in order: verbs, options, and names of tasks where a task is
/// due. Words of the line that are no verb or option of `app` are passed over.
std::vector<std::string> candidates(const CLI::App& app, const std::string& line,
                                    const std::vector<std::string>& taskNames);

}  // namespace kelctl
