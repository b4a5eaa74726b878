// SPDX-License-Identifier: MIT
// A connection whose settings lie in files that open and do not read, or do not open at all.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "engine/Brel.h"
#include "support/core_process.h"
#include "support/log_file.h"
#include "support/scratch_directory.h"

namespace kel::test {
namespace {

constexpr const char* kSwitchesOn = "[Software\\Brel\\ALogger]\nInfo=1\nWarn=1\nErr=1\n";

class UnreadableSettings : public testing::Test {
 protected:
  /// A file of that name which fails the first read: the memory of a process has nothing at its address 0.
  static void makeUnreadable(const char* name) { std::filesystem::create_symlink("/proc/self/mem", name); }

  /// Connects and disconnects.
  static void connect() {
    std::uint32_t handle = 0;
    ASSERT_EQ(BrelInit(&handle, nullptr, 0, nullptr, nullptr, nullptr), 2U);
    EXPECT_EQ(BrelFinalize(handle), 2U);
  }

  static std::string entry(const std::string& function, const std::string& text) {
    return LogEntry("info", "BrelEngine", function, text);
  }

  CoreProcess mProcess;
  ScratchDirectory mDirectory;
};

TEST_F(UnreadableSettings, OfTheRegistryOnlyCostTheLog) {
  makeUnreadable("Brel.registry");
  connect();
  EXPECT_EQ(LogPath("Brel.logs"), "");
  EXPECT_EQ(LogPath("DorvL5.logs"), "");
}

TEST_F(UnreadableSettings, OfTheRegistryDoNotOutliveTheFault) {
  makeUnreadable("Brel.registry");
  connect();
  std::filesystem::remove("Brel.registry");
  mDirectory.write("Brel.registry", kSwitchesOn);
  connect();
  EXPECT_TRUE(LogText("Brel.logs").starts_with(entry("init", "Start \n"))) << LogText("Brel.logs");
  EXPECT_NE(LogPath("DorvL5.logs"), "");
}

TEST_F(UnreadableSettings, InAFolderInThePlaceOfTheRegistryOnlyCostTheLog) {
  if (std::filesystem::exists("/etc/Brel.registry")) GTEST_SKIP() << "this machine has a registry file";
  std::filesystem::create_directory("Brel.registry");
  connect();
  EXPECT_EQ(LogPath("Brel.logs"), "");
  EXPECT_EQ(LogPath("DorvL5.logs"), "");
}

TEST_F(UnreadableSettings, AreFoundAndComeToTheDefaultsOfTheKeys) {
  mDirectory.write("Brel.registry", kSwitchesOn);
  makeUnreadable("Brel.ini");
  connect();
  const std::string kLoad = "LoadBrelIniSettings";
  const std::string expected =
      entry("init", "Start \n") + entry(kLoad, "LogToConsole = 0 \n") + entry(kLoad, "RxWaitTimeout = 10000 \n") +
      entry(kLoad, "TUIsFilePath = KEL_ALLTASKS.csv \n") + entry(kLoad, "UpperDriverIpAddress = 127.0.0.1 \n") +
      entry(kLoad, "UpperDriverPortNumber = 1234 \n") + entry(kLoad, "RequestStructDumpFilename =  \n") +
      entry(kLoad, "RequestStructPayloadDumpFilename =  \n") + entry(kLoad, "ResponseStructDumpFilename =  \n") +
      entry(kLoad, "ResponseStructPayloadDumpFilename =  \n") +
      entry("init", "Brel.ini file found. Replacing defaults. \n");
  EXPECT_EQ(LogText("Brel.logs").substr(0, expected.size()), expected);
}

// A table that opens and gives no line is no table, as an empty one is.
TEST_F(UnreadableSettings, OfTheTaskTableFailTheConnection) {
  mDirectory.write("Brel.registry", kSwitchesOn);
  makeUnreadable("KEL_ALLTASKS.csv");
  std::uint32_t handle = 0;
  EXPECT_EQ(BrelInit(&handle, nullptr, 0, nullptr, nullptr, nullptr), 1U);
  const std::string log = LogText("Brel.logs");
  EXPECT_NE(
      log.find(entry("ReadTUIs", "The KEL_ALLTASKS.csv TUIs file was opened. \n") +
               LogEntry("error", "BrelEngine", "ReadTUIs", "The KEL_ALLTASKS.csv TUIs file ended unexpectedly. \n") +
               LogEntry("error", "BrelEngine", "init", "could not read TUIs \n")),
      log.npos)
      << log;
}

}  // namespace
}  // namespace kel::test
