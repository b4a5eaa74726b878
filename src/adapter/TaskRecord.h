/* SPDX-License-Identifier: MIT */
// The task record: the one record between engine and adapter, in both directions, and the TUI word that opens it.
//
// The TUI word:
//
//   bits  0 to  4   index of the task within its zone
//   bits  5 to 11   zone
//   bits 12 to 15   target; 5 marks a broadcast
//   bits 16 to 18   priority
//   bits 19 to 20   type: 0 VAL (three 32-bit values), 1 REF (raw bytes)
//   bits 21 to 23   zero
//   bits 24 to 31   sequence byte, zero in the catalogue (its own bits: sequencer/SequenceNumber.h)
#pragma once

#include <bit>
#include <cstdint>

namespace kel {

static_assert(std::endian::native == std::endian::little, "records are read and written as they lie in memory");

#pragma pack(push, 1)
/// Head of a record; `payloadSize` bytes of payload follow it. 16 bytes, little-endian.
struct task {
  std::uint32_t TUI;  ///< offset 0
  union {
    std::uint32_t responseExpected;  ///< offset 4 of a request: 1 if the sender waits for a response or a stream, else 0
    std::uint32_t errorCode;         ///< offset 4 of a response
  };
  std::uint32_t seqTUI;       ///< offset 8
  std::uint32_t payloadSize;  ///< offset 12, in bytes
};
#pragma pack(pop)
static_assert(sizeof(task) == 16);

inline constexpr std::uint32_t BREL_MAX_TASK_PAYLOAD = 8192;

/// What every buffer for a record has room for. Nothing refuses a larger payload; a larger block then carries it.
inline constexpr std::uint32_t BrelTaskRecordCapacity = sizeof(task) + BREL_MAX_TASK_PAYLOAD;

/// A VAL payload: three 32-bit values.
inline constexpr std::uint32_t kValPayloadSize = 12;

inline constexpr std::uint32_t kTypeRef = 1;
inline constexpr std::uint32_t kTargetBroadcast = 5;

inline std::uint8_t* PayloadOf(task* record) { return reinterpret_cast<std::uint8_t*>(record + 1); }
inline const std::uint8_t* PayloadOf(const task* record) { return reinterpret_cast<const std::uint8_t*>(record + 1); }

constexpr std::uint32_t GetTuiIndex(std::uint32_t word) { return word & 31; }
constexpr std::uint32_t GetTuiTarget(std::uint32_t word) { return (word & 0xF000) >> 12; }
constexpr std::uint32_t GetTuiType(std::uint32_t word) { return (word & 0x180000) >> 19; }
/// The sequence byte.
constexpr std::uint32_t GetTuiSeqNum(std::uint32_t word) { return word >> 24; }
/// The word with another sequence byte.
constexpr std::uint32_t MakeSeqTUI(std::uint32_t word, std::uint8_t seqByte) {
  return std::uint32_t{seqByte} << 24 | (word & 0xFFFFFF);
}

}  // namespace kel
