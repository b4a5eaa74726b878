// SPDX-License-Identifier: MIT
// What the check of the pipe library's version is asked, and what follows from it.
#include <gmock/gmock.h>

#include "adapter/pipe_library/bare_adapter.h"

namespace kel::test {
namespace {

using testing::ElementsAre;

using CheckOfTheVersion = BareAdapter;

TEST_F(CheckOfTheVersion, ComparesTheLibrarysWithThisOne) {
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), 0u);
  ASSERT_TRUE(gVersionCheck);
  EXPECT_EQ(gVersionCheck->userName, L"KELHandler");
  EXPECT_THAT(gVersionCheck->ofLibrary.number, ElementsAre(9, 8, 7, 6, 5));
  EXPECT_THAT(gVersionCheck->ofUser.number, ElementsAre(4, 1, 0, 21, 0));
  EXPECT_EQ(log.fresh(), success);
}

TEST_F(CheckOfTheVersion, IsMadeForTheFirstOfSeveralUsersOnly) {
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), 0u);
  gVersionCheck.reset();
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), 1u);
  EXPECT_FALSE(gVersionCheck);
}

TEST_F(CheckOfTheVersion, RefusesTheLibraryWithEveryResultAbove1) {
  gVersionCheckResult = 2;
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), kNoDorvHandle);
  EXPECT_EQ(log.fresh(), failedToLoad);
}

}  // namespace
}  // namespace kel::test
