// SPDX-License-Identifier: MIT
/**
 * @file
 * Texts from Brel.ini, read as the library reads them.
 */
#pragma once

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "kel/detail/windows.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

/** The library reads texts into a buffer of this size, end mark included. */
inline constexpr std::size_t kIniTextSize = 1024;

#ifdef _WIN32

/** The text of a key, or the default, which has no quotes and no blanks round it. The file's name says its folder. */
inline std::string iniText(const char* fileName, const char* section, const char* key, const char* defaultText) {
  char text[kIniTextSize];
  const DWORD size =
      GetPrivateProfileStringA(section, key, defaultText, text, static_cast<DWORD>(sizeof text), fileName);
  return std::string(text, size);
}

#else

/** Without the blanks round it. An old end-of-file mark counts as a blank too. */
inline std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\n\v\f\r\x1a";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == text.npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

inline bool isSameName(std::string_view one, std::string_view other) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [&](char a, char b) { return lower(a) == lower(b); });
}

/**
 * The value of the first key of that name in the first section of that name, without the blanks round it. What stands
 * before the first head of a section belongs to one without a name. Nothing is looked for behind that first section,
 * and a key without '=' hides a later one with it.
 */
inline std::optional<std::string_view> findIniValue(std::string_view content, std::string_view section,
                                                    std::string_view key) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (content.substr(0, kByteOrderMark.size()) == kByteOrderMark) content.remove_prefix(kByteOrderMark.size());
  section = withoutBlanks(section);
  key = withoutBlanks(key);

  bool isInSection = section.empty();
  while (!content.empty()) {
    const std::size_t end = (std::min)(content.find_first_of("\r\n"), content.size() - 1);
    const std::string_view line = withoutBlanks(content.substr(0, end + 1));
    content.remove_prefix(end + 1);
    if (line.empty()) continue;
    const std::size_t close = line.rfind(']');
    if (line.front() == '[' && close != line.npos) {
      if (isInSection) return std::nullopt;
      isInSection = isSameName(withoutBlanks(line.substr(1, close - 1)), section);
    } else if (isInSection) {
      const std::size_t equals = line.find('=');
      if (!isSameName(withoutBlanks(line.substr(0, equals)), key)) continue;
      if (equals == line.npos) return std::nullopt;
      const std::string_view value = withoutBlanks(line.substr(equals + 1));
      return value.substr(0, value.find('\0'));
    }
  }
  return std::nullopt;
}

/** The text of a key, or the default, which has no quotes and no blanks round it. */
inline std::string iniText(const char* fileName, const char* section, const char* key, const char* defaultText) {
  // Byte by byte, so that a file that fails in the middle has what stands ahead of that. A folder has nothing.
  std::ifstream file(fileName, std::ios::binary);
  std::string content;
  for (char byte = 0; file.get(byte);) content.push_back(byte);
  const std::optional<std::string_view> value = findIniValue(content, section, key);
  if (!value) return defaultText;

  std::string_view text = *value;
  const bool isQuoted = text.size() > 1 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front();
  if (isQuoted) text.remove_prefix(1);
  // The closing quote is taken off behind the cut: a text that was cut by just the quote loses a character more.
  const bool losesLast = isQuoted && text.size() <= kIniTextSize;
  text = text.substr(0, kIniTextSize - 1);
  if (losesLast) text.remove_suffix(1);
  return std::string(text);
}

#endif

/** The table that a connect without a path reads. Empty where the settings say so, which is no file's name. */
inline std::string tablePathOfSettings() {
#ifdef _WIN32
  constexpr const char* kBrelIni = ".\\Brel.ini";
#else
  constexpr const char* kBrelIni = "./Brel.ini";
#endif
  return iniText(kBrelIni, "Common", "TUIsFilePath", "KEL_ALLTASKS.csv");
}

}  // namespace detail
}  // namespace v1
}  // namespace kel
