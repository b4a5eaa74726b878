/* SPDX-License-Identifier: MIT */
// What kelctl prints to standard output: words and tables for a person at a terminal, plain lines for a script behind a
// pipe, or JSON. What goes wrong is written to standard error.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "payload.h"

namespace kelctl {

/// Its members keep the order in which they were set.
using Json = nlohmann::ordered_json;

class Output {
 public:
  explicit Output(bool json);

  /// Objects are wanted, not texts.
  bool json() const { return mJson; }
  /// A person looks on: headings, bars and colours are of use.
  bool terminal() const { return mTerminal; }
  /// The terminal can be drawn on as a screen.
  bool screen() const { return mScreen; }

  // Both print at once, and throw if standard output takes no more.
  void text(const std::string& text);
  /// As one line.
  void object(const Json& object);

  // The text in the colour of success, of failure, or of what matters less; as it is where there are no colours.
  std::string good(const std::string& text) const { return coloured("32", text); }
  std::string bad(const std::string& text) const { return coloured("31", text); }
  std::string faint(const std::string& text) const { return coloured("2", text); }

 private:
  std::string coloured(const char* colour, const std::string& text) const;

  const bool mJson;
  const bool mTerminal;
  const bool mScreen;
  const bool mColour;
};

/// A payload in all the forms that it has: size and hex, the values of twelve bytes, the text of printable ones.
Json payloadJson(const Bytes& payload);
/// The same of a payload whose form is known.
Json payloadJson(bool isRef, const Bytes& payload);

}  // namespace kelctl
