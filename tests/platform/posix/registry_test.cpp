// SPDX-License-Identifier: MIT
// The registry as a file of the working directory.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/platform.h"

namespace kel::platform {
namespace {

constexpr RegistryRoot kRoot = RegistryRoot::localMachine;
constexpr const char* kKey = "Software\\Brel\\ALogger";

// In a directory of its own for each test, since the file's name is fixed.
class Registry : public testing::Test {
 protected:
  Registry() {
    std::filesystem::create_directory(mDirectory);
    std::filesystem::current_path(mDirectory);
    std::ofstream("Brel.registry") << "; switches of the log\n"
                                      "[Software\\Brel]\n"
                                      "BrelDllsPath=\"/opt/brel dlls\"\n"
                                      "[Software\\Brel\\ALogger]\n"
                                      "Info=1\n"
                                      "Warn = 0x1F\n"
                                      "Large=0XfF\n"
                                      "Err=\n"
                                      "Most=4294967295\n"
                                      "TooMuch=4294967296\n"
                                      "Negative=-1\n"
                                      "Spoilt=12 monkeys\n"
                                      "LogPath=/var/log/brel\n";
  }
  ~Registry() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(mDirectory);
  }

  const std::filesystem::path mDirectory =
      std::filesystem::temp_directory_path() / ("registry_test_" + std::to_string(getpid()));
};

TEST_F(Registry, NumbersAreDecimalOrHexadecimal) {
  std::uint32_t number = 0;
  EXPECT_TRUE(registryNumber(kRoot, kKey, "Info", &number));
  EXPECT_EQ(number, 1U);
  EXPECT_TRUE(registryNumber(kRoot, kKey, "Warn", &number));
  EXPECT_EQ(number, 0x1FU);
  EXPECT_TRUE(registryNumber(kRoot, kKey, "Large", &number));
  EXPECT_EQ(number, 0xFFU);
  EXPECT_TRUE(registryNumber(kRoot, kKey, "Most", &number));
  EXPECT_EQ(number, 0xFFFFFFFFU);
}

TEST_F(Registry, WhatIsNoNumberCannotBeReadAsOne) {
  std::uint32_t number = 7;
  for (const char* name : {"Err", "TooMuch", "Negative", "Spoilt", "LogPath", "Missing"}) {
    EXPECT_FALSE(registryNumber(kRoot, kKey, name, &number)) << name;
  }
  EXPECT_EQ(number, 7U);
}

TEST_F(Registry, TextsAreReadFromTheirOwnKey) {
  std::string text;
  EXPECT_TRUE(registryText(kRoot, kKey, "LogPath", &text));
  EXPECT_EQ(text, "/var/log/brel");
  EXPECT_TRUE(registryText(kRoot, "software\\BREL", "breldllspath", &text));
  EXPECT_EQ(text, "/opt/brel dlls");
  EXPECT_TRUE(registryText(kRoot, kKey, "Err", &text));
  EXPECT_EQ(text, "");
}

TEST_F(Registry, WhatIsMissingLeavesTheTextAlone) {
  std::string text = "before";
  EXPECT_FALSE(registryText(kRoot, "Software\\Brel", "LogPath", &text));
  EXPECT_FALSE(registryText(kRoot, "Software\\Other", "LogPath", &text));
  EXPECT_FALSE(registryText(RegistryRoot{}, kKey, "LogPath", &text));
  EXPECT_EQ(text, "before");
}

TEST_F(Registry, AFolderInThePlaceOfTheFileIsNone) {
  if (std::filesystem::exists("/etc/Brel.registry")) GTEST_SKIP() << "this machine has a registry file";
  std::filesystem::remove("Brel.registry");
  std::filesystem::create_directory("Brel.registry");
  std::uint32_t number = 7;
  std::string text = "before";
  EXPECT_FALSE(registryNumber(kRoot, kKey, "Info", &number));
  EXPECT_FALSE(registryText(kRoot, kKey, "LogPath", &text));
  EXPECT_EQ(number, 7U);
  EXPECT_EQ(text, "before");
}

TEST_F(Registry, WithoutAFileNothingIsFound) {
  if (std::filesystem::exists("/etc/Brel.registry")) GTEST_SKIP() << "this machine has a registry file";
  std::filesystem::remove("Brel.registry");
  std::uint32_t number = 0;
  EXPECT_FALSE(registryNumber(kRoot, kKey, "Info", &number));
}

}  // namespace
}  // namespace kel::platform
