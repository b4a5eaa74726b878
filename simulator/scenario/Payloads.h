/* SPDX-License-Identifier: MIT */
// The forms that payloads have in a scenario, and the files that it names.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "Fields.h"

namespace kel::sim {

inline constexpr std::initializer_list<const char*> kPayloadKeys = {"values", "hex", "text", "file"};
inline constexpr std::initializer_list<const char*> kSeriesPayloadKeys = {"values", "hex", "text", "file", "size"};

/// The payload that an object tells with one of kPayloadKeys; null if there is none, or a mistake in it.
std::shared_ptr<const Payload> ReadPayload(Fields& fields, const std::string& folder, Mistakes& mistakes);

/// "0x" and one to eight digits.
std::optional<std::uint32_t> FromHexNumber(std::string_view text);

/// A file's name up to its last separator; empty if it has none.
std::string FolderOf(const std::string& fileName);
/// The name of a file in a folder. An absolute name stays as it is.
std::string InFolder(const std::string& folder, const std::string& fileName);

/// Reads a file whole. Returns what went wrong in words, or nothing.
std::string ReadBytes(const std::string& name, std::vector<std::uint8_t>& bytes);

}  // namespace kel::sim
