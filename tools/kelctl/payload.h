/* SPDX-License-Identifier: MIT */
// Payloads: what goes to a task and what comes back, and how people write and read it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelctl {

using Bytes = std::vector<std::uint8_t>;
using Values = std::array<std::uint32_t, 3>;

/// The 12 bytes of a VAL payload, and back; nothing for any other number of bytes.
Bytes fromValues(const Values& values);
std::optional<Values> toValues(const Bytes& payload);

/// "1 2 3"
std::string valuesText(const Values& values);

/// A whole number, decimal or with 0x; nothing for any other text.
std::optional<std::uint32_t> toNumber(const std::string& text);

/// Bytes from pairs of hexadecimal digits, with blanks between pairs or not; nothing for any other text.
std::optional<Bytes> fromHex(const std::string& text);
/// "01ff"
std::string toHex(const Bytes& payload);

/// The bytes of a text and its end mark, as the device's text tasks want it.
Bytes fromText(const std::string& text);
/// The text up to the end mark, or up to the last byte; what cannot be printed comes out as a dot.
std::string toText(const Bytes& payload);
/// The text of a payload that is one: printable ASCII and line breaks, with an end mark or not.
std::optional<std::string> toPlainText(const Bytes& payload);

/// Lines of offset, 16 bytes and their characters, each with a line feed.
std::string hexDump(const Bytes& payload);

/// Form and size, then the values or, on lines below, the bytes; with a line feed.
std::string payloadText(bool isRef, const Bytes& payload);

}  // namespace kelctl
