// SPDX-License-Identifier: MIT
// Numbers of the environment.
#include <gtest/gtest.h>

#include "platform/platform.h"
#include "support/environment_variable.h"

namespace kel::platform {
namespace {

using test::EnvironmentVariable;

constexpr const char* kName = "KEL_ENVIRONMENT_TEST";

class Environment : public testing::Test {
 protected:
  std::uint32_t mNumber = 4711;
};

TEST_F(Environment, GivesANumber) {
  for (const auto& [text, number] : {std::pair("0", 0u), {"1", 1u}, {"007", 7u}, {"4294967295", 4294967295u}}) {
    const EnvironmentVariable variable(kName, text);
    EXPECT_TRUE(environmentNumber(kName, &mNumber)) << text;
    EXPECT_EQ(mNumber, number);
  }
}

TEST_F(Environment, HasNoSuchVariable) {
  EXPECT_FALSE(environmentNumber(kName, &mNumber));
  EXPECT_EQ(lastError(), 203u);
  EXPECT_EQ(mNumber, 4711u);
}

TEST_F(Environment, GivesNothingForWhatIsNoNumber) {
  const std::string longText(1000, '1');
  for (const char* text : {" ", "on", "-1", "1 ", " 1", "0x1", "4294967296", longText.c_str()}) {
    const EnvironmentVariable variable(kName, text);
    EXPECT_FALSE(environmentNumber(kName, &mNumber)) << text;
    EXPECT_EQ(lastError(), 13u) << text;
    EXPECT_EQ(mNumber, 4711u);
  }
}

}  // namespace
}  // namespace kel::platform
