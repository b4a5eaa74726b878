// SPDX-License-Identifier: MIT
// Built-in resources.
#include <gtest/gtest.h>

#include <string_view>

#include "platform/platform.h"

namespace kel::platform {
namespace {

std::string_view textOf(const Resource& resource) { return {resource.bytes, resource.size}; }

TEST(Resource, TheTaskTableIsBuiltInByteForByte) {
  const Resource table = findResource(nullptr, "#101", "TUISFILE");
  ASSERT_NE(table.bytes, nullptr);
  EXPECT_EQ(table.size, 4101U);
  EXPECT_TRUE(textOf(table).starts_with("TASK_ID_TRACE_ADAPTER,  0, 0, KEL_TRACE, 1, REF, 614400, 0x96000\r\n"));
  EXPECT_TRUE(textOf(table).ends_with(", 0x38281\r\n"));
}

TEST(Resource, TheVersionsVectorIsBuiltInByteForByte) {
  const Resource vector = findResource(nullptr, "#103", "UMVERSIONSVECTOR");
  ASSERT_NE(vector.bytes, nullptr);
  EXPECT_EQ(vector.size, 246U);
  EXPECT_TRUE(textOf(vector).starts_with("1144315543\r\n"));
  EXPECT_TRUE(textOf(vector).ends_with("Statistics.bm,1,4166573213,statistics bm\r\n"));
}

// The readers walk them as texts and find the end by it.
TEST(Resource, AZeroByteFollows) {
  for (const Resource& resource :
       {findResource(nullptr, "#101", "TUISFILE"), findResource(nullptr, "#103", "UMVERSIONSVECTOR")}) {
    EXPECT_EQ(resource.bytes[resource.size], '\0');
  }
}

TEST(Resource, WhatIsNotBuiltInIsNotFound) {
  EXPECT_EQ(findResource(nullptr, "#104", "KMVERSIONSVECTOR").bytes, nullptr);
  EXPECT_EQ(findResource(nullptr, "#102", "TUISFILE").bytes, nullptr);
  EXPECT_EQ(findResource(nullptr, "#101", "UMVERSIONSVECTOR").size, 0U);
}

}  // namespace
}  // namespace kel::platform
