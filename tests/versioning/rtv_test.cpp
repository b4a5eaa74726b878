// SPDX-License-Identifier: MIT
// The validator, its codes, and the VersionsVector that the library carries.
#include <gtest/gtest.h>

#include "engine/Status.h"
#include "platform/platform.h"
#include "version/Rtv.h"

namespace kel::test {
namespace {

TEST(RtvTest, EachCodeHasItsStatus) {
  const Status statuses[] = {2, 25, 26, 27, 28, 29, 30, 31, 32, 33};
  for (std::int32_t code = 0; code < 10; ++code) EXPECT_EQ(MapRtvStatus(code), statuses[code]) << code;
}

TEST(RtvTest, AnyOtherCodeIsAnUnknownError) {
  for (const std::int32_t code : {10, 11, 25, -1, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
    EXPECT_EQ(MapRtvStatus(code), 0u) << code;
  }
}

TEST(RtvTest, TheValidatorPassesEverythingUnread) {
  EXPECT_EQ(RtvValidateVersion(0, nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr), 0);
  // Addresses that nobody could read from.
  char* nowhere = reinterpret_cast<char*>(std::uintptr_t{8});
  EXPECT_EQ(RtvValidateVersion(4, reinterpret_cast<std::uint32_t*>(nowhere), nowhere, nowhere, 4711, nowhere, nowhere,
                               4, reinterpret_cast<char**>(nowhere), reinterpret_cast<std::uint32_t*>(nowhere)),
            0);
}

TEST(VersionsVectorTest, TheBuiltInOneIsThis) {
  const platform::Resource vector = platform::findResource(nullptr, "#103", "UMVERSIONSVECTOR");
  ASSERT_NE(vector.bytes, nullptr);
  EXPECT_EQ(std::string(vector.bytes, vector.size),
            "1144315543\r\n"
            "KEL_ALLTASKS.csv,1,210340787,this is the first try\r\n"
            "TraceModules.bm,1,293750596,trace modules\r\n"
            "TraceSeverity.bm,1,3723474211,trace severities\r\n"
            "TraceSubSystem.bm,1,2147586183,trace subsystems\r\n"
            "Statistics.bm,1,4166573213,statistics bm\r\n");
  EXPECT_EQ(vector.size, 246u);
}

TEST(VersionsVectorTest, OfTheOtherSidesThereIsNone) {
  EXPECT_EQ(platform::findResource(nullptr, "#104", "KMVERSIONSVECTOR").bytes, nullptr);
  EXPECT_EQ(platform::findResource(nullptr, "#105", "FWVERSIONSVECTOR").bytes, nullptr);
  EXPECT_EQ(platform::findResource(nullptr, "#106", "UDVERSIONSVECTOR").bytes, nullptr);
}

}  // namespace
}  // namespace kel::test
