// SPDX-License-Identifier: MIT
// The terminal of a pseudo-terminal pair: what no test can count on having otherwise.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/standard_streams.h"

namespace kelctl {
namespace {

TEST(Terminal, IsKnownAsOne) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(master, 0);
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  std::FILE* terminal = std::fopen(ptsname(master), "r+");
  ASSERT_NE(terminal, nullptr);
  EXPECT_TRUE(isTerminal(terminal));
  std::fclose(terminal);
  close(master);
}

TEST(Terminal, ThePipeOfTwoProgramsIsNone) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::FILE* pipeEnd = fdopen(ends[1], "w");
  EXPECT_FALSE(isTerminal(pipeEnd));
  std::fclose(pipeEnd);
  close(ends[0]);
}

}  // namespace
}  // namespace kelctl
