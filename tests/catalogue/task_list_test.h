/* SPDX-License-Identifier: MIT */
// What the tests of the task list share.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "catalogue/BrelTUIsList.h"
#include "support/log_file.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

/// A line as it is reported on both outlets.
struct ReportedLine {
  std::string level;
  std::string function;
  std::string text;
  /// Where the console's words are others.
  std::optional<std::string> consoleText = {};
};

inline const std::string kOpened = "The KEL_ALLTASKS.csv TUIs file was opened. \n";
inline const std::string kNotOpened = "The KEL_ALLTASKS.csv TUIs file could NOT be opened. Using defaults. \n";
inline const std::string kEndedUnexpectedly = "The KEL_ALLTASKS.csv TUIs file ended unexpectedly. \n";
inline const std::string kNotClosed = "The KEL_ALLTASKS.csv TUIs file was not closed. \n";

/// A task list with log and console switched on, in a directory of its own. Its file is "table.csv", which is not there
/// until a test writes it.
class TaskList : public testing::Test {
 protected:
  TaskList() {
    mRegistry.switchLogsOn();
    mLogger.setRegistryKey(kLoggerRegistryKey);
    mLogger.setFileName("Tasks.logs");
    mLogger.setModuleName("Tasks");
    mList.mLogToConsole = 1;
    mList.SetTUIsFile(&mLogger, "table.csv");
  }

  /// Calls, and keeps what that printed.
  template <class Operation>
  auto printed(Operation operation) {
    testing::internal::CaptureStdout();
    const auto result = operation();
    mConsole += testing::internal::GetCapturedStdout();
    return result;
  }

  bool readTUIs() {
    return printed([this] { return mList.ReadTUIs(); });
  }

  /// Reads a file of that content.
  bool readTable(const std::string& content) {
    mDirectory.write("table.csv", content);
    return readTUIs();
  }

  /// 0 if there is none, as for the client.
  std::uint32_t tuiOf(const std::string& name) {
    std::uint32_t tui = 1;
    printed([&] { return mList.FindTuiByName("test", name, &tui); });
    return tui;
  }

  std::string nameOf(std::uint32_t tui) {
    char* block = nullptr;
    printed([&] { return mList.FindNameByTui("test", tui, &block); });
    const std::string name = block;
    std::free(block);
    return name;
  }

  /// Checks both outlets, whole.
  void expectReported(const std::vector<ReportedLine>& lines) {
    std::string log, console;
    for (const ReportedLine& line : lines) {
      log += LogEntry(line.level, "Tasks", line.function, line.text);
      console += line.function + " - " + line.consoleText.value_or(line.text);
    }
    EXPECT_EQ(LogText("Tasks.logs"), log);
    EXPECT_EQ(mConsole, console);
  }

  ScratchDirectory mDirectory;
  RegistrySettings mRegistry;
  ALogger mLogger;
  BrelTUIsList mList;
  std::string mConsole;
};

}  // namespace kel::test
