// SPDX-License-Identifier: MIT
#include "suggestion.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace kelctl {
namespace {

/// How many letters have to be put in, left out, replaced or exchanged with their neighbour.
std::size_t distance(const std::string& one, const std::string& other) {
  std::vector<std::size_t> before, last(other.size() + 1), row(other.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t i = 1; i <= one.size(); ++i) {
    row[0] = i;
    for (std::size_t k = 1; k <= other.size(); ++k) {
      const bool same = one[i - 1] == other[k - 1];
      row[k] = std::min({last[k] + 1, row[k - 1] + 1, last[k - 1] + (same ? 0 : 1)});
      const bool exchanged = i > 1 && k > 1 && one[i - 1] == other[k - 2] && one[i - 2] == other[k - 1];
      if (exchanged) row[k] = std::min(row[k], before[k - 2] + 1);
    }
    before = last;
    last = row;
  }
  return last.back();
}

}  // namespace

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
  return text;
}

std::string nearest(const std::string& word, const std::vector<std::string>& words) {
  const std::string wanted = lower(word);
  std::string found;
  std::size_t least = std::max<std::size_t>(2, wanted.size() / 3) + 1;
  for (const std::string& candidate : words) {
    const std::size_t d = distance(wanted, lower(candidate));
    if (d < least && d < candidate.size()) {
      least = d;
      found = candidate;
    }
  }
  return found;
}

std::string suggestion(const std::string& nearest) {
  return nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
}

}  // namespace kelctl
