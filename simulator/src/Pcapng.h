/* SPDX-License-Identifier: MIT */
// The pcapng file format, as far as a capture takes it: one section with one interface, its packets, its statistics.
// Each function appends one block to `to`. Numbers are little-endian, times are nanoseconds since 1970.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace kel::sim::pcapng {

using Bytes = std::vector<std::uint8_t>;

/// The most bytes of a packet that go into a file. Readers refuse files that have more.
inline constexpr std::uint32_t kSnapLength = 262144;

enum class Direction : std::uint32_t { kInbound = 1, kOutbound = 2 };

struct Packet {
  std::uint64_t time;
  Direction direction;
  std::uint64_t droppedBefore;         ///< packets lost between the one before and this one
  std::span<const std::uint8_t> head;  ///< opens the packet, and is never cut
  std::span<const std::uint8_t> body;  ///< follows it, cut to the snap length
  std::uint64_t originalSize;          ///< of the packet, which may have had more bytes than these
  std::string_view comment;            ///< UTF-8; empty for none
};

void AppendSectionHeader(Bytes& to, std::string_view application);
void AppendInterface(Bytes& to, std::uint16_t linkType, std::string_view name, std::string_view description);
void AppendPacket(Bytes& to, const Packet& packet);
/// `received` counts the packets that were dropped as well.
void AppendStatistics(Bytes& to, std::uint64_t time, std::uint64_t received, std::uint64_t dropped);

}  // namespace kel::sim::pcapng
