// SPDX-License-Identifier: MIT
#include "protocol/Wire.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

namespace kel::fleet {

namespace {

using Json = nlohmann::json;

constexpr char kHexDigits[] = "0123456789abcdef";

std::string hexOf(Bytes bytes) {
  std::string hex;
  for (const std::uint8_t byte : bytes) {
    hex += kHexDigits[byte >> 4];
    hex += kHexDigits[byte & 0xF];
  }
  return hex;
}

std::optional<std::vector<std::uint8_t>> bytesOfHex(const std::string& hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    std::uint8_t byte = 0;
    const auto [end, error] = std::from_chars(hex.data() + i, hex.data() + i + 2, byte, 16);
    if (error != std::errc() || end != hex.data() + i + 2) return std::nullopt;
    bytes.push_back(byte);
  }
  return bytes;
}

/// One of {"values": [1, 2, 3]}, {"text": "..."}, {"hex": "0a0b"}, or {} for nothing.
std::optional<std::vector<std::uint8_t>> bytesOfJson(std::string_view text) {
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object() || json.size() > 1) return std::nullopt;
  if (json.empty()) return std::vector<std::uint8_t>();
  const std::string& key = json.begin().key();
  const Json& value = json.begin().value();
  if (key == "values" && value.is_array() && value.size() == std::tuple_size_v<Values>) {
    std::vector<std::uint8_t> bytes;
    for (const Json& one : value) {
      if (!one.is_number_unsigned() || one.get<std::uint64_t>() > UINT32_MAX) return std::nullopt;
      const auto word = one.get<std::uint32_t>();
      const auto* const data = reinterpret_cast<const std::uint8_t*>(&word);
      bytes.insert(bytes.end(), data, data + sizeof word);
    }
    return bytes;
  }
  if (key == "text" && value.is_string()) {
    const auto& string = value.get_ref<const std::string&>();
    return std::vector<std::uint8_t>(string.begin(), string.end());
  }
  if (key == "hex" && value.is_string()) return bytesOfHex(value.get_ref<const std::string&>());
  return std::nullopt;
}

Json jsonOf(const Payload& payload) {
  Json json{{"form", payload.form() == Form::val ? "val" : "ref"}, {"sequenceWord", payload.sequenceWord()}};
  if (const Result<Values> values = payload.values(); values && payload.form() == Form::val) {
    json["values"] = *values;
  } else {
    json["hex"] = hexOf(payload.bytes());
  }
  return json;
}

std::optional<std::chrono::milliseconds> timeIn(natsMsg& message, const char* name) {
  const std::optional<std::uint64_t> time = numberIn(message, name);
  if (!time) return std::nullopt;
  // A day is long enough for everything, and no sum of it runs over.
  return std::chrono::milliseconds(std::min<std::uint64_t>(*time, 86'400'000));
}

}  // namespace

std::optional<std::uint64_t> numberIn(natsMsg& message, const char* name) {
  const std::optional<std::string> text = header(message, name);
  if (!text) return std::nullopt;
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
  if (error != std::errc() || end != text->data() + text->size()) return std::nullopt;
  return number;
}

bool fitsHeader(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

std::optional<Cause> causeOf(std::string_view wanted) {
  for (const Cause cause :
       {Cause::unknownTask, Cause::wrongForm, Cause::refused, Cause::noAnswer, Cause::linkLost, Cause::noNumber,
        Cause::notConnected, Cause::closed, Cause::cancelled, Cause::busy, Cause::reserved}) {
    if (wanted == word(cause)) return cause;
  }
  return std::nullopt;
}

std::optional<End> endOf(std::string_view wanted) {
  for (const End end : {End::finished, End::stopped, End::idle, End::deadline, End::linkLost, End::closed}) {
    if (wanted == text(end)) return end;
  }
  return std::nullopt;
}

std::string misfitOf(natsMsg& message) {
  const std::uint64_t theirs = numberIn(message, headers::kProtocol).value_or(kProtocol);
  const std::uint64_t theirOldest =
      numberIn(message, headers::kOldest).value_or(theirs < kProtocol ? theirs : kProtocol);
  if (theirOldest > kProtocol) {
    return "the other side needs protocol " + std::to_string(theirOldest) + " at least, and this one speaks " +
           std::to_string(kProtocol);
  }
  if (theirs < kOldestProtocol) {
    return "the other side speaks protocol " + std::to_string(theirs) + ", and this one needs " +
           std::to_string(kOldestProtocol) + " at least";
  }
  return {};
}

void setProtocol(natsMsg& message) {
  setHeader(message, headers::kProtocol, std::to_string(kProtocol));
  setHeader(message, headers::kOldest, std::to_string(kOldestProtocol));
}

Result<WireRequest> readRequest(natsMsg& message) {
  const auto wrong = [](std::string why) { return Error{Cause::wrongForm, 0, std::move(why)}; };
  if (std::string misfit = misfitOf(message); !misfit.empty()) return wrong(std::move(misfit));
  WireRequest request;
  request.task = header(message, headers::kTask).value_or("");
  const std::string_view payload = payloadOf(message);
  if (header(message, headers::kContent) == kJson) {
    std::optional<std::vector<std::uint8_t>> bytes = bytesOfJson(payload);
    if (!bytes) return wrong("the request's JSON has neither three values, nor a text, nor bytes in hex");
    request.payload = std::move(*bytes);
  } else {
    request.payload.assign(payload.begin(), payload.end());
  }
  request.timeLeft = timeIn(message, headers::kTimeLeft);
  request.idle = timeIn(message, headers::kIdle);
  request.window = numberIn(message, headers::kWindow).value_or(0);
  request.holder = header(message, headers::kHolder).value_or("");
  request.sequenceWord = static_cast<std::uint32_t>(numberIn(message, headers::kSequenceWord).value_or(0));
  request.wantsJson = header(message, headers::kAccept) == kJson;
  return request;
}

MessagePtr writePayload(const std::string& subject, const std::string& reply, const Payload& payload, bool asJson) {
  MessagePtr message = makeMessage(
      subject, reply,
      asJson ? jsonOf(payload).dump() : std::string_view(static_cast<const char*>(payload.data()), payload.size()));
  setHeader(*message, headers::kForm, payload.form() == Form::val ? "val" : "ref");
  setHeader(*message, headers::kSequenceWord, std::to_string(payload.sequenceWord()));
  if (asJson) setHeader(*message, headers::kContent, kJson);
  return message;
}

MessagePtr writeError(const std::string& subject, const Error& error, const std::string& reason) {
  MessagePtr message = makeMessage(subject, {}, {});
  const std::string& more = reason.empty() ? text(error.cause) : reason;
  setHeader(*message, headers::kCause, word(error.cause));
  setHeader(*message, headers::kCode, std::to_string(error.code));
  setHeader(*message, headers::kReason, more);
  setHeader(*message, headers::kServiceError, more);
  setHeader(*message, headers::kServiceErrorCode, std::to_string(serviceCodeOf(error.cause)));
  return message;
}

Payload readPayload(natsMsg& message) {
  const Form form = header(message, headers::kForm) == "val" ? Form::val : Form::ref;
  const auto sequenceWord = static_cast<std::uint32_t>(numberIn(message, headers::kSequenceWord).value_or(0));
  const std::string_view payload = payloadOf(message);
  return Payload::copied(form, sequenceWord, payload.data(), static_cast<std::uint32_t>(payload.size()));
}

int serviceCodeOf(Cause cause) {
  switch (cause) {
    case Cause::unknownTask:
      return 404;
    case Cause::wrongForm:
      return 400;
    case Cause::refused:
      return 422;
    case Cause::noAnswer:
      return 504;
    case Cause::reserved:
      return 423;
    case Cause::busy:
    case Cause::noNumber:
      return 429;
    default:
      return 503;
  }
}

}  // namespace kel::fleet
