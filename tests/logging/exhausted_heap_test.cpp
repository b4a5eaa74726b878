// SPDX-License-Identifier: MIT
// The log and the console while the heap is exhausted: lines may be lost, and nothing is thrown.
#include <gtest/gtest.h>

#include "logging/DebugPrint.h"
#include "logging/logger_test.h"
#include "support/failing_heap.h"

namespace kel::test {
namespace {

const std::string kText = "\n[0 - 0] info - Module - function - text \n";

class ExhaustedHeap : public Logger {
 protected:
  void writeLine() {
    logger.log(kInfo, "function", kLogFlags) << "text"
                                             << " \n";
  }

  /// Does `work` with one failure behind each number of objects that it can make, up to the first that is one too many
  /// to fail, and what `after` has to say behind each.
  template <class Work, class After>
  static void failEachTime(Work work, After after) {
    bool failed = true;
    for (int objects = 0; failed; ++objects) {
      SCOPED_TRACE(objects);
      {
        const FailingHeap heap(objects);
        work();
        failed = heap.failed();
      }
      after(failed);
    }
  }
};

TEST_F(ExhaustedHeap, LosesNoLineOfTheConsole) {
  setUp(false, false, false);
  const std::atomic<std::uint32_t> logToConsole{1};
  const DebugPrint debugPrint{logToConsole};
  const std::string path(1000, 'p');
  testing::internal::CaptureStdout();
  {
    const FailingHeap heap;
    ReportTwice(logger, debugPrint, kError, "function", "path ", path.c_str(), ", number ", 7u, " \n");
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "function - path " + path + ", number 7 \n");
}

TEST_F(ExhaustedHeap, MayLosePiecesOfALineAndNoneOfTheNext) {
  setUp(true, true, true);
  std::string before;
  failEachTime([this] { writeLine(); },
               [&](bool) {
                 before = written();
                 writeLine();
                 EXPECT_EQ(written(), before + kText);
               });
}

TEST_F(ExhaustedHeap, LeavesALoggerWithoutAFileNameAsItIs) {
  registry.switchLogsOn();
  logger.setRegistryKey(kLoggerRegistryKey);
  logger.setModuleName("Module");
  failEachTime([this] { logger.setFileName("a name of some length, test.logs"); },
               [this](bool failed) {
                 writeLine();
                 EXPECT_EQ(LogText("a name of some length, test.logs"), failed ? "" : kText);
               });
}

TEST_F(ExhaustedHeap, LeavesALoggerWithAFileNameThat) {
  setUp(true, true, true);
  std::string expected;
  failEachTime([this] { logger.setFileName("a name of some length, test.logs"); },
               [&](bool failed) {
                 writeLine();
                 if (failed) expected += kText;
                 EXPECT_EQ(written(), expected);
               });
}

// What of the registry needs the heap is each platform's own affair.
TEST_F(ExhaustedHeap, HasTheSwitchesReadOnceItIsOver) {
  registry.switchLogsOn();
  {
    const FailingHeap heap;
    logger.setRegistryKey(kLoggerRegistryKey);
  }
  setUp();
  writeLine();
  EXPECT_EQ(written(), kText);
}

}  // namespace
}  // namespace kel::test
