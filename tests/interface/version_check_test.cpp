// SPDX-License-Identifier: MIT
// A pipe library whose interface version is refused.
#include <chrono>
#include <future>
#include <thread>

#include "interface/client.h"
#include "support/left_thread.h"

namespace kel::test {
namespace {

using VersionCheckTest = ClientTest;

TEST_F(VersionCheckTest, OfAVersionThatIsEqualOrHasTheSameFirstNumberPasses) {
  EXPECT_EQ(KEL_Disconnect(connect()), KEL_OK);
  const std::uint32_t similar[5] = {4, 0, 0, 0, 0};
  SluiceHubSim_SetVersion(similar);
  EXPECT_EQ(KEL_Disconnect(connect()), KEL_OK);
  EXPECT_EQ(SluiceHubSim_Calls(SLUICEHUBSIM_VALIDATE_VERSION), 2u);
}

TEST_F(VersionCheckTest, IsLeftOutWhereNobodyWantsIt) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_IS_VERSION_VALIDATION_ENABLED, 0);
  const std::uint32_t foreign[5] = {9, 9, 9, 9, 9};
  SluiceHubSim_SetVersion(foreign);
  EXPECT_EQ(KEL_Disconnect(connect()), KEL_OK);
  EXPECT_EQ(SluiceHubSim_Calls(SLUICEHUBSIM_GET_VERSION), 0u);
  EXPECT_EQ(SluiceHubSim_Calls(SLUICEHUBSIM_VALIDATE_VERSION), 0u);
}

TEST_F(VersionCheckTest, ThatRefusesIsNotRepeatedByTheThreadThatWasRefused) {
  const std::uint32_t foreign[5] = {5, 1, 0, 21, 0};
  SluiceHubSim_SetVersion(foreign);
  std::uint64_t conn = 4711;
  EXPECT_EQ(KEL_Connect(nullptr, nullptr, &conn), KEL_E_CONNECTION);
  EXPECT_EQ(conn, 4711u);
  // The refused load was counted, so this one takes it for done.
  EXPECT_EQ(SendValues(connect(), {1, 2, 3}).payload, Bytes({1, 2, 3}));
  EXPECT_EQ(SluiceHubSim_Calls(SLUICEHUBSIM_VALIDATE_VERSION), 1u);
}

/// What the thread that blocks for good goes on using when its test has ended.
struct Blocked {
  std::uint64_t conn = 0;
  std::promise<std::uint32_t> result;
};

TEST_F(VersionCheckTest, ThatRefusesKeepsOtherThreadsFromConnectingForGood) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_VALIDATE_VERSION, 2);
  std::uint64_t conn = 0;
  EXPECT_EQ(KEL_Connect(nullptr, nullptr, &conn), KEL_E_CONNECTION);
  SluiceHubSim_UnforceResult(SLUICEHUBSIM_VALIDATE_VERSION);

  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  static Blocked blocked;
  std::future<std::uint32_t> result = blocked.result.get_future();
  LeaveToItself([] { blocked.result.set_value(KEL_Connect(nullptr, nullptr, &blocked.conn)); });
  while (SluiceHubSim_TraceCount() == 0) std::this_thread::yield();
  EXPECT_EQ(result.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
  EXPECT_TRUE(OpenConnections().empty());
}

}  // namespace
}  // namespace kel::test
