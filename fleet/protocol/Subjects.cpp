// SPDX-License-Identifier: MIT
#include "protocol/Subjects.h"

#include <algorithm>
#include <charconv>

namespace kel::fleet {

bool isName(std::string_view name) {
  return !name.empty() && name.size() <= 64 && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  });
}

namespace {

/// Takes the last token of a subject off it.
std::optional<std::uint64_t> takeNumber(std::string_view& subject) {
  const std::size_t dot = subject.rfind('.');
  if (dot == std::string_view::npos) return std::nullopt;
  const std::string_view token = subject.substr(dot + 1);
  subject = subject.substr(0, dot);
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), number);
  if (error != std::errc() || end != token.data() + token.size()) return std::nullopt;
  return number;
}

}  // namespace

std::optional<FlowMark> flowMarkOf(std::string_view subject) {
  const std::optional<std::uint64_t> number = takeNumber(subject);
  const std::optional<std::uint64_t> stream = takeNumber(subject);
  if (!number || !stream) return std::nullopt;
  return FlowMark{*stream, *number};
}

}  // namespace kel::fleet
