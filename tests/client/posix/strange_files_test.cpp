// SPDX-License-Identifier: MIT
// Files of the kinds that only Linux has, in the place of a task table.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/task_table_test.h"

namespace kel::test {
namespace {

TEST(TaskTableFile, ThatIsAPipeIsNotRead) {
  const ScratchDirectory folder;
  ASSERT_EQ(mkfifo("table.csv", 0600), 0);
  const int bothEnds = open("table.csv", O_RDWR);  // so that nobody waits for a writer
  ASSERT_GE(bothEnds, 0);
  EXPECT_EQ(NamesAndTuisOf(TaskTable::read("table.csv")), std::nullopt);
  EXPECT_EQ(NamesAndTuisOf(TaskTable::inForce("table.csv")), LibrarysRead("table.csv"));
  EXPECT_EQ(TaskTable::inForce("table.csv").size(), 50U);
  close(bothEnds);
}

TEST(TaskTableFile, ThatFailsToBeReadIsRefusedAsByTheLibrary) {
  const char* const unreadable = "/proc/self/mem";  // nothing lies at address 0
  EXPECT_EQ(LibrarysRead(unreadable), std::nullopt);
  EXPECT_EQ(NamesAndTuisOf(TaskTable::read(unreadable)), std::nullopt);
  EXPECT_EQ(TaskTable::inForce(unreadable).size(), 0U);
}

TEST(TaskTableFile, WithoutAnEndIsReadUpToTheTablesEnd) {
  EXPECT_EQ(NamesAndTuisOf(TaskTable::read("/dev/zero")), LibrarysRead("/dev/zero"));
  EXPECT_EQ(NamesAndTuisOf(TaskTable::read("/dev/null")), LibrarysRead("/dev/null"));
}

TEST(TaskTableFile, ThatIsNamedBySettingsWhichFailToBeReadIsTheDefault) {
  const ScratchDirectory folder;
  folder.write("KEL_ALLTASKS.csv", "WHICH, 0, 0, T, 1, VAL, 4, 0x4\n");
  ASSERT_EQ(symlink("/proc/self/mem", "Brel.ini"), 0);
  EXPECT_EQ(TaskTable::inForce("").find("WHICH"), 4U);
}

}  // namespace
}  // namespace kel::test
