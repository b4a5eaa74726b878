// SPDX-License-Identifier: MIT
#include "client.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <thread>

namespace bench {
namespace {

/// Each attempt leaves a request block behind, so they are few.
constexpr int kAttempts = 200;
constexpr std::chrono::microseconds kPause{50};

class ScratchFolder {
 public:
  ScratchFolder()
      : mFolder(std::filesystem::temp_directory_path() / ("kel-bench-" + std::to_string(std::random_device()()))) {
    std::filesystem::create_directory(mFolder);
    std::filesystem::current_path(mFolder);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mFolder, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

 private:
  const std::filesystem::path mFolder;
};

extern "C" void TakeBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
  onBroadcast();
}

std::uint64_t Connect(Blocks blocks) {
  EnterScratchFolder();
  SetBlocks(blocks);
  std::uint64_t conn = 0;
  KEL_Init();
  if (KEL_Connect(nullptr, TakeBroadcast, &conn) != KEL_OK) std::abort();
  return conn;
}

}  // namespace

void (*onBroadcast)() = [] {};

void EnterScratchFolder() { static const ScratchFolder folder; }

void SetBlocks(Blocks blocks) { setenv("KELHANDLER_RELEASE_BLOCKS", blocks == Blocks::released ? "1" : "0", 1); }

std::uint64_t Connection(Blocks blocks) {
  static const std::uint64_t kept = Connect(Blocks::kept), released = Connect(Blocks::released);
  return blocks == Blocks::kept ? kept : released;
}

bool SendAsync(std::uint64_t conn, const char* task, const void* payload, std::uint32_t size,
               KEL_AsyncCallback callback, KEL_StreamCallback streamCallback) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::uint32_t sequenceNumber = 0;
    if (KEL_SendReceiveAsyncKEL(conn, task, 1, payload, size, &sequenceNumber, callback, streamCallback) == KEL_OK) {
      return true;
    }
    std::this_thread::sleep_for(kPause);
  }
  return false;
}

}  // namespace bench
