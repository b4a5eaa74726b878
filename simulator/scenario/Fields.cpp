// SPDX-License-Identifier: MIT
#include "Fields.h"

#include <algorithm>
#include <cmath>

namespace kel::sim {
namespace {

/// "a, b, c"
template <class Words>
std::string Listed(const Words& words) {
  std::string text;
  for (const auto& word : words) text += std::string(text.empty() ? "" : ", ") + word;
  return text;
}

}  // namespace

std::optional<std::uint32_t> WholeNumber(const Json& value, std::uint32_t low, std::uint32_t high) {
  const bool fits = value.kind == Json::Kind::kNumber && value.number >= low && value.number <= high;
  if (!fits || std::floor(value.number) != value.number) return std::nullopt;
  return static_cast<std::uint32_t>(value.number);
}

void AddMistake(Mistakes& mistakes, const Json& value, std::string expected) {
  const std::string what = Describe(value);
  mistakes.push_back({value.line, value.key.empty() ? what : '"' + value.key + "\" is " + what, std::move(expected)});
}

Fields::Fields(const Json& object, const char* what, Mistakes& mistakes)
    : mObject(object), mWhat(what), mMistakes(mistakes) {
  if (object.kind != Json::Kind::kObject) AddMistake(mistakes, object, std::string(what) + " as an object, { ... }");
}

const Json* Fields::Look(const char* key) const {
  if (mObject.kind != Json::Kind::kObject) return nullptr;
  const auto found =
      std::find_if(mObject.items.begin(), mObject.items.end(), [key](const Json& member) { return member.key == key; });
  return found != mObject.items.end() ? &*found : nullptr;
}

const Json* Fields::Find(const char* key) {
  if (std::find(mKnown.begin(), mKnown.end(), key) == mKnown.end()) mKnown.emplace_back(key);
  return Look(key);
}

void Fields::Read(const char* key, std::uint32_t& number, std::uint32_t low, std::uint32_t high) {
  const Json* value = Find(key);
  if (value == nullptr) return;
  if (const auto read = WholeNumber(*value, low, high)) {
    number = *read;
  } else {
    AddMistake(mMistakes, *value, "a whole number from " + std::to_string(low) + " to " + std::to_string(high));
  }
}

const Json* Fields::FindText(const char* key) {
  const Json* value = Find(key);
  if (value == nullptr || value->kind == Json::Kind::kText) return value;
  AddMistake(mMistakes, *value, "a text in quotes");
  return nullptr;
}

const Json* Fields::FindFileName(const char* key) {
  const Json* name = FindText(key);
  if (name == nullptr) return nullptr;
  // The system would take a zero for the end, and open another file.
  if (!name->text.empty() && name->text.find('\0') == std::string::npos) return name;
  AddMistake(mMistakes, *name, "a file's name");
  return nullptr;
}

const std::vector<Json>& Fields::List(const char* key) {
  static const std::vector<Json> kNone;
  const Json* value = Find(key);
  if (value == nullptr) return kNone;
  if (value->kind == Json::Kind::kList) return value->items;
  AddMistake(mMistakes, *value, "a list, [ ... ]");
  return kNone;
}

void Fields::Want(const char* key) {
  if (mObject.kind != Json::Kind::kObject || Look(key) != nullptr) return;
  mMistakes.push_back({mObject.line, std::string(mWhat) + " has no \"" + key + '"', "it"});
}

void Fields::WantOneOf(std::initializer_list<const char*> keys) {
  const auto there = std::count_if(keys.begin(), keys.end(), [this](const char* key) { return Look(key) != nullptr; });
  if (mObject.kind != Json::Kind::kObject || there == 1) return;
  const std::string found = std::string(mWhat) + (there == 0 ? " tells nothing" : " tells several things");
  mMistakes.push_back({mObject.line, found, "exactly one of " + Listed(keys)});
}

void Fields::WantAlone(const char* key, std::initializer_list<const char*> others) {
  const Json* value = Look(key);
  if (value == nullptr) return;
  for (const char* other : others) {
    if (Look(other) == nullptr) continue;
    mMistakes.push_back({value->keyLine, '"' + std::string(key) + "\" and \"" + other + "\" are in one rule",
                         "one of them: after a refusal or a lost link nothing comes back"});
    return;
  }
}

void Fields::End() const {
  if (mObject.kind != Json::Kind::kObject) return;
  for (const Json& member : mObject.items) {
    if (std::find(mKnown.begin(), mKnown.end(), member.key) != mKnown.end()) continue;
    Json name;
    name.kind = Json::Kind::kText;
    name.text = member.key;
    mMistakes.push_back(
        {member.keyLine, std::string(mWhat) + " has no key " + Describe(name), "one of " + Listed(mKnown)});
  }
}

}  // namespace kel::sim
