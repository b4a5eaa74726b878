// SPDX-License-Identifier: MIT
#include "Json.h"

#include <algorithm>
#include <chrono>

namespace kel::console {
namespace {

std::optional<unsigned> valueOf(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return std::nullopt;
}

}  // namespace

std::string textOf(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string hexOf(Bytes bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::optional<Octets> fromHex(std::string_view text) {
  Octets octets;
  for (std::size_t at = 0; at < text.size(); at += 2) {
    while (at < text.size() && (text[at] == ' ' || text[at] == '\n')) ++at;
    if (at == text.size()) break;
    const auto high = valueOf(text[at]);
    const auto low = at + 1 < text.size() ? valueOf(text[at + 1]) : std::nullopt;
    if (!high || !low) return std::nullopt;
    octets.push_back(static_cast<std::uint8_t>(*high << 4 | *low));
  }
  return octets;
}

Json jsonOf(Form form, Bytes bytes, std::size_t shown) {
  return {{"form", form == Form::val ? "VAL" : "REF"},
          {"size", bytes.size()},
          {"hex", hexOf({bytes.data(), std::min(bytes.size(), shown)})}};
}

double now() {
  const auto time = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace kel::console
