// SPDX-License-Identifier: MIT
// What shipped scenarios promise, where it takes a client that reconnects or counts to a million. The others are in
// CMakeLists.txt.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <future>

#include "KELHandler.h"
#include "support/scratch_directory.h"

namespace {

constexpr char kEcho[] = "TASK_ID_APPLICATION_DEBUG_VAL";
constexpr char kStreamer[] = "TASK_ID_APPLICATION_DEBUG_STREAMER";

class ShippedTest : public testing::Test {
 protected:
  ~ShippedTest() override { KEL_Finalize(); }

  void Play(const std::string& name) {
    mFolder.write("SluiceHub.json", kel::test::ReadText(std::string(KEL_SCENARIOS) + '/' + name));
    mFolder.writeSettings("RxWaitTimeout=300\n");
    KEL_Init();
  }
  static std::uint64_t Connect() {
    std::uint64_t connection = 0;
    EXPECT_EQ(KEL_Connect(nullptr, nullptr, &connection), KEL_OK);
    return connection;
  }
  static std::uint32_t Send(std::uint64_t connection, const char* task, KEL_StreamCallback stream = nullptr) {
    void* answer = nullptr;
    std::uint32_t size = 0;
    const std::uint32_t result = KEL_SendReceiveKEL(connection, task, 0, nullptr, 0, &answer, &size, stream);
    std::free(answer);
    return result;
  }

  kel::test::ScratchDirectory mFolder;
};

TEST_F(ShippedTest, TheLinkIsDroppedAtTheFifthRequestAndHoldsAfterAReconnect) {
  Play("drops-the-link.json");
  std::uint64_t connection = Connect();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(Send(connection, kEcho), KEL_OK);
  EXPECT_EQ(Send(connection, kEcho), KEL_E_TASK);
  EXPECT_EQ(Send(connection, kEcho), KEL_E_TASK);
  KEL_Disconnect(connection);
  connection = Connect();
  for (int i = 0; i < 10; ++i) EXPECT_EQ(Send(connection, kEcho), KEL_OK);
  EXPECT_EQ(KEL_Disconnect(connection), KEL_OK);
}

std::atomic<std::uint32_t> gInOrder{0};
std::promise<void> gEnough;

/// Each message has its number first; the end is the one behind the last.
void OnMessage(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void* data, std::uint32_t,
               std::uint32_t) {
  std::uint32_t number = 0;
  std::memcpy(&number, data, sizeof number);
  if (number == gInOrder && ++gInOrder == KEL_MESSAGES) gEnough.set_value();
}

TEST_F(ShippedTest, AMillionMessagesComeInTheirOrder) {
  Play("million-messages.json");
  const std::uint64_t connection = Connect();
  EXPECT_EQ(Send(connection, kStreamer, OnMessage), KEL_OK);
  gEnough.get_future().wait();
  EXPECT_EQ(KEL_Disconnect(connection), KEL_OK);
}

}  // namespace
