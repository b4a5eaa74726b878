// SPDX-License-Identifier: MIT
// Where a log lies and what it is called.
#include <atomic>
#include <ctime>

#include "logging/logger_test.h"
#include "platform/platform.h"
#include "support/private_member.h"

namespace kel::test {

struct FileNameOf {
  friend auto memberOf(FileNameOf);
};
template struct OpenMember<FileNameOf, &ALogger::mFileName>;

namespace {

std::string Today() {
  const std::time_t now = std::time(nullptr);
  char text[64];
  std::strftime(text, sizeof text, "%m-%d-%y", std::localtime(&now));
  return text;
}

class LogFileName : public Logger {
 protected:
  std::string fullName() { return (logger.*memberOf(FileNameOf{})).load()->text; }
};

TEST_F(LogFileName, OpensWithTodaysDate) {
  const std::string before = Today();
  setUp(true, true, true);
  logger.log(kInfo, "function", kLogFlags) << "text \n";
  // Midnight may pass in between.
  EXPECT_TRUE(directory.has(before + "-test.logs") || directory.has(Today() + "-test.logs"));
}

TEST_F(LogFileName, LiesInTheWorkingDirectoryWithoutALogPath) {
  setUp(true, true, true);
  EXPECT_EQ(fullName().size(), std::string("MM-DD-YY-test.logs").size());
}

TEST_F(LogFileName, LiesInTheFolderOfLogPath) {
  std::filesystem::create_directory("folder");
  registry.set(kLoggerRegistryKey, "LogPath", "folder");
  setUp(true, true, true);
  logger.log(kInfo, "function", kLogFlags) << "text \n";
  EXPECT_EQ(LogText("test.logs", "folder"), "\n[0 - 0] info - Module - function - text \n");
  EXPECT_FALSE(anyFile());
}

TEST_F(LogFileName, GetsASeparatorBehindALogPathWithoutOne) {
  registry.set(kLoggerRegistryKey, "LogPath", "folder");
  setUp(true, true, true);
  const std::string expected = std::string("folder") + platform::kPathSeparator;
  EXPECT_EQ(fullName().substr(0, fullName().size() - std::string("MM-DD-YY-test.logs").size()), expected);
}

TEST_F(LogFileName, GetsASecondSeparatorBehindALogPathWithOne) {
  const std::string path = std::string("folder") + platform::kPathSeparator;
  registry.set(kLoggerRegistryKey, "LogPath", path);
  setUp(true, true, true);
  EXPECT_EQ(fullName().substr(0, fullName().size() - std::string("MM-DD-YY-test.logs").size()),
            path + platform::kPathSeparator);

  std::filesystem::create_directory("folder");
  logger.log(kInfo, "function", kLogFlags) << "text \n";
  EXPECT_EQ(LogText("test.logs", "folder"), "\n[0 - 0] info - Module - function - text \n");
}

TEST_F(LogFileName, IsEmptyForAnEmptyNameWhateverTheSwitchesAndThePath) {
  std::filesystem::create_directory("folder");
  registry.set(kLoggerRegistryKey, "LogPath", "folder");
  setUp(true, true, true);
  logger.setFileName("");
  EXPECT_EQ(fullName(), "");
  logger.log(kError, "function", kLogFlags) << "text \n";
  EXPECT_TRUE(std::filesystem::is_empty("folder"));
}

TEST_F(LogFileName, IsLookedForInNoFolderBeforeTheKeyIsKnown) {
  registry.set(kLoggerRegistryKey, "LogPath", "folder");
  logger.setFileName("test.logs");
  EXPECT_EQ(fullName().size(), std::string("MM-DD-YY-test.logs").size());
}

TEST_F(LogFileName, IsSettledOnceForAll) {
  setUp(true, true, true);
  std::filesystem::create_directory("folder");
  registry.set(kLoggerRegistryKey, "LogPath", "folder");
  logger.log(kInfo, "function", kLogFlags) << "text \n";
  EXPECT_TRUE(anyFile());
  EXPECT_TRUE(std::filesystem::is_empty("folder"));
}

}  // namespace
}  // namespace kel::test
