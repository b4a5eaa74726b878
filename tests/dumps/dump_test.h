/* SPDX-License-Identifier: MIT */
// What the tests of the dump files share: engines that dump, and the files byte by byte.
#pragma once

#include <cstdio>
#include <fstream>

#include "engine/engine_test.h"
#include "support/private_member.h"
#include "support/transcript.h"

namespace kel::test {

// The four files, by what they hold; each is switched on by the setting of this name with "Filename" behind it.
inline constexpr const char* kRequestDump = "RequestStructDump";
inline constexpr const char* kRequestPayloadDump = "RequestStructPayloadDump";
inline constexpr const char* kResponseDump = "ResponseStructDump";
inline constexpr const char* kResponsePayloadDump = "ResponseStructPayloadDump";
inline constexpr const char* kDumps[] = {kRequestDump, kRequestPayloadDump, kResponseDump, kResponsePayloadDump};

/// A file as it lies on the disk.
inline std::string RawFile(const std::string& name) {
  std::ifstream stream(name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

/// What a program finds on the disk that wrote `bytes` to a text file.
inline std::string AsTextFile(const std::string& bytes) {
  std::FILE* file = std::fopen("as-text", "w");
  EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
  std::fclose(file);
  return RawFile("as-text");
}

/// The contents of the two kinds of files.
inline std::string StructDump(std::uint32_t word, std::uint32_t second, std::uint32_t seqTUI,
                              const std::string& payload) {
  const std::vector<std::uint8_t> record = Record(word, second, seqTUI, payload);
  return AsTextFile(std::to_string(record.size()) + "\n" + std::string(record.begin(), record.end()));
}
inline std::string ValDump(std::int32_t first, std::int32_t second, std::int32_t third) {
  return AsTextFile("VAL\n" + std::to_string(first) + "\n" + std::to_string(second) + "\n" + std::to_string(third) +
                    "\n");
}
inline std::string RefDump(const std::string& payload) {
  return AsTextFile("REF\n" + std::to_string(payload.size()) + "\n" + payload);
}

/// The two debug tasks' request and response words for the first sequence: the response has the connection's socket, 0,
/// in the low byte of its last.
inline std::string RequestDumpOf(std::uint32_t TUI, const std::string& payload, std::uint32_t seqNum = 0) {
  return StructDump(TUI, 1, seqNum << 24 | TUI, payload);
}
inline std::string ResponseDumpOf(std::uint32_t TUI, const std::string& payload, std::uint32_t seqByte = 0) {
  return StructDump(seqByte << 24 | TUI, 0, (seqByte & 63) << 24 | (TUI & 0xFFFF00), payload);
}

class DumpTest : public EngineTest {
 protected:
  /// Settings with these dumps on, each in a file of its own name, and what else is given.
  void dump(const std::vector<const char*>& dumps, const std::string& otherSettings = "") {
    std::string settings = otherSettings;
    for (const char* name : dumps) settings += std::string(name) + "Filename=" + name + "\n";
    folder.writeSettings(settings);
  }
  void dumpAll(const std::string& otherSettings = "") {
    dump({kRequestDump, kRequestPayloadDump, kResponseDump, kResponsePayloadDump}, otherSettings);
  }

  /// A new engine with these dumps on.
  std::uint32_t startDumping(const std::vector<const char*>& dumps) {
    dump(dumps);
    return start();
  }
  std::uint32_t startDumpingAll() {
    dumpAll();
    return start();
  }

  static Answer invokeRef(std::uint32_t handle, const std::string& payload) {
    return Invoke(handle, kDebugRef, payload.data(), static_cast<std::uint32_t>(payload.size()));
  }

  /// Has the device answer the debug tasks with this.
  static void answerWith(std::uint32_t type, const std::string& payload) {
    SluiceHubSim_ClearRules();
    SluiceHubSimRule rule = RuleFor(0, SLUICEHUBSIM_TYPE | SLUICEHUBSIM_DATA | SLUICEHUBSIM_BEFORE_REPLY);
    rule.type = type;
    rule.data = payload.data();
    rule.dataSize = static_cast<std::uint32_t>(payload.size());
    AddRule(rule);
  }

  Recorder recorder;
};

}  // namespace kel::test
