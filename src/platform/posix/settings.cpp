// SPDX-License-Identifier: MIT
// Settings: ini files, the registry that is kept in one, and the environment.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/platform.h"
#include "platform/posix/errors.h"

namespace kel::platform {
namespace {

using std::string_view;

// An old end-of-file mark counts as a blank too.
constexpr string_view kBlanks = " \t\n\v\f\r\x1a";

string_view withoutBlanks(string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == text.npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

bool sameName(string_view one, string_view other) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
  return std::ranges::equal(one, other, {}, lower, lower);
}

// What can be read of a file: one that fails in the middle has what stands ahead of that.
std::optional<std::string> contentOf(const char* fileName) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(openToRead(fileName), &std::fclose);
  if (!file) return {};
  std::string content;
  char piece[4096];
  std::size_t size = 0;
  do {
    size = std::fread(piece, 1, sizeof piece, file.get());
    content.append(piece, size);
  } while (size == sizeof piece);
  return content;
}

// The value of the first key of that name in the first section of that name, without the blanks round it. What stands
// before the first head of a section belongs to one without a name. Nothing is looked for behind that first section,
// and a key without '=' hides a later one with it.
std::optional<string_view> findValue(string_view content, string_view section, string_view key) {
  constexpr string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (content.starts_with(kByteOrderMark)) content.remove_prefix(kByteOrderMark.size());
  section = withoutBlanks(section);
  key = withoutBlanks(key);

  bool inSection = section.empty();
  while (!content.empty()) {
    const std::size_t end = std::min(content.find_first_of("\r\n"), content.size() - 1);
    const string_view line = withoutBlanks(content.substr(0, end + 1));
    content.remove_prefix(end + 1);
    if (line.empty()) continue;
    if (const std::size_t close = line.rfind(']'); line.front() == '[' && close != line.npos) {
      if (inSection) return {};
      inSection = sameName(withoutBlanks(line.substr(1, close - 1)), section);
    } else if (inSection) {
      const std::size_t equals = line.find('=');
      if (!sameName(withoutBlanks(line.substr(0, equals)), key)) continue;
      if (equals == line.npos) return {};
      const string_view value = withoutBlanks(line.substr(equals + 1));
      return value.substr(0, value.find('\0'));
    }
  }
  return {};
}

bool isQuoted(string_view text) {
  return text.size() > 1 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front();
}

// One section for each key of HKEY_LOCAL_MACHINE, in a file of the working directory or else of the machine.
class Registry {
 public:
  explicit Registry(RegistryRoot root) {
    if (root != RegistryRoot::localMachine) return;
    mContent = contentOf("Brel.registry");
    if (!mContent) mContent = contentOf("/etc/Brel.registry");
  }

  std::optional<string_view> find(const char* subKey, const char* valueName) const {
    if (!mContent) return {};
    std::optional<string_view> value = findValue(*mContent, subKey, valueName);
    if (value && isQuoted(*value)) value = value->substr(1, value->size() - 2);
    return value;
  }

 private:
  std::optional<std::string> mContent;
};

// The whole text has to be the number.
bool readNumber(string_view text, int base, std::uint32_t* number) {
  std::uint32_t read = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), read, base);
  if (error != std::errc() || stop != text.data() + text.size()) return posix::fail(posix::kInvalidData);
  *number = read;
  return true;
}

bool readRegistryNumber(std::optional<string_view> text, std::uint32_t* number) {
  if (!text) return posix::fail(posix::kFileNotFound);
  const bool hexadecimal = text->starts_with("0x") || text->starts_with("0X");
  return readNumber(text->substr(hexadecimal ? 2 : 0), hexadecimal ? 16 : 10, number);
}

}  // namespace

std::uint32_t iniValue(const char* section, const char* key, const char* defaultText, char* value, std::uint32_t size,
                       const char* fileName) {
  if (size == 0) return 0;
  const std::optional<std::string> content = contentOf(fileName);
  const std::optional<string_view> found = content ? findValue(*content, section, key) : std::nullopt;
  string_view text = found ? *found : string_view(defaultText);
  if (!found) {
    while (text.size() > 1 && text.back() == ' ') text.remove_suffix(1);  // a single blank stays
  }

  const bool quoted = isQuoted(text);
  if (quoted) text.remove_prefix(1);
  // The closing quote is taken off behind the cut, so that a text which was cut by just the quote loses a character
  // more.
  const bool losesLast = quoted && text.size() <= size;
  text = text.substr(0, size - 1);
  if (losesLast && !text.empty()) text.remove_suffix(1);
  text.copy(value, text.size());
  value[text.size()] = '\0';
  return static_cast<std::uint32_t>(text.size());
}

bool registryNumber(RegistryRoot root, const char* subKey, const char* valueName, std::uint32_t* number) {
  return registryNumbers(root, subKey, 1, &valueName, number) == 1;
}

std::uint32_t registryNumbers(RegistryRoot root, const char* subKey, std::uint32_t count, const char* const* valueNames,
                              std::uint32_t* numbers) {
  const Registry registry(root);
  std::uint32_t read = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (readRegistryNumber(registry.find(subKey, valueNames[i]), &numbers[i])) ++read;
  }
  return read;
}

bool registryText(RegistryRoot root, const char* subKey, const char* valueName, std::string* text) {
  const Registry registry(root);
  const std::optional<string_view> found = registry.find(subKey, valueName);
  if (!found) return posix::fail(posix::kFileNotFound);
  text->assign(*found);
  return true;
}

bool environmentNumber(const char* name, std::uint32_t* number) {
  const char* text = std::getenv(name);
  return text != nullptr ? readNumber(text, 10, number) : posix::fail(posix::kVariableNotFound);
}

}  // namespace kel::platform
