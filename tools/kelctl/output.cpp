// SPDX-License-Identifier: MIT
#include "output.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/standard_streams.h"
#include "status.h"

namespace kelctl {
namespace {

/// A terminal that calls itself dumb takes lines and nothing else.
bool isDumb() {
  const char* terminal = std::getenv("TERM");
  return terminal != nullptr && std::strcmp(terminal, "dumb") == 0;
}

/// NO_COLOR with any value wants none.
bool colourWanted() {
  const char* noColour = std::getenv("NO_COLOR");
  return noColour == nullptr || *noColour == '\0';
}

}  // namespace

Output::Output(bool json)
    : mJson(json),
      mTerminal(!json && isTerminal(stdout)),
      mScreen(mTerminal && !isDumb()),
      mColour(mScreen && colourWanted()) {}

void Output::text(const std::string& text) {
  errno = 0;
  std::cout << text << std::flush;
  if (!std::cout && errno == EPIPE) throw ReaderGone();
  if (!std::cout) throw std::runtime_error(std::string("standard output: ") + std::strerror(errno));
}

// Names and texts may come from a device or a file, and may be no UTF-8.
void Output::object(const Json& object) { text(object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n'); }

std::string Output::coloured(const char* colour, const std::string& text) const {
  return mColour ? std::string("\x1b[") + colour + 'm' + text + "\x1b[0m" : text;
}

Json payloadJson(const Bytes& payload) {
  Json json{{"size", payload.size()}, {"hex", toHex(payload)}};
  if (const std::optional<Values> values = toValues(payload)) json["values"] = *values;
  if (const std::optional<std::string> text = toPlainText(payload)) json["text"] = *text;
  return json;
}

Json payloadJson(bool isRef, const Bytes& payload) {
  Json json{{"form", isRef ? "REF" : "VAL"}};
  json.update(payloadJson(payload));
  return json;
}

}  // namespace kelctl
