/* SPDX-License-Identifier: MIT */
// Messages that follow a response by themselves: a stream or broadcasts. They are made one at a time, when they are
// due, so that a long series costs no more than a short one.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Scenario.h"
#include "adapter/L5Records.h"

namespace kel::sim {

// Classes of a sequence byte: its two upper bits.
inline constexpr std::uint32_t kClassStreamMessage = 1;
inline constexpr std::uint32_t kClassStreamEnd = 2;

inline constexpr std::uint32_t kSequenceNumberMask = 63;

/// Lays out a response's body with room for the payload, whose place is returned. `row` is the adapter row it is for.
std::uint8_t* LayOutResponse(std::vector<std::uint8_t>& body, std::uint16_t row, const WireTask& head);

/// The word with another type.
constexpr std::uint32_t WithType(std::uint32_t word, std::uint32_t type) {
  return (word & ~std::uint32_t{0x180000}) | (type & 3) << 19;
}

/// A broadcast's word: it belongs to no sequence.
std::uint32_t BroadcastWord(std::uint32_t TUI);

/// In order: `count` messages, the end, the acknowledgement if it was kept for last, `afterEnd` messages.
struct Series {
  std::uint32_t TUI = 0;  ///< without sequence byte
  std::uint32_t seqTUI = 0;
  std::uint32_t sequenceNumber = 0;
  bool isBroadcast = false;
  bool hasEnd = true;
  std::uint32_t count = 0;
  std::uint32_t intervalMs = 0;
  std::uint32_t payloadSize = 0;  ///< not 0: messages are REF with so many bytes
  std::shared_ptr<const Payload> payload;  ///< of each message, in place of the three values; or null
  std::uint32_t afterEnd = 0;
  std::vector<std::uint8_t> lastAck;  ///< the body of an acknowledgement that follows the end, or empty

  std::uint32_t index = 0;  ///< of the next message

  /// Lays out the next message. False when there is none.
  bool Next(std::uint16_t row, std::vector<std::uint8_t>& body);
  /// Milliseconds from the last message to the next. What follows the `count` messages follows at once.
  std::uint32_t TimeToNext() const { return index < count ? intervalMs : 0; }
  /// Makes the end the next message.
  void EndNow() { count = index; }

 private:
  void LayOutMessage(std::uint16_t row, std::uint32_t seqClass, std::vector<std::uint8_t>& body) const;
};

}  // namespace kel::sim
