/* SPDX-License-Identifier: MIT */
// The sequence byte, which rides in bits 24 to 31 of a TUI word: the number of a task's sequence and its class.
//
//   bits 0 to 5   coreSeqNum, 0 to 63, the key of the sequence
//   bits 6 to 7   class: 00 ACK, 01 Stream_MESSAGE, 10 Stream_END, 11 undefined
#pragma once

#include <cstdint>

namespace kel {

enum SeqNumType : std::uint32_t {
  SEQ_NUM_ACK = 1,             ///< the one response to a request, or what opens a stream
  SEQ_NUM_STREAM_MESSAGE = 2,  ///< one message of a stream
  SEQ_NUM_STREAM_END = 3,      ///< the last message of a stream
  SEQ_NUM_UNKNOWN = 4,
};

constexpr std::uint32_t GetCoreSeqNum(std::uint32_t number) { return number & 63; }

constexpr SeqNumType GetSeqNumType(std::uint32_t number) {
  switch (number & 192) {
    case 0: return SEQ_NUM_ACK;
    case 64: return SEQ_NUM_STREAM_MESSAGE;
    case 128: return SEQ_NUM_STREAM_END;
    default: return SEQ_NUM_UNKNOWN;
  }
}

constexpr std::uint32_t GetAckSeqNum(std::uint32_t number) { return number; }
constexpr std::uint32_t GetStreamSeqNum(std::uint32_t number) { return number | 64; }
constexpr std::uint32_t GetStreamEndSeqNum(std::uint32_t number) { return number | 128; }

}  // namespace kel
