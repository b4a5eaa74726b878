// SPDX-License-Identifier: MIT
// Streams as the tool meets them: files here, terminals where a test can make one.
#include "platform/standard_streams.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/scratch_directory.h"

namespace kelctl {
namespace {

class File : public testing::Test {
 protected:
  ~File() override { std::fclose(mFile); }

  const kel::test::ScratchDirectory mDirectory;
  std::FILE* mFile = std::fopen("file.txt", "w");
};

TEST_F(File, IsNoTerminal) { EXPECT_FALSE(isTerminal(mFile)); }

TEST_F(File, TakesBytesAsTheyAreOnceToldSo) {
  passBytes(mFile);
  std::fputs("one\r\ntwo\n", mFile);
  std::fflush(mFile);
  std::ifstream raw("file.txt", std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(raw), {}), "one\r\ntwo\n");
}

}  // namespace
}  // namespace kelctl
