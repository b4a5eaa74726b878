// SPDX-License-Identifier: MIT
// The exports that go straight to the pipe library, and the one that answers from constants.
#include "interface/client.h"

namespace kel::test {
namespace {

TEST(PassThroughTest, GetVersionAnswersBeforeAnyOtherCall) {
  const VersionArray version = KEL_GetVersion();
  EXPECT_THAT(version.number, ::testing::ElementsAre(4, 1, 0, 21, 0));
}

TEST(PassThroughTest, ResultsOfThePipeLibraryComeBackUnread) {
  const SluiceHubSimFunction functions[] = {SLUICEHUBSIM_INIT,
                                            SLUICEHUBSIM_FINALIZE,
                                            SLUICEHUBSIM_REGISTER_CTRL_STATUS,
                                            SLUICEHUBSIM_UNREGISTER_CTRL_STATUS,
                                            SLUICEHUBSIM_GET_CTRL_STATUS,
                                            SLUICEHUBSIM_SET_CONN_PARAMS};
  std::uint32_t result = 0xFFFFFF00;
  for (const SluiceHubSimFunction function : functions) SluiceHubSim_ForceResult(function, ++result);

  EXPECT_EQ(KEL_Init(), 0xFFFFFF01);
  EXPECT_EQ(KEL_Finalize(), 0xFFFFFF02);
  EXPECT_EQ(KEL_RegisterCtrlStatusUpdatesCB(nullptr), 0xFFFFFF03);
  EXPECT_EQ(KEL_UnregisterCtrlStatusUpdatesCB(nullptr), 0xFFFFFF04);
  EXPECT_EQ(KEL_GetCtrlStatus(), 0xFFFFFF05);
  EXPECT_EQ(KEL_SetConnParams(0, 0), 0xFFFFFF06);
  for (const SluiceHubSimFunction function : functions) EXPECT_EQ(SluiceHubSim_Calls(function), 1u) << function;
}

TEST(PassThroughTest, ConnectionParametersReachThePipeLibraryWhole) {
  EXPECT_EQ(KEL_SetConnParams(0x123456789ABCDEF0, 0xFEDCBA98), 0u);
  std::uint64_t params = 0;
  std::uint32_t value = 0;
  SluiceHubSim_GetConnParams(&params, &value);
  EXPECT_EQ(params, 0x123456789ABCDEF0u);
  EXPECT_EQ(value, 0xFEDCBA98u);
}

std::vector<std::uint32_t> gStatuses;

void NoteStatus(std::uint32_t status) { gStatuses.push_back(status); }

TEST(PassThroughTest, TheStatusCallbackIsRegisteredAndTakenBackByItsAddress) {
  const auto callback = reinterpret_cast<KEL_CtrlStatusCallback>(&NoteStatus);
  KEL_RegisterCtrlStatusUpdatesCB(callback);
  SluiceHubSim_SetCtrlStatus(5);
  EXPECT_EQ(KEL_GetCtrlStatus(), 5u);
  KEL_UnregisterCtrlStatusUpdatesCB(callback);
  SluiceHubSim_SetCtrlStatus(6);
  EXPECT_EQ(KEL_GetCtrlStatus(), 6u);
  EXPECT_EQ(gStatuses, std::vector<std::uint32_t>{5});
}

}  // namespace
}  // namespace kel::test
