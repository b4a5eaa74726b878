/* SPDX-License-Identifier: MIT */
// Reads what a capture file holds: enough of pcapng for the files of the stand-in, and strict about it.
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/src/Capture.h"

namespace kel::test {

struct CapturedPacket {
  std::uint64_t time = 0;
  std::uint32_t originalSize = 0;
  std::uint32_t direction = 0;
  std::uint64_t droppedBefore = 0;
  std::string comment;
  std::vector<std::uint8_t> bytes;

  template <typename T>
  T At(std::size_t offset) const {
    T value{};
    if (offset + sizeof value > bytes.size()) throw std::runtime_error("the packet is too short");
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
  }
  sim::CaptureKind Kind() const { return sim::CaptureKind{At<std::uint8_t>(1)}; }
  std::uint32_t Connection() const { return At<std::uint32_t>(4); }
  std::uint32_t Agent() const { return At<std::uint32_t>(8); }
  std::uint32_t ID() const { return At<std::uint32_t>(12); }
  std::uint32_t Status() const { return At<std::uint32_t>(16); }
  std::uint32_t Exchange() const { return At<std::uint32_t>(20); }
  std::vector<std::uint8_t> Body() const { return {bytes.begin() + 24, bytes.end()}; }
};

struct CaptureFile {
  std::vector<CapturedPacket> packets;
  std::uint64_t received = 0;  ///< of the last statistics
  std::uint64_t dropped = 0;
  int statistics = 0;

  std::vector<sim::CaptureKind> Kinds() const {
    std::vector<sim::CaptureKind> kinds;
    for (const CapturedPacket& packet : packets) kinds.push_back(packet.Kind());
    return kinds;
  }
};

/// Throws if the file is no pcapng file, or ends within a block.
inline CaptureFile ReadCapture(const std::filesystem::path& name) {
  std::ifstream stream(name, std::ios::binary);
  const std::string content(std::istreambuf_iterator<char>(stream), {});
  std::size_t position = 0;
  const auto number = [&]<typename T>(T& value) {
    if (position + sizeof value > content.size()) throw std::runtime_error("the file ends within a block");
    std::memcpy(&value, content.data() + position, sizeof value);
    position += sizeof value;
    return value;
  };
  const auto word = [&] {
    std::uint32_t value = 0;
    return number(value);
  };
  const auto time = [&] {
    const std::uint64_t upper = word();
    return upper << 32 | word();
  };
  CaptureFile file;
  while (position < content.size()) {
    const std::size_t start = position;
    const std::uint32_t type = word();
    const std::size_t end = start + word();
    if (end > content.size() || end % 4 != 0) throw std::runtime_error("a block ends behind the file");
    if (start == 0 && (type != 0x0A0D0D0A || word() != 0x1A2B3C4D)) throw std::runtime_error("no pcapng file");
    CapturedPacket packet;
    if (type == 6) {
      word();  // the interface
      packet.time = time();
      packet.bytes.resize(word());
      packet.originalSize = word();
      if (position + packet.bytes.size() > end) throw std::runtime_error("a packet ends behind its block");
      std::memcpy(packet.bytes.data(), content.data() + position, packet.bytes.size());
      position += (packet.bytes.size() + 3) / 4 * 4;
    } else if (type == 5) {
      position += 12;  // interface and time
      ++file.statistics;
    }
    for (std::uint16_t code = 1; (type == 6 || type == 5) && code != 0;) {
      std::uint16_t length = 0;
      number(code);
      number(length);
      const std::size_t value = position;
      std::uint64_t asNumber = 0;
      if (length <= sizeof asNumber) std::memcpy(&asNumber, content.data() + value, length);
      position += (length + 3u) / 4 * 4;
      if (type == 6 && code == 1) packet.comment.assign(content, value, length);
      if (type == 6 && code == 2) packet.direction = static_cast<std::uint32_t>(asNumber);
      if (type == 6 && code == 4) packet.droppedBefore = asNumber;
      if (type == 5 && code == 4) file.received = asNumber;
      if (type == 5 && code == 5) file.dropped = asNumber;
    }
    position = end - 4;
    if (start + word() != end) throw std::runtime_error("a block's two lengths differ");
    if (type == 6) file.packets.push_back(packet);
  }
  return file;
}

}  // namespace kel::test
