// SPDX-License-Identifier: MIT
#include "Json.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>

namespace kel::sim {
namespace {

/// A scenario needs six; a limit keeps the tree from being taken down too deeply.
constexpr std::size_t kMostLevels = 16;
constexpr std::size_t kLongestQuote = 40;
constexpr std::size_t kLongestComplaint = 160;

/// Where the parser is. It reads one character ahead behind a number, which no line break before that one shows.
struct Place {
  std::uint32_t line = 1;  ///< of the last character read
  std::uint32_t next = 1;  ///< of the one behind it
};

/// Characters for the parser, which count the line breaks that go by. The parser advances one copy only.
class Characters {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  Characters(const char* at, Place* place) : mAt(at), mPlace(place) {}
  const char& operator*() const { return *mAt; }
  Characters& operator++() {
    mPlace->line = mPlace->next;
    if (*mAt == '\n') ++mPlace->next;
    ++mAt;
    return *this;
  }
  bool operator==(const Characters& other) const { return mAt == other.mAt; }
  bool operator!=(const Characters& other) const { return mAt != other.mAt; }

 private:
  const char* mAt;
  Place* mPlace;
};

/// What goes to a terminal may hold nothing that moves its cursor.
std::string Quotable(std::string text, std::size_t room) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }, '?');
  if (text.size() <= room) return text;
  while (room != 0 && (static_cast<unsigned char>(text[room]) & 0xC0) == 0x80) --room;  // not inside a character
  return text.substr(0, room) + "...";
}

/// Builds the tree. Functions have the names that the parser asks for, and return false to end it.
class Builder {
 public:
  Builder(const Place& place, std::vector<Mistake>& mistakes) : mPlace(place), mMistakes(mistakes) {}

  bool null() { return add(Json::Kind::kNull); }
  bool boolean(bool value) { return add(Json::Kind::kBool, value ? 1 : 0, value ? "true" : "false"); }
  bool number_integer(std::int64_t value) { return number(static_cast<double>(value), std::to_string(value)); }
  bool number_unsigned(std::uint64_t value) { return number(static_cast<double>(value), std::to_string(value)); }
  bool number_float(double value, const std::string& text) { return number(value, text); }
  bool string(std::string& value) { return add(Json::Kind::kText, 0, std::move(value)); }
  bool binary(nlohmann::json::binary_t&) { return false; }  // no JSON text has it
  bool start_object(std::size_t) { return open(Json::Kind::kObject); }
  bool key(std::string& name) {
    if (!mOpen.back().keys.insert(name).second) {
      mMistakes.push_back({mPlace.line, '"' + Quotable(name, kLongestQuote) + "\" is there twice", "each key once"});
    }
    mKey = std::move(name);
    mKeyLine = mPlace.line;
    return true;
  }
  bool end_object() { return close(); }
  bool start_array(std::size_t) { return open(Json::Kind::kList); }
  bool end_array() { return close(); }

  /// The parser's complaint reads "[name] parse error at line N, column M: what it met; expected what".
  bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception& error) {
    std::string found = error.what();
    found.erase(0, found.find("] ") + 2);
    if (found.starts_with("parse error at")) found.erase(0, found.find(": ") + 2);
    std::replace_if(
        found.begin(), found.end(), [](unsigned char c) { return c > '~'; }, '?');  // it may be no UTF-8
    std::string expected = "JSON";
    constexpr std::string_view kExpected = "; expected ";
    if (const auto at = found.rfind(kExpected); at != std::string::npos) {
      expected = found.substr(at + kExpected.size());
      found.erase(at);
    }
    mMistakes.push_back({mPlace.line, Quotable(found, kLongestComplaint), expected});
    return false;
  }

  Json root;

 private:
  struct Level {
    Json* value;
    std::set<std::string> keys;
  };

  bool number(double value, std::string text) { return add(Json::Kind::kNumber, value, std::move(text)); }
  bool add(Json::Kind kind, double number = 0, std::string text = {}) {
    put({kind, mPlace.line, std::move(mKey), mKeyLine, number, std::move(text), {}});
    return true;
  }
  bool open(Json::Kind kind) {
    if (mOpen.size() == kMostLevels) {
      mMistakes.push_back(
          {mPlace.line, "lists and objects are nested too deeply", std::to_string(kMostLevels) + " levels at most"});
      return false;
    }
    mOpen.push_back({&put({kind, mPlace.line, std::move(mKey), mKeyLine, 0, {}, {}}), {}});
    return true;
  }
  bool close() {
    mOpen.pop_back();
    return true;
  }
  /// The place stays valid while it is open, since only the innermost list grows.
  Json& put(Json value) {
    mKey.clear();
    if (mOpen.empty()) return root = std::move(value);
    return mOpen.back().value->items.emplace_back(std::move(value));
  }

  const Place& mPlace;
  std::vector<Mistake>& mMistakes;
  std::vector<Level> mOpen;
  std::string mKey;
  std::uint32_t mKeyLine = 0;
};

}  // namespace

std::optional<Json> ReadJson(std::string_view text, std::vector<Mistake>& mistakes) {
  Place place;
  Builder builder(place, mistakes);
  const Characters begin(text.data(), &place), end(text.data() + text.size(), &place);
  if (!nlohmann::json::sax_parse(begin, end, &builder)) return std::nullopt;
  return std::move(builder.root);
}

std::string Describe(const Json& value) {
  switch (value.kind) {
    case Json::Kind::kNull:
      return "null";
    case Json::Kind::kText:
      return '"' + Quotable(value.text, kLongestQuote) + '"';
    case Json::Kind::kList:
      return "a list of " + std::to_string(value.items.size());
    case Json::Kind::kObject:
      return "an object";
    default:
      return Quotable(value.text, kLongestQuote);
  }
}

}  // namespace kel::sim
