/* SPDX-License-Identifier: MIT */
// What was meant by a word that is not known.
#pragma once

#include <string>
#include <vector>

namespace kelctl {

/// In lower case, as far as it is ASCII.
std::string lower(std::string text);

/// The one of the words that is most like it, in any case; empty if none is near.
std::string nearest(const std::string& word, const std::vector<std::string>& words);

/// "; did you mean "send"?", or nothing.
std::string suggestion(const std::string& nearest);

}  // namespace kelctl
