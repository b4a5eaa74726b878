/* SPDX-License-Identifier: MIT */
// Requests, answers and messages of streams as they stand on the wire: facts in headers, payloads raw, or as JSON for
// those who ask for it. docs/fleet.md has the table of headers.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kel/options.hpp"
#include "kel/payload.hpp"
#include "kel/result.hpp"
#include "nats/Nats.h"

namespace kel::fleet {

/// The protocol that this code speaks, and the oldest that it gets on with.
constexpr std::uint32_t kProtocol = 1;
constexpr std::uint32_t kOldestProtocol = 1;

namespace headers {
inline constexpr const char* kProtocol = "Kel-Protocol";
inline constexpr const char* kOldest = "Kel-Oldest-Protocol";
inline constexpr const char* kTask = "Kel-Task";
inline constexpr const char* kForm = "Kel-Form";
inline constexpr const char* kSequenceWord = "Kel-Sequence-Word";
inline constexpr const char* kTimeLeft = "Kel-Time-Left";
inline constexpr const char* kHolder = "Kel-Holder";
inline constexpr const char* kIdle = "Kel-Idle";
inline constexpr const char* kWindow = "Kel-Window";
inline constexpr const char* kCause = "Kel-Cause";
inline constexpr const char* kCode = "Kel-Code";
inline constexpr const char* kReason = "Kel-Reason";
inline constexpr const char* kNumber = "Kel-Number";
inline constexpr const char* kEnd = "Kel-End";
inline constexpr const char* kState = "Kel-State";
inline constexpr const char* kInstance = "Kel-Instance";
inline constexpr const char* kConnection = "Kel-Connection";
inline constexpr const char* kRevision = "Kel-Revision";
inline constexpr const char* kContent = "Content-Type";
inline constexpr const char* kAccept = "Accept";
inline constexpr const char* kServiceError = "Nats-Service-Error";
inline constexpr const char* kServiceErrorCode = "Nats-Service-Error-Code";
}  // namespace headers

inline constexpr const char* kJson = "application/json";

/// The number in a header; nothing if there is none, or something else stands there.
std::optional<std::uint64_t> numberIn(natsMsg& message, const char* header);

/// Whether a text may stand in a header: no line end, no zero byte.
bool fitsHeader(std::string_view text);

std::optional<Cause> causeOf(std::string_view word);
std::optional<End> endOf(std::string_view word);

/// Empty if the sender's protocol goes with ours, else why it does not. A message that names none speaks ours.
std::string misfitOf(natsMsg& message);
void setProtocol(natsMsg& message);

/// A request, as the device's side reads it.
struct WireRequest {
  std::string task;
  std::vector<std::uint8_t> payload;
  std::optional<std::chrono::milliseconds> timeLeft;
  std::optional<std::chrono::milliseconds> idle;  ///< of a stream
  std::uint64_t window = 0;                       ///< likewise; 0: the default
  std::string holder;
  std::uint32_t sequenceWord = 0;  ///< of a post
  bool wantsJson = false;
};

/// An error of the cause wrongForm, with the reason as its subject, for what is no request.
Result<WireRequest> readRequest(natsMsg& message);

/// Puts a payload and its form into a new message.
MessagePtr writePayload(const std::string& subject, const std::string& reply, const Payload& payload, bool asJson);
/// The same of an error. `reason` tells a person more, and may be empty.
MessagePtr writeError(const std::string& subject, const Error& error, const std::string& reason = {});

/// What writePayload() wrote raw.
Payload readPayload(natsMsg& message);

/// The code of an error for those who know HTTP's.
int serviceCodeOf(Cause cause);

}  // namespace kel::fleet
