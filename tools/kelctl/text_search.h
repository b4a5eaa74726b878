/* SPDX-License-Identifier: MIT */
// Looking for words as people type them.
#pragma once

#include <algorithm>
#include <cctype>
#include <string>

namespace kelctl {

/// Whether a part stands in a text, whatever its case. The empty part stands in every text.
inline bool contains(const std::string& text, const std::string& part) {
  const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
  return part.empty() || std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

}  // namespace kelctl
