// SPDX-License-Identifier: MIT
// Ini files, by the table of cases.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "platform/ini_cases.h"
#include "platform/platform.h"

namespace kel::platform {
namespace {

// A file of its own for each case, with its folder in the name: a bare name would mean the folder of the system.
TEST(Ini, EveryCaseReadsAsExpected) {
  for (const IniCase& ini : kIniCases) {
    SCOPED_TRACE(ini.name);
    const std::string fileName = "./ini_test_" + std::string(ini.name) + ".ini";
    std::ofstream(fileName, std::ios::binary) << ini.content;
    std::vector<char> value(ini.size + 1, '#');
    const std::uint32_t length =
        iniValue(ini.section, ini.key, ini.defaultText, value.data(), ini.size, fileName.c_str());
    EXPECT_EQ(std::string(value.data()), ini.expected);
    EXPECT_EQ(length, ini.expected.size());
    EXPECT_EQ(value[ini.size], '#') << "wrote behind the end";
    std::filesystem::remove(fileName);
  }
}

TEST(Ini, AMissingFileGivesTheDefaultWithoutItsTrailingBlanks) {
  char value[16];
  EXPECT_EQ(iniValue("Common", "Key", "default ", value, sizeof value, "./no_such_file.ini"), 7U);
  EXPECT_STREQ(value, "default");
}

TEST(Ini, WithoutRoomNothingIsWritten) {
  char value[] = "before";
  EXPECT_EQ(iniValue("Common", "Key", "default", value, 0, "./no_such_file.ini"), 0U);
  EXPECT_STREQ(value, "before");
}

TEST(Ini, AFolderInThePlaceOfTheFileGivesTheDefault) {
  const char* const name = "./ini_test_folder.ini";
  std::filesystem::create_directory(name);
  char value[16];
  EXPECT_EQ(iniValue("Common", "Key", "default", value, sizeof value, name), 7U);
  EXPECT_STREQ(value, "default");
  std::filesystem::remove(name);
}

TEST(Ini, AChangeOfTheFileIsSeenByTheNextRead) {
  const char* const name = "./ini_test_change.ini";
  char value[16];
  std::ofstream(name) << "[Common]\nKey=one\n";
  iniValue("Common", "Key", "", value, sizeof value, name);
  EXPECT_STREQ(value, "one");
  std::ofstream(name) << "[Common]\nKey=another\n";
  iniValue("Common", "Key", "", value, sizeof value, name);
  EXPECT_STREQ(value, "another");
  std::filesystem::remove(name);
}

}  // namespace
}  // namespace kel::platform
