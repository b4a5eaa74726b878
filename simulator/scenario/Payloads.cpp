// SPDX-License-Identifier: MIT
#include "Payloads.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace kel::sim {
namespace {

constexpr std::size_t kValues = 3;
constexpr std::uint32_t kVal = 0;
constexpr std::uint32_t kRef = 1;

// A slash separates everywhere; a backslash and drives are there only where the system has them.
constexpr bool kHasDrives = std::filesystem::path::preferred_separator != '/';
constexpr const char* kSeparators = kHasDrives ? "/\\" : "/";

using Bytes = std::vector<std::uint8_t>;

std::optional<Bytes> FromValues(const Json& value) {
  Bytes bytes;
  for (const Json& item : value.items) {
    auto number = WholeNumber(item, 0, UINT32_MAX);
    if (item.kind == Json::Kind::kText) number = FromHexNumber(item.text);
    if (!number) return std::nullopt;
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<std::uint8_t>(*number >> shift));
  }
  if (value.kind != Json::Kind::kList || value.items.size() != kValues) return std::nullopt;
  return bytes;
}

/// Pairs of digits, with blanks between pairs if wanted.
std::optional<Bytes> FromHex(std::string_view text) {
  Bytes bytes;
  while (!text.empty()) {
    std::uint8_t byte = 0;
    if (text.size() < 2 || std::from_chars(text.data(), text.data() + 2, byte, 16).ptr != text.data() + 2) {
      return std::nullopt;
    }
    bytes.push_back(byte);
    text.remove_prefix(2);
    if (text.size() > 1 && text[0] == ' ') text.remove_prefix(1);
  }
  return bytes;
}

/// A scenario has its names in UTF-8, the command line and the environment in the system's encoding: where the two are
/// not the same, text of the second kind is no text of the first, but for ASCII.
std::ifstream Open(const std::string& name) {
  try {
    return std::ifstream(std::filesystem::path(std::u8string(name.begin(), name.end())), std::ios::binary);
  } catch (const std::filesystem::filesystem_error&) {
    return std::ifstream(name, std::ios::binary);
  }
}

}  // namespace

std::optional<std::uint32_t> FromHexNumber(std::string_view text) {
  std::uint32_t number = 0;
  const char* end = text.data() + text.size();
  if (!text.starts_with("0x") || text.size() < 3 || text.size() > 10) return std::nullopt;
  if (std::from_chars(text.data() + 2, end, number, 16).ptr != end) return std::nullopt;
  return number;
}

std::shared_ptr<const Payload> ReadPayload(Fields& fields, const std::string& folder, Mistakes& mistakes) {
  std::optional<Bytes> bytes;
  std::uint32_t type = kRef;
  if (const Json* values = fields.Find("values")) {
    type = kVal;
    bytes = FromValues(*values);
    if (!bytes) AddMistake(mistakes, *values, "three whole numbers from 0 to 4294967295, as [1, 2, \"0xff\"]");
  }
  if (const Json* hex = fields.FindText("hex")) {
    bytes = FromHex(hex->text);
    if (!bytes) AddMistake(mistakes, *hex, "pairs of hexadecimal digits");
  }
  if (const Json* text = fields.FindText("text")) {
    bytes.emplace(text->text.begin(), text->text.end()).push_back(0);
  }
  if (const Json* file = fields.FindFileName("file")) {
    const std::string fault = ReadBytes(InFolder(folder, file->text), bytes.emplace());
    if (!fault.empty()) AddMistake(mistakes, *file, "a file to read, but it " + fault);
  }
  if (!bytes) return nullptr;
  return std::make_shared<const Payload>(Payload{type, std::move(*bytes)});
}

std::string FolderOf(const std::string& fileName) { return fileName.substr(0, fileName.find_last_of(kSeparators) + 1); }

std::string InFolder(const std::string& folder, const std::string& fileName) {
  const bool absolute = fileName.find_first_of(kSeparators) == 0 || (kHasDrives && fileName.find(':') == 1);
  return absolute ? fileName : folder + fileName;
}

std::string ReadBytes(const std::string& name, std::vector<std::uint8_t>& bytes) {
  std::ifstream file = Open(name);
  if (!file) return std::string("cannot be opened: ") + std::strerror(errno);
  bytes.resize(kLargestScenarioFile + 1);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (file.bad()) return "cannot be read";
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  if (bytes.size() > kLargestScenarioFile) return "is larger than " + std::to_string(kLargestScenarioFile) + " bytes";
  return {};
}

}  // namespace kel::sim
