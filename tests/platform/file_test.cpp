// SPDX-License-Identifier: MIT
// Streams and dates.
#include <gmock/gmock.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <locale>

#include "platform/platform.h"

namespace kel::platform {
namespace {

using testing::MatchesRegex;

class AppendedFile : public testing::Test {
 protected:
  AppendedFile() { std::filesystem::remove(mName); }
  ~AppendedFile() override { std::filesystem::remove(mName); }

  std::string content() const {
    std::ifstream file(mName);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  const std::string mName = testing::TempDir() + "appended_file_test_" +
                            testing::UnitTest::GetInstance()->current_test_info()->name() + ".txt";
};

TEST_F(AppendedFile, IsMadeAndThenGoesOnGrowing) {
  openToAppend(mName) << "one\n";
  openToAppend(mName) << "two\n";
  EXPECT_EQ(content(), "one\ntwo\n");
}

TEST_F(AppendedFile, MayBeHeldOpenBySeveralWriters) {
  std::ofstream first = openToAppend(mName);
  std::ofstream second = openToAppend(mName);
  ASSERT_TRUE(first && second);
  first << "one\n" << std::flush;
  second << "two\n" << std::flush;
  first << "three\n" << std::flush;
  EXPECT_EQ(content(), "one\ntwo\nthree\n");
}

TEST_F(AppendedFile, DoesNotOpenInAFolderThatIsMissing) { EXPECT_FALSE(openToAppend("no/such/folder/file.txt")); }

/// Groups digits as the locales of many languages do.
class Grouping : public std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(AppendedFile, TakesNumbersWithoutTheGroupingOfTheGlobalLocale) {
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
  openToAppend(mName) << 1234567;
  std::locale::global(before);
  EXPECT_EQ(content(), "1234567");
}

TEST_F(AppendedFile, IsReadByteForByte) {
  const std::string bytes("one\r\ntwo\n\x1A\0\xFF", 12);
  std::ofstream(mName, std::ios::binary) << bytes;
  std::FILE* file = openToRead(mName.c_str());
  ASSERT_NE(file, nullptr);
  char read[64];
  EXPECT_EQ(std::string(read, std::fread(read, 1, sizeof read, file)), bytes);
  std::fclose(file);
}

TEST_F(AppendedFile, IsNotReadIfItIsMissing) { EXPECT_EQ(openToRead(mName.c_str()), nullptr); }

TEST_F(AppendedFile, IsNotReadIfItIsAFolder) {
  std::filesystem::create_directory(mName);
  EXPECT_EQ(openToRead(mName.c_str()), nullptr);
}

// Two looks at the clock: midnight may pass between the first and what is tested.
TEST(Date, IsTodayInTheAmericanOrder) {
  const auto today = [] {
    const std::time_t now = std::time(nullptr);
    char text[kDateTextSize];
    std::strftime(text, sizeof text, "%m/%d/%y", std::localtime(&now));
    return std::string(text);
  };
  const std::string before = today();
  char text[kDateTextSize] = {};
  EXPECT_EQ(dateText(text), 0);
  EXPECT_TRUE(text == before || text == today()) << text;
}

TEST(Date, TheTimeHasTwentyFourHours) {
  char text[kDateTextSize] = {};
  EXPECT_EQ(timeText(text), 0);
  EXPECT_EQ(std::string(text).size(), 8U);
  EXPECT_THAT(text, MatchesRegex("..:..:.."));
}

TEST(Path, TheSeparatorStandsBetweenFolderAndFile) {
  std::filesystem::path path("folder");
  path /= "file";
  EXPECT_EQ(path.string(), std::string("folder") + kPathSeparator + "file");
}

}  // namespace
}  // namespace kel::platform
