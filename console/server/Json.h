/* SPDX-License-Identifier: MIT */
// What the page and the server tell each other, as JSON. docs/console.md has the table of requests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kel/payload.hpp"

namespace kel::console {

using Json = nlohmann::json;
using Octets = std::vector<std::uint8_t>;

/// Of a payload the page gets so many bytes at most. The rest of an answer can be fetched.
inline constexpr std::size_t kShownBytes = 4096;

/// One line. Bytes that are no UTF-8 are replaced.
std::string textOf(const Json& json);

std::string hexOf(Bytes bytes);
/// Nothing if the text has anything but pairs of digits, with blanks between them.
std::optional<Octets> fromHex(std::string_view text);

/// {"form", "size", "hex"}, with the first bytes.
Json jsonOf(Form form, Bytes bytes, std::size_t shown = kShownBytes);

/// Milliseconds since 1970, with a fraction.
double now();

}  // namespace kel::console
