/* SPDX-License-Identifier: MIT */
// JSON with the line of each value, so that a mistake is reported with its line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Scenario.h"

namespace kel::sim {

struct Json {
  enum class Kind { kNull, kBool, kNumber, kText, kList, kObject };

  Kind kind = Kind::kNull;
  std::uint32_t line = 0;     ///< where it begins, from 1
  std::string key;            ///< of a member of an object
  std::uint32_t keyLine = 0;  ///< where that stands
  double number = 0;          ///< exact up to 53 bits, above all that a scenario takes
  std::string text;           ///< a text, or a number as it is written
  std::vector<Json> items;    ///< of a list, or an object's members
};

/// Reads a whole text. What is no JSON, nested too deeply or doubled is added to `mistakes`; none is given if the rest
/// could not be read.
std::optional<Json> ReadJson(std::string_view text, std::vector<Mistake>& mistakes);

/// A value as a mistake tells it: short, and without control characters.
std::string Describe(const Json& value);

}  // namespace kel::sim
