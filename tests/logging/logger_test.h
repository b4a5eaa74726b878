/* SPDX-License-Identifier: MIT */
// What the tests of the logger share.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "logging/ALogger.h"
#include "support/log_file.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

/// A logger named "Module" on the file "test.logs", with the levels that a test has switched on.
class Logger : public testing::Test {
 protected:
  /// To be called when the test has written its registry values.
  void setUp() {
    logger.setRegistryKey(kLoggerRegistryKey);
    logger.setFileName("test.logs");
    logger.setModuleName("Module");
  }
  void setUp(bool info, bool warning, bool error) {
    switchLog(info, warning, error);
    setUp();
  }
  void switchLog(bool info, bool warning, bool error) {
    registry.set(kLoggerRegistryKey, "Info", std::uint32_t{info});
    registry.set(kLoggerRegistryKey, "Warn", std::uint32_t{warning});
    registry.set(kLoggerRegistryKey, "Err", std::uint32_t{error});
  }

  std::string written() const { return LogText("test.logs"); }
  bool anyFile() const { return !LogPath("test.logs").empty(); }

  const ScratchDirectory directory;
  RegistrySettings registry;
  ALogger logger;
};

}  // namespace kel::test
