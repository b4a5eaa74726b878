// SPDX-License-Identifier: MIT
// The pipe library lacks its version function, which nobody notices.
#include "adapter/pipe_library/bare_adapter.h"

namespace kel::test {
namespace {

using MissingVersion = BareAdapter;

TEST_F(MissingVersion, IsNotNoticedWithTheValidationOff) {
  gVersionValidationEnabled = 0;
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), 0u);
  EXPECT_EQ(log.fresh(), success);
  EXPECT_FALSE(gVersionCheck);
}

TEST_F(MissingVersion, IsCheckedAsAVersionOfZeros) {
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), 0u);
  EXPECT_EQ(log.fresh(), success);
  ASSERT_TRUE(gVersionCheck);
  for (const std::uint32_t number : gVersionCheck->ofLibrary.number) EXPECT_EQ(number, 0u);
}

}  // namespace
}  // namespace kel::test
