/* SPDX-License-Identifier: MIT */
// Tables of any bytes whatever, and shipped ones with faults, by a seed.
#pragma once

#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include "catalogue/shipped_rows.h"

namespace kel::test {

using Random = std::mt19937;

inline std::uint32_t Below(Random& random, std::size_t limit) {
  return std::uniform_int_distribution<std::uint32_t>(0, static_cast<std::uint32_t>(limit) - 1)(random);
}

/// Bytes of all kinds, or of those that the format is made of.
inline std::string AnyBytes(Random& random) {
  constexpr std::string_view kOften = ",, \t\r\n0123456789xREFVALKEL_\xFF-+";
  const bool free = Below(random, 3) == 0;
  std::string bytes(Below(random, 2000), '\0');
  for (char& byte : bytes) byte = free ? static_cast<char>(Below(random, 256)) : kOften[Below(random, kOften.size())];
  return bytes;
}

/// Rows of the shipped table with a few faults in them.
inline std::string SpoiltTable(Random& random) {
  std::string table;
  for (std::uint32_t rows = Below(random, 8); rows > 0; --rows) {
    table += RowText(kShippedRows[Below(random, std::size(kShippedRows))]) + (Below(random, 2) ? "\r\n" : "\n");
  }
  for (std::uint32_t faults = Below(random, 4); faults > 0 && !table.empty(); --faults) {
    const std::uint32_t place = Below(random, table.size());
    switch (Below(random, 4)) {
      case 0:
        table.resize(place);
        break;
      case 1:
        table[place] = static_cast<char>(Below(random, 256));
        break;
      case 2:
        table.erase(place, 1 + Below(random, 20));
        break;
      default:
        table.insert(place, Below(random, 400), Below(random, 2) ? 'W' : ' ');
        break;
    }
  }
  return table;
}

/// One or the other; the same for the same seed.
inline std::string RandomTableText(std::uint32_t seed) {
  Random random(seed);
  return Below(random, 2) ? AnyBytes(random) : SpoiltTable(random);
}

}  // namespace kel::test
