// SPDX-License-Identifier: MIT
// Tables whose length cannot be told.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "catalogue/task_list_test.h"

namespace kel::test {
namespace {

TEST_F(TaskList, IsNotReadFromAPipeNorTakenFromOneAsItStands) {
  ASSERT_EQ(mkfifo("table.csv", 0600), 0);
  const int bothEnds = open("table.csv", O_RDWR);  // so that the list need not wait for a writer
  ASSERT_GE(bothEnds, 0);
  EXPECT_TRUE(readTUIs());
  const char *name = nullptr, *buffer = nullptr;
  std::uint32_t length = 0;
  EXPECT_TRUE(printed([&] { return mList.RetrieveRawTUIsList(&name, &buffer, &length); }));
  expectReported({{"info", "ReadTUIs", kOpened},
                  {"error", "ReadTUIs", "The KEL_ALLTASKS.csv TUIs file is EMPTY. Using defaults. \n"},
                  {"error", "RetrieveRawTUIsList",
                   "The KEL_ALLTASKS.csv TUIs file is EMPTY. Retrieving internal resource. \n"}});
  EXPECT_EQ(tuiOf("TASK_ID_TRACE_ADAPTER"), 614400U);
  EXPECT_EQ(length, 4101U);
  close(bothEnds);
}

TEST_F(TaskList, BeyondTwoGibibytesCountsAsEmptyWhereItsBytesAreAskedFor) {
  mDirectory.write("table.csv", "");
  std::filesystem::resize_file("table.csv", std::uintmax_t{1} << 31);  // takes no room on the disk
  const char *name = nullptr, *buffer = "before";
  std::uint32_t length = 0;
  EXPECT_FALSE(printed([&] { return mList.RetrieveRawTUIsList(&name, &buffer, &length); }));
  EXPECT_EQ(buffer, nullptr);
}

}  // namespace
}  // namespace kel::test
