// SPDX-License-Identifier: MIT
// The pipe library lacks its dispatcher function.
#include <thread>

#include "adapter/pipe_library/bare_adapter.h"

namespace kel::test {
namespace {

using MissingDispatcher = BareAdapter;

TEST_F(MissingDispatcher, IsTold) {
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), kNoDorvHandle);
  EXPECT_EQ(log.fresh(), line("error", "WRAPPER_COMMON_LoadSluiceHub",
                              "LoadLibrary returned NULL for SLUICE_HUB_GetServiceDispatcherFunctions. \n") +
                             failedToLoad);
  EXPECT_FALSE(gVersionCheck);
}

TEST_F(MissingDispatcher, IsMissedAgainByTheNext) {
  Dorv_Init(nullptr, nullptr);
  log.fresh();
  std::thread([] { EXPECT_EQ(Dorv_Init(nullptr, nullptr), kNoDorvHandle); }).join();
  EXPECT_EQ(log.fresh(), loaded + noFunctions);
}

}  // namespace
}  // namespace kel::test
