// SPDX-License-Identifier: MIT
#include "Pcapng.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "adapter/TaskRecord.h"  // asserts that numbers lie in memory as they do in the file

namespace kel::sim::pcapng {
namespace {

constexpr std::uint32_t kSectionHeaderBlock = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceBlock = 1;
constexpr std::uint32_t kStatisticsBlock = 5;
constexpr std::uint32_t kPacketBlock = 6;

constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint32_t kOnlyInterface = 0;

// Options. Their codes mean something else in each kind of block, but for the comment's.
constexpr std::uint16_t kEndOfOptions = 0;
constexpr std::uint16_t kComment = 1;
constexpr std::uint16_t kApplication = 4;
constexpr std::uint16_t kInterfaceName = 2;
constexpr std::uint16_t kInterfaceDescription = 3;
constexpr std::uint16_t kTimeResolution = 9;
constexpr std::uint16_t kPacketFlags = 2;
constexpr std::uint16_t kPacketDropCount = 4;
constexpr std::uint16_t kReceived = 4;
constexpr std::uint16_t kDropped = 5;

constexpr std::uint8_t kNanoseconds = 9;

/// A block that is being appended. Everything in it is filled up to a multiple of four bytes.
class Block {
 public:
  Block(Bytes& to, std::uint32_t type) : mTo(to), mStart(to.size()) {
    Number(type);
    Number(std::uint32_t{0});  // the length, set by End()
  }

  template <typename T>
  void Number(T value) {
    Append(&value, sizeof value);
  }
  /// A time or a count, in the order of halves that packets and statistics have.
  void Time(std::uint64_t time) {
    Number(static_cast<std::uint32_t>(time >> 32));
    Number(static_cast<std::uint32_t>(time));
  }
  void Append(const void* bytes, std::size_t size) {
    if (size == 0) return;
    const std::size_t at = mTo.size();
    mTo.resize(at + size);
    std::memcpy(mTo.data() + at, bytes, size);
  }
  void Fill() { mTo.resize(mStart + (mTo.size() - mStart + 3) / 4 * 4); }

  void Option(std::uint16_t code, const void* value, std::size_t size) {
    const auto length =
        static_cast<std::uint16_t>(std::min<std::size_t>(size, std::numeric_limits<std::uint16_t>::max()));
    Number(code);
    Number(length);
    Append(value, length);
    Fill();
  }
  void Option(std::uint16_t code, std::string_view text) {
    if (!text.empty()) Option(code, text.data(), text.size());
  }
  template <typename T>
  void NumberOption(std::uint16_t code, T value) {
    Option(code, &value, sizeof value);
  }

  void End() {
    Option(kEndOfOptions, nullptr, 0);
    const auto length = static_cast<std::uint32_t>(mTo.size() - mStart + sizeof(std::uint32_t));
    std::memcpy(mTo.data() + mStart + sizeof(std::uint32_t), &length, sizeof length);
    Number(length);
  }

 private:
  Bytes& mTo;
  const std::size_t mStart;
};

}  // namespace

void AppendSectionHeader(Bytes& to, std::string_view application) {
  Block block(to, kSectionHeaderBlock);
  block.Number(kByteOrderMagic);
  block.Number(std::uint16_t{1});  // version 1.0
  block.Number(std::uint16_t{0});
  block.Number(std::int64_t{-1});  // the section ends with the file
  block.Option(kApplication, application);
  block.End();
}

void AppendInterface(Bytes& to, std::uint16_t linkType, std::string_view name, std::string_view description) {
  Block block(to, kInterfaceBlock);
  block.Number(linkType);
  block.Number(std::uint16_t{0});
  block.Number(kSnapLength);
  block.Option(kInterfaceName, name);
  block.Option(kInterfaceDescription, description);
  block.NumberOption(kTimeResolution, kNanoseconds);
  block.End();
}

void AppendPacket(Bytes& to, const Packet& packet) {
  const auto body = packet.body.first(std::min(packet.body.size(), kSnapLength - packet.head.size()));
  const auto size = static_cast<std::uint32_t>(packet.head.size() + body.size());
  Block block(to, kPacketBlock);
  block.Number(kOnlyInterface);
  block.Time(packet.time);
  block.Number(size);
  block.Number(static_cast<std::uint32_t>(std::clamp<std::uint64_t>(packet.originalSize, size, UINT32_MAX)));
  block.Append(packet.head.data(), packet.head.size());
  block.Append(body.data(), body.size());
  block.Fill();
  block.Option(kComment, packet.comment);
  block.NumberOption(kPacketFlags, static_cast<std::uint32_t>(packet.direction));
  if (packet.droppedBefore != 0) block.NumberOption(kPacketDropCount, packet.droppedBefore);
  block.End();
}

void AppendStatistics(Bytes& to, std::uint64_t time, std::uint64_t received, std::uint64_t dropped) {
  Block block(to, kStatisticsBlock);
  block.Number(kOnlyInterface);
  block.Time(time);
  block.NumberOption(kReceived, received);
  block.NumberOption(kDropped, dropped);
  block.End();
}

}  // namespace kel::sim::pcapng
