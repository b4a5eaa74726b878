/* SPDX-License-Identifier: MIT */
// The members of one object of a scenario, asked for by their keys. What is wrong with them goes into a list of
// mistakes, and reading goes on, so that all of them are reported.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "Json.h"

namespace kel::sim {

using Mistakes = std::vector<Mistake>;

class Fields {
 public:
  /// `what` is the object in words: "a rule".
  Fields(const Json& object, const char* what, Mistakes& mistakes);

  /// A member, or null. To ask for a key makes it one that may be there.
  const Json* Find(const char* key);
  /// Reads a whole number within bounds, which stays as it was if the key is absent or its value wrong.
  void Read(const char* key, std::uint32_t& number, std::uint32_t low = 0, std::uint32_t high = UINT32_MAX);
  /// A member that is a text, or one that can name a file; null if it is absent or wrong.
  const Json* FindText(const char* key);
  const Json* FindFileName(const char* key);
  /// The elements of a list; none if it is absent.
  const std::vector<Json>& List(const char* key);
  /// A mistake unless it is there.
  void Want(const char* key);
  /// A mistake unless one of the keys, and no second, is there.
  void WantOneOf(std::initializer_list<const char*> keys);
  /// A mistake if `key` is there beside one of the others.
  void WantAlone(const char* key, std::initializer_list<const char*> others);

  /// Calls every key that was not asked for a mistake.
  void End() const;

 private:
  const Json* Look(const char* key) const;

  const Json& mObject;
  const char* mWhat;
  Mistakes& mMistakes;
  std::vector<std::string> mKnown;
};

/// A whole number within bounds.
std::optional<std::uint32_t> WholeNumber(const Json& value, std::uint32_t low, std::uint32_t high);

/// Tells what a value is, and what it should be.
void AddMistake(Mistakes& mistakes, const Json& value, std::string expected);

}  // namespace kel::sim
