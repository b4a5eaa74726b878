// SPDX-License-Identifier: MIT
// A pipe for a table. The library reads a table twice, which no pipe allows, and its built-in one in place of a pipe.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "kelctl/kelctl_test.h"

namespace kelctl {
namespace {

using testing::HasSubstr;

using PipeTableTest = KelctlTest;

TEST_F(PipeTableTest, APipeIsNoTaskTable) {
  ASSERT_EQ(mkfifo("table.csv", 0600), 0);
  const std::vector<std::string> lines[] = {{"tasks"}, {"tasks", "find", "debug"}, {"send", "MY_ECHO"}};
  for (std::vector<std::string> words : lines) {
    words.insert(words.end(), {"--table", "table.csv"});
    EXPECT_EQ(kelctl(words), "");
    EXPECT_THAT(mErrors, HasSubstr("--table: table.csv is no regular file"));
    EXPECT_EQ(mStatus, 2);
  }
}

TEST_F(PipeTableTest, AlsoIfItHasAWriter) {
  ASSERT_EQ(mkfifo("table.csv", 0600), 0);
  const int bothEnds = open("table.csv", O_RDWR);
  ASSERT_GE(bothEnds, 0);
  EXPECT_EQ(kelctl({"tasks", "--table", "table.csv"}), "");
  EXPECT_EQ(mStatus, 2);
  close(bothEnds);
}

TEST_F(PipeTableTest, ATableFromAPipeIsCheckedAllTheSame) {
  ASSERT_EQ(mkfifo("table.csv", 0600), 0);
  std::thread writer([] {
    const std::string row = "MY_ECHO,  0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240\n";
    const int pipe = open("table.csv", O_WRONLY);
    EXPECT_EQ(write(pipe, row.data(), row.size()), static_cast<ssize_t>(row.size()));
    close(pipe);
  });
  EXPECT_EQ(kelctl({"tasks", "check", "table.csv"}), "table.csv: 1 tasks, no faults\n");
  writer.join();
}

}  // namespace
}  // namespace kelctl
