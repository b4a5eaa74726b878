// SPDX-License-Identifier: MIT
// The control status and the connection parameters of the pipe library.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "SluiceHubSim.h"
#include "kelctl/kelctl_test.h"

namespace kelctl {
namespace {

using testing::HasSubstr;

using ControlStatusTest = KelctlTest;

TEST_F(ControlStatusTest, IsShown) {
  SluiceHubSim_SetCtrlStatus(7);
  EXPECT_THAT(kelctl({"status"}), HasSubstr("  control status 7\n"));
  EXPECT_EQ(mStatus, 0);
}

TEST_F(ControlStatusTest, IsWatched) {
  std::atomic<bool> isOver{false};
  std::thread device([&] {
    while (!isOver) SluiceHubSim_SetCtrlStatus(9);
  });
  EXPECT_THAT(kelctl({"status", "watch", "--count", "1"}), HasSubstr("  control status 9\n"));
  EXPECT_EQ(mStatus, 0);
  isOver = true;
  device.join();
}

TEST_F(ControlStatusTest, ParametersReachThePipeLibrary) {
  EXPECT_EQ(kelctl({"status", "set", "--parameters", "0x100000002", "--value", "5"}), "the pipe library returned 0\n");
  std::uint64_t parameters = 0;
  std::uint32_t value = 0;
  SluiceHubSim_GetConnParams(&parameters, &value);
  EXPECT_EQ(parameters, 0x100000002u);
  EXPECT_EQ(value, 5u);
  kelctl({"status", "set", "--parameters", "many", "--value", "5"});
  EXPECT_EQ(mStatus, 2);
}

}  // namespace
}  // namespace kelctl
