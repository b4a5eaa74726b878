// SPDX-License-Identifier: MIT
// Ini files, and the registry that is kept in one. The input is a question in four lines - section, key, default, room
// - and behind them the file. Whatever they are:
//   - a text fits into its room with its end mark, and its length is told;
//   - where the file does not have the key, or is not there, the default comes back, without its trailing blanks;
//   - the reader of numbers and texts gives what the file has, and the registry's readers leave their outputs alone
//     unless they found something.
#include <charconv>
#include <cstring>
#include <memory>

#include "engine/IniFileReader.h"
#include "logging/Registry.h"
#include "platform/platform.h"
#include "target.h"

namespace kel::fuzz {
namespace {

constexpr const char* kFile = "some.ini";
constexpr auto kRoot = platform::RegistryRoot::localMachine;

struct Question {
  std::string section;
  std::string key;
  std::string defaultText;
};

std::string Lower(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
  return text;
}

/// Blanks round a name are no part of it.
std::string Name(const std::string& text) {
  constexpr const char* kBlanks = " \t\n\v\f\r\x1A";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  return begin == text.npos ? "" : Lower(text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin));
}

std::string Ask(const Question& question, std::uint32_t room, const char* fileName) {
  const auto value = std::make_unique<char[]>(room);
  std::memset(value.get(), 'x', room);
  const std::uint32_t length = platform::iniValue(question.section.c_str(), question.key.c_str(),
                                                  question.defaultText.c_str(), value.get(), room, fileName);
  if (room == 0) {
    Promise(length == 0, "where there is no room there is no text");
    return {};
  }
  Promise(length < room, "a text fits with its end mark");
  Promise(std::strlen(value.get()) == length, "the length is that of the text");
  return value.get();
}

/// The default as it comes back. One in quotes is left to the tests.
void CheckDefault(const Question& question, std::uint32_t room, const std::string& value) {
  std::string expected = question.defaultText;
  if (room == 0 || expected.starts_with('"') || expected.starts_with('\'')) return;
  while (expected.size() > 1 && expected.back() == ' ') expected.pop_back();
  Promise(value == expected.substr(0, room - 1), "what is not there gives the default");
}

void CheckReader(const Question& question) {
  IniFileReader reader;
  reader.SetIniFileName(kFile);
  const std::unique_ptr<char, decltype(&std::free)> text(
      reader.ReadStringValue(question.section.c_str(), question.key.c_str(), question.defaultText.c_str()), &std::free);
  Promise(text.get() == Ask(question, kIniValueSize, kFile), "the reader gives the text of the file");

  const std::uint32_t number = reader.ReadIntValue(question.section.c_str(), question.key.c_str(), 4711);
  const std::string asText = Ask({question.section, question.key, "4711"}, kIniValueSize, kFile);
  std::uint32_t plain = 0;
  const auto [end, error] = std::from_chars(asText.data(), asText.data() + asText.size(), plain);
  const bool isPlain = error == std::errc() && end == asText.data() + asText.size();
  Promise(!isPlain || number == plain, "a decimal number is read as it stands");
}

void CheckRegistry(const Question& question) {
  const std::string untouched = "untouched";
  std::string text = untouched;
  const bool isText = ReadRegistryString(kRoot, question.section.c_str(), question.key.c_str(), &text);
  Promise(isText || text == untouched, "a text that is not there leaves the output alone");
  std::uint32_t number = 4711;
  const bool isNumber = ReadRegistryDword(kRoot, question.section.c_str(), question.key.c_str(), &number);
  Promise(isNumber || number == 4711, "a number that is not there leaves the output alone");
  Promise(isText || !isNumber, "what is a number is a text as well");
  Promise(text.find('\0') == text.npos, "a text ends at its end");
}

}  // namespace
}  // namespace kel::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kel::fuzz;
  Input input(data, size);
  const Question question{input.line().c_str(), input.line().c_str(), input.line().c_str()};
  const std::string roomText = input.line();
  std::uint16_t room = 0;
  std::from_chars(roomText.data(), roomText.data() + roomText.size(), room);
  const std::string content = input.rest();
  Folder().write(kFile, content);
  Folder().write("Brel.registry", content);

  CheckDefault(question, room, Ask(question, room, "no.ini"));
  const std::string value = Ask(question, room, kFile);
  if (Lower(content).find(Name(question.key)) == content.npos) CheckDefault(question, room, value);
  CheckReader(question);
  CheckRegistry(question);
  return 0;
}
