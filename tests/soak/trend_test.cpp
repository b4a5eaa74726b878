// SPDX-License-Identifier: MIT
// What the soak judges by.
#include "soak/trend.h"

#include <gtest/gtest.h>

namespace kel::test {
namespace {

TEST(Trend, OfAConstantIsNoGrowth) {
  Trend trend;
  for (int i = 0; i < 10; ++i) trend.add(i, 7);
  EXPECT_DOUBLE_EQ(trend.growth(), 0);
}

TEST(Trend, IsWhatIsAddedInTheSecondHalf) {
  Trend trend;
  for (int i = 0; i <= 10; ++i) trend.add(i * 0.5, 100 + 3 * i);
  EXPECT_DOUBLE_EQ(trend.growth(), 15);
}

TEST(Trend, LeavesTheStartOut) {
  Trend trend;
  for (int i = 0; i < 10; ++i) trend.add(i, i < 5 ? 100 * i : 500);
  EXPECT_DOUBLE_EQ(trend.growth(), 0);
  EXPECT_EQ(trend.most(), 500);
}

TEST(Trend, IsSeenThroughUpsAndDowns) {
  Trend trend;
  for (int i = 0; i < 1000; ++i) trend.add(i, i + (i % 2 == 0 ? 50 : -50));
  EXPECT_NEAR(trend.growth(), 499, 2);
}

TEST(Trend, OfOneValueIsNoGrowth) {
  Trend trend;
  EXPECT_EQ(trend.growth(), 0);
  trend.add(1, 7);
  EXPECT_EQ(trend.growth(), 0);
}

}  // namespace
}  // namespace kel::test
