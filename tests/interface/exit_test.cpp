// SPDX-License-Identifier: MIT
// The end of a process whose client left everything open. What the test is about happens behind its last line.
#include <atomic>
#include <thread>

#include "interface/client.h"

namespace kel::test {
namespace {

std::atomic<std::uint32_t> gBroadcasts{0};

void Count(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
  ++gBroadcasts;
}

void IgnoreMessage(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t,
                   std::uint32_t) {}

/// Connects, and has the device pour broadcasts and stream messages without end.
void ConnectAndLeaveOpen() {
  std::uint64_t conn = 0;
  ASSERT_EQ(KEL_Connect(nullptr, &Count, &conn), KEL_OK);
  const Values endless = {0xFFFFFFFF, 0, 0};
  ASSERT_EQ(Send(conn, "TASK_ID_APPLICATION_DEBUG_BROADCASTER", endless.data(), sizeof endless).result, KEL_OK);
  std::uint32_t seqNum = 0;
  ASSERT_EQ(KEL_SendReceiveAsyncKEL(conn, "TASK_ID_APPLICATION_DEBUG_STREAMER", 1, endless.data(), sizeof endless,
                                    &seqNum, nullptr, &IgnoreMessage),
            KEL_OK);
  while (gBroadcasts < 10) std::this_thread::yield();
}

TEST(ExitTest, AProcessMayEndWithConnectionsOpenAndDataComing) {
  const ScratchDirectory folder;
  for (int i = 0; i < 3; ++i) ConnectAndLeaveOpen();
}

TEST(ExitTest, AProcessMayEndWhileItLogs) {
  const ScratchDirectory folder;
  RegistrySettings registry;
  registry.switchLogsOn();
  registry.set("Software\\Brel\\ALogger", "LogPath", folder.path().string());
  ConnectAndLeaveOpen();
}

}  // namespace
}  // namespace kel::test
