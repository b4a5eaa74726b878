// SPDX-License-Identifier: MIT
// The library's log files, as `kelctl log` shows them.
#include <gmock/gmock.h>

#include <filesystem>

#include "kelctl/kelctl_test.h"

namespace kelctl {
namespace {

using testing::HasSubstr;

constexpr char kBrel[] =
    "[0 - 0] info - BrelEngine - IssueAsyncCommandBase - assigned sequence number 5 \n\n"
    "[0 - 0] error - BrelEngine - Finalize - failed - exception caught! \n\n"
    "not a line of the log\n"
    "[0 - 0] info - BrelEngine - IssueAsyncCommandBase - assigned sequence number 15 \n\n";
constexpr char kSequencer[] = "[0 - 0] info - BrelTasksSequencer - FreeSequence - freed sequence number 5 \n\n";

class LogTest : public KelctlTest {
 protected:
  LogTest() {
    mFolder.write("01-02-26-Brel_Tasks_Sequencer.logs", kSequencer);
    mFolder.write("01-02-26-Brel.logs", kBrel);
    mFolder.write("12-31-25-Brel.logs", "[0 - 0] info - BrelEngine - init - Start \n\n");
  }
};

TEST_F(LogTest, ShowsTheDaysInTheirOrderAndTheFilesOfADayOneBehindTheOther) {
  EXPECT_EQ(kelctl({"log"}),
            "info  BrelEngine  init  Start\n"
            "info  BrelEngine  IssueAsyncCommandBase  assigned sequence number 5\n"
            "error  BrelEngine  Finalize  failed - exception caught!\n"
            "info  BrelEngine  IssueAsyncCommandBase  assigned sequence number 15\n"
            "info  BrelTasksSequencer  FreeSequence  freed sequence number 5\n");
  EXPECT_EQ(mStatus, 0);
}

TEST_F(LogTest, TakesLinesByLevelModuleFunctionAndText) {
  EXPECT_EQ(kelctl({"log", "--level", "err"}), "error  BrelEngine  Finalize  failed - exception caught!\n");
  EXPECT_EQ(kelctl({"log", "--module", "sequencer"}),
            "info  BrelTasksSequencer  FreeSequence  freed sequence number 5\n");
  EXPECT_EQ(kelctl({"log", "--function", "INIT"}), "info  BrelEngine  init  Start\n");
  EXPECT_EQ(kelctl({"log", "--text", "start"}), "info  BrelEngine  init  Start\n");
}

TEST_F(LogTest, TakesLinesByASequenceNumberAndNotByAPartOfOne) {
  EXPECT_EQ(kelctl({"log", "--sequence", "5"}),
            "info  BrelEngine  IssueAsyncCommandBase  assigned sequence number 5\n"
            "info  BrelTasksSequencer  FreeSequence  freed sequence number 5\n");
}

TEST_F(LogTest, SaysThatThereIsNone) {
  std::filesystem::create_directory("elsewhere");
  EXPECT_EQ(kelctl({"log", "--folder", "elsewhere"}), "");
  EXPECT_THAT(mErrors, HasSubstr("there are no log files"));
  EXPECT_EQ(mStatus, 1);
}

}  // namespace
}  // namespace kelctl
