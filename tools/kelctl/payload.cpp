// SPDX-License-Identifier: MIT
#include "payload.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace kelctl {
namespace {

constexpr std::size_t kBytesPerLine = 16;

char printable(std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.'; }

int hexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  const char lower = static_cast<char>(digit | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

// Both targets are little-endian, as payloads are, so that values are copied as they lie.
Bytes fromValues(const Values& values) {
  Bytes payload(sizeof values);
  std::memcpy(payload.data(), values.data(), sizeof values);
  return payload;
}

std::optional<Values> toValues(const Bytes& payload) {
  Values values{};
  if (payload.size() != sizeof values) return std::nullopt;
  std::memcpy(values.data(), payload.data(), sizeof values);
  return values;
}

std::string valuesText(const Values& values) {
  return std::to_string(values[0]) + ' ' + std::to_string(values[1]) + ' ' + std::to_string(values[2]);
}

std::optional<std::uint32_t> toNumber(const std::string& text) {
  const bool isHex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  std::uint32_t number = 0;
  const auto [end, error] =
      std::from_chars(text.data() + (isHex ? 2 : 0), text.data() + text.size(), number, isHex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<Bytes> fromHex(const std::string& text) {
  Bytes payload;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    if (i == text.size()) break;
    const int high = hexDigit(text[i]);
    const int low = i + 1 < text.size() ? hexDigit(text[i + 1]) : -1;
    if (high < 0 || low < 0) return std::nullopt;
    payload.push_back(static_cast<std::uint8_t>(high * 16 + low));
  }
  return payload;
}

std::string toHex(const Bytes& payload) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : payload) text += {kDigits[byte >> 4], kDigits[byte & 15]};
  return text;
}

Bytes fromText(const std::string& text) { return {text.c_str(), text.c_str() + text.size() + 1}; }

std::string toText(const Bytes& payload) {
  std::string text;
  std::transform(payload.begin(), std::find(payload.begin(), payload.end(), 0), std::back_inserter(text), printable);
  return text;
}

std::optional<std::string> toPlainText(const Bytes& payload) {
  const auto end = payload.end() - (!payload.empty() && payload.back() == 0 ? 1 : 0);
  const auto plain = [](std::uint8_t byte) { return (byte >= 0x20 && byte < 0x7F) || (byte >= '\t' && byte <= '\r'); };
  if (payload.begin() == end || !std::all_of(payload.begin(), end, plain)) return std::nullopt;
  return std::string(payload.begin(), end);
}

std::string hexDump(const Bytes& payload) {
  std::string dump;
  char cell[32];
  for (std::size_t line = 0; line < payload.size(); line += kBytesPerLine) {
    const std::size_t end = std::min(line + kBytesPerLine, payload.size());
    std::snprintf(cell, sizeof cell, "%08x ", static_cast<unsigned>(line));
    dump += cell;
    for (std::size_t i = line; i < line + kBytesPerLine; ++i) {
      if (i == line + kBytesPerLine / 2) dump += ' ';
      std::snprintf(cell, sizeof cell, i < end ? " %02x" : "   ", i < end ? payload[i] : 0u);
      dump += cell;
    }
    dump += "  |";
    for (std::size_t i = line; i < end; ++i) dump += printable(payload[i]);
    dump += "|\n";
  }
  return dump;
}

std::string payloadText(bool isRef, const Bytes& payload) {
  char head[32];
  std::snprintf(head, sizeof head, "%s %6zu bytes", isRef ? "REF" : "VAL", payload.size());
  const std::optional<Values> values = toValues(payload);
  if (values && !isRef) return head + ("  " + valuesText(*values)) + '\n';
  return head + ('\n' + hexDump(payload));
}

}  // namespace kelctl
