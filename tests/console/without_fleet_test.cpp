// SPDX-License-Identifier: MIT
// The console where the road to other hosts is not built.
#include <gmock/gmock.h>

#include "kel/fleet.hpp"
#include "kel/fleet_site.hpp"

namespace {

using testing::HasSubstr;

constexpr char kMissing[] = "libnats-dev";

TEST(WithoutFleetTest, ThisHostsDeviceHasAnAddress) {
  EXPECT_TRUE(kel::fleet::addressOf("kel:").value().servers.empty());
}

TEST(WithoutFleetTest, OtherHostsAreRefusedWithWhatIsMissing) {
  EXPECT_THAT(kel::fleet::addressOf("nats://host/lab/bench7").error().subject, HasSubstr(kMissing));
  EXPECT_THAT(kel::fleet::begin("nats://host/lab/bench7").error().subject, HasSubstr(kMissing));
  EXPECT_THAT(kel::fleet::Site::open("nats://host/lab").error().subject, HasSubstr(kMissing));
}

}  // namespace
