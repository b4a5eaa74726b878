// SPDX-License-Identifier: MIT
// Settings in a file that opens and then does not read, or not to its end.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/platform.h"
#include "support/failing_files.h"
#include "support/scratch_directory.h"

namespace kel::test {
namespace {

constexpr platform::RegistryRoot kRoot = platform::RegistryRoot::localMachine;

class UnreadableFile : public testing::Test {
 protected:
  /// A file of that name which fails the first read: the memory of a process has nothing at its address 0.
  static void makeUnreadable(const char* name) { std::filesystem::create_symlink("/proc/self/mem", name); }

  static std::string iniValue(const char* key) {
    char value[64];
    platform::iniValue("Common", key, "default", value, sizeof value, "./Brel.ini");
    return value;
  }

  ScratchDirectory mDirectory;
};

TEST_F(UnreadableFile, HoldsNoValueOfTheRegistry) {
  makeUnreadable("Brel.registry");
  std::uint32_t number = 7;
  std::string text = "before";
  EXPECT_FALSE(platform::registryNumber(kRoot, "Software\\Brel\\ALogger", "Info", &number));
  EXPECT_FALSE(platform::registryText(kRoot, "Software\\Brel", "BrelDllsPath", &text));
  EXPECT_EQ(number, 7U);
  EXPECT_EQ(text, "before");
}

TEST_F(UnreadableFile, GivesTheDefaultOfAKey) {
  makeUnreadable("Brel.ini");
  EXPECT_EQ(iniValue("RxWaitTimeout"), "default");
}

TEST_F(UnreadableFile, HasTheValuesAheadOfWhereItFails) {
  const std::string readable = "[Common]\nFirst=one\n";
  mDirectory.write("Brel.ini", readable + "Second=two\n");
  mDirectory.write("Brel.registry", readable + "Second=two\n");
  for (const auto& [key, expected] : {std::pair("First", "one"), std::pair("Second", "default")}) {
    const FailingRead fails(readable.size());
    EXPECT_EQ(iniValue(key), expected);
  }
  for (const auto& [key, found] : {std::pair("First", true), std::pair("Second", false)}) {
    const FailingRead fails(readable.size());
    std::string text;
    EXPECT_EQ(platform::registryText(kRoot, "Common", key, &text), found);
  }
}

TEST_F(UnreadableFile, IsReadToItsEndHoweverLongItIs) {
  mDirectory.write("Brel.ini", "[Common]\n" + std::string(100'000, ';') + "\nLast=one\n");
  EXPECT_EQ(iniValue("Last"), "one");
}

}  // namespace
}  // namespace kel::test
