// SPDX-License-Identifier: MIT
// There is no pipe library.
#include <thread>

#include "adapter/pipe_library/bare_adapter.h"

namespace kel::test {
namespace {

using MissingLibrary = BareAdapter;

TEST_F(MissingLibrary, IsToldWithTheSystemsErrorNumber) {
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), kNoDorvHandle);
  EXPECT_EQ(log.fresh(), line("error", "WRAPPER_COMMON_LoadSluiceHub",
                              "LoadLibrary returned NULL on loading of SluiceHub.dll. (lastErr=126) \n") +
                             failedToLoad);
  EXPECT_FALSE(gVersionCheck);
}

// The failure counts as a user, so the second call takes the load for done and finds no function to ask.
TEST_F(MissingLibrary, IsTakenForLoadedFromThenOn) {
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), kNoDorvHandle);
  log.fresh();
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), kNoDorvHandle);
  EXPECT_EQ(log.fresh(), loaded + noFunctions);
}

TEST_F(MissingLibrary, LeavesTheLockToOthers) {
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), kNoDorvHandle);
  std::thread([] { EXPECT_EQ(Dorv_Init(nullptr, nullptr), kNoDorvHandle); }).join();
}

}  // namespace
}  // namespace kel::test
