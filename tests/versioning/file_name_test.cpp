// SPDX-License-Identifier: MIT
// The name of a file out of its path.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>
#include <string>

#include "version/FileName.h"

namespace kel::test {
namespace {

struct Path {
  const char* path;
  const char* name;
};

void PrintTo(const Path& path, std::ostream* out) { *out << path.path; }

class FileNameTest : public ::testing::TestWithParam<Path> {};

TEST_P(FileNameTest, IsABlockOfItsOwnAndThePathStaysAsItWas) {
  std::string path = GetParam().path;
  char* name = nullptr;
  EXPECT_TRUE(ExtractFileName(path.data(), &name, KeptBlocks()));
  ASSERT_NE(name, nullptr);
  EXPECT_STREQ(name, GetParam().name);
  EXPECT_EQ(path, GetParam().path);
  EXPECT_TRUE(name < path.data() || name > path.data() + path.size());
  std::free(name);
}

INSTANTIATE_TEST_SUITE_P(Paths, FileNameTest,
                         ::testing::Values(
                             // Without a separator, all of it.
                             Path{"Statistics.bm", "Statistics.bm"}, Path{"", ""}, Path{"C:file", "C:file"},
                             // Behind the last one.
                             Path{"C:\\versions\\Statistics.bm", "Statistics.bm"}, Path{"\\x", "x"},
                             Path{"versions/of/today/Statistics.bm", "Statistics.bm"}, Path{"/x", "x"},
                             Path{"a//b", "b"}, Path{"a/ ", " "},
                             // Of both kinds the forward one counts, wherever it stands.
                             Path{"C:\\versions/Statistics.bm", "Statistics.bm"},
                             Path{"versions/of\\today\\Statistics.bm", "of\\today\\Statistics.bm"},
                             Path{"versions/of\\", "of\\"}));

class EndingPathTest : public ::testing::TestWithParam<Path> {};

TEST_P(EndingPathTest, HasNoNameAndLosesItsSeparator) {
  std::string path = GetParam().path;
  char* name = path.data();
  EXPECT_FALSE(ExtractFileName(path.data(), &name, KeptBlocks()));
  EXPECT_EQ(name, nullptr);
  EXPECT_STREQ(path.c_str(), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Paths, EndingPathTest,
                         ::testing::Values(Path{"C:\\versions\\", "C:\\versions"}, Path{"versions/", "versions"},
                                           Path{"/", ""}, Path{"\\", ""}, Path{"a//", "a/"},
                                           Path{"C:\\versions/", "C:\\versions"}));

TEST(NullPathTest, HasNoName) {
  char other = 'x';
  char* name = &other;
  EXPECT_FALSE(ExtractFileName(nullptr, &name, KeptBlocks()));
  EXPECT_EQ(name, nullptr);
}

}  // namespace
}  // namespace kel::test
