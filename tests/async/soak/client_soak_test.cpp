// SPDX-License-Identifier: MIT
// Many asynchronous tasks through the exports, from several threads and over several connections.
#include <atomic>
#include <thread>

#include "interface/client.h"
#include "support/process_resources.h"
#include "support/room.h"

namespace kel::test {
namespace {

constexpr std::uint32_t kTasks = KEL_SOAK_TASKS;
constexpr std::uint32_t kThreads = 4;
constexpr std::uint32_t kConnections = 2;

std::vector<std::atomic<std::uint8_t>> gAnswers(kTasks);
std::atomic<std::uint32_t> gWrong{0};
Room gRoom(48);

void OnAnswer(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t, std::uint32_t, void* data,
              std::uint32_t size, std::uint32_t) {
  if (errorCode != 0 || size != sizeof(Values) || *static_cast<std::uint32_t*>(data) != commandID) ++gWrong;
  ++gAnswers[commandID];
  gRoom.release();
}

using ClientSoakTest = ClientTest;

TEST_F(ClientSoakTest, EachTaskOfFourThreadsIsAnsweredOnceAndLeavesNothing) {
  KEL_Disconnect(connect());  // so that what is loaded once is loaded
  const std::size_t threads = LivingThreads();
  const auto descriptors = OpenDescriptors();
  std::uint64_t connections[kConnections];
  for (std::uint64_t& conn : connections) conn = connect();

  std::vector<std::thread> clients;
  for (std::uint32_t t = 0; t < kThreads; ++t) {
    clients.emplace_back([&connections, t] {
      for (std::uint32_t i = t; i < kTasks; i += kThreads) {
        const Values payload = {i, 0, 0};
        std::uint32_t seqNum = 0;
        gRoom.acquire();
        while (KEL_SendReceiveAsyncKEL(connections[i % kConnections], kDebugVal, i, payload.data(), sizeof payload,
                                       &seqNum, OnAnswer, nullptr) != KEL_OK) {
          std::this_thread::yield();  // no number is free yet
        }
      }
    });
  }
  for (std::thread& client : clients) client.join();
  for (int i = 0; i < 48; ++i) gRoom.acquire();
  for (const std::uint64_t conn : connections) EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);

  EXPECT_EQ(gWrong, 0u);
  std::uint32_t once = 0;
  for (const auto& count : gAnswers) once += count == 1;
  EXPECT_EQ(once, kTasks);
  for (int look = 0; LivingThreads() > threads && look < 1000; ++look) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(LivingThreads(), threads);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

}  // namespace
}  // namespace kel::test
