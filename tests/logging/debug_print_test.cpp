// SPDX-License-Identifier: MIT
// The console, and lines that are reported twice.
#include "logging/DebugPrint.h"

#include <functional>
#include <thread>
#include <vector>

#include "logging/logger_test.h"

namespace kel::test {
namespace {

std::string Printed(const std::function<void()>& work) {
  testing::internal::CaptureStdout();
  work();
  return testing::internal::GetCapturedStdout();
}

class Console : public Logger {
 protected:
  std::atomic<std::uint32_t> logToConsole{1};
  const DebugPrint debugPrint{logToConsole};
};

TEST_F(Console, GetsALineAsItIsFormatted) {
  EXPECT_EQ(Printed([&] { debugPrint("%s - got %d of %X\n", "function", -3, 0xABCu); }), "function - got -3 of ABC\n");
}

TEST_F(Console, GetsNothingWhenItIsOff) {
  logToConsole = 0;
  EXPECT_EQ(Printed([&] { debugPrint("text \n"); }), "");
}

TEST_F(Console, FollowsItsSwitchAtOnce) {
  EXPECT_EQ(Printed([&] {
              debugPrint("one ");
              logToConsole = 0;
              debugPrint("two ");
              logToConsole = 2;
              debugPrint("three ");
            }),
            "one three ");
}

TEST_F(Console, HasNoLimitToALine) {
  const std::string text(100'000, 'x');
  EXPECT_EQ(Printed([&] { debugPrint("%s", text.c_str()); }), text);
}

TEST_F(Console, GetsTheLineOfTheLogBehindTheFunction) {
  setUp(true, true, true);
  EXPECT_EQ(Printed([&] { ReportTwice(logger, debugPrint, kInfo, "init", "Dorv.dll loaded \n"); }),
            "init - Dorv.dll loaded \n");
  EXPECT_EQ(written(), "\n[0 - 0] info - Module - init - Dorv.dll loaded \n");
}

TEST_F(Console, ShowsNumbersAsSignedAndHandlesInHexadecimalDigits) {
  setUp(true, true, true);
  const void* handle = reinterpret_cast<const void*>(std::uintptr_t{0x1AB2C});
  EXPECT_EQ(Printed([&] {
              ReportTwice(logger, debugPrint, kError, "function", "one ", 0xFFFFFFFFu, ", two ", -2,
                          ", Handle= ", handle, " \n");
            }),
            "function - one -1, two -2, Handle= 1AB2C \n");
  EXPECT_EQ(written(), "\n[0 - 0] error - Module - function - one 4294967295, two -2, Handle= 0x1ab2c \n");
}

TEST_F(Console, GetsPercentSignsOfAReportAsTheyStand) {
  EXPECT_EQ(Printed([&] { ReportTwice(logger, debugPrint, kInfo, "function", "100 %d \n"); }), "function - 100 %d \n");
}

TEST_F(Console, HasNoLimitToAReport) {
  setUp(false, false, false);
  const std::string path(100'000, 'x');
  EXPECT_EQ(Printed([&] { ReportTwice(logger, debugPrint, kInfo, "function", "path: ", path.c_str(), " \n"); }),
            "function - path: " + path + " \n");
}

TEST_F(Console, GetsReportsOfSeveralThreadsLineByLine) {
  setUp(false, false, false);
  constexpr int kThreads = 4, kLines = 200;
  const std::string printed = Printed([&] {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&] {
        for (int i = 0; i < kLines; ++i)
          ReportTwice(logger, debugPrint, kInfo, "function", "one ", 1, ", two ", 2u, "\n");
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
  std::string expected;
  for (int i = 0; i < kThreads * kLines; ++i) expected += "function - one 1, two 2\n";
  EXPECT_EQ(printed, expected);
}

TEST_F(Console, GetsAReportThatTheLogDoesNotTake) {
  setUp(false, false, false);
  EXPECT_EQ(Printed([&] { ReportTwice(logger, debugPrint, kInfo, "function", "text \n"); }), "function - text \n");
  EXPECT_FALSE(anyFile());
}

TEST_F(Console, LeavesAReportToTheLogWhenItIsOff) {
  setUp(true, true, true);
  logToConsole = 0;
  EXPECT_EQ(Printed([&] { ReportTwice(logger, debugPrint, kInfo, "function", "text \n"); }), "");
  EXPECT_EQ(written(), "\n[0 - 0] info - Module - function - text \n");
}

}  // namespace
}  // namespace kel::test
