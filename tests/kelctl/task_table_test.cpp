// SPDX-License-Identifier: MIT
// Tables that kelctl reads by itself.
#include <gmock/gmock.h>

#include <filesystem>

#include "kelctl/kelctl_test.h"

namespace kelctl {
namespace {

using testing::StartsWith;

constexpr std::uintmax_t kTwoGiB = std::uintmax_t{1} << 31;
constexpr char kEcho[] = "MY_ECHO,  0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240\n";

using TaskTableTest = KelctlTest;

TEST_F(TaskTableTest, AFileBeyondAnyTableIsRefused) {
  mFolder.write("table.csv", kEcho);
  std::filesystem::resize_file("table.csv", kTwoGiB + 1);  // takes no room on the disk
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"tasks", "--table", "table.csv"}, {"tasks", "check", "table.csv"}}) {
    EXPECT_EQ(kelctl(words), "");
    EXPECT_EQ(mErrors, "kelctl: table.csv: this is larger than 64 MiB\n");
    EXPECT_EQ(mStatus, 1);
  }
}

// A table's text ends at such a byte where the library itself hands it out, but not where it reads the table.
TEST_F(TaskTableTest, RowsBehindAByteOfOnesAreRows) {
  mFolder.write("table.csv", "A\xFF,  0, 18, KEL_UPPER_DSPS, 3, VAL, 229953, 0x38241\n" + std::string(kEcho));
  EXPECT_THAT(kelctl({"tasks", "find", "MY_ECHO", "--table", "table.csv"}), StartsWith("0x38240\tVAL"));
  EXPECT_EQ(mStatus, 0);
}

}  // namespace
}  // namespace kelctl
