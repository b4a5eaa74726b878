/* SPDX-License-Identifier: MIT */
// What the tests of strange pipe libraries share.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "adapter/DorvInstances.h"
#include "adapter/pipe_library/linked_functions.h"
#include "support/core_process.h"
#include "support/log_file.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

class BareAdapter : public testing::Test {
 protected:
  BareAdapter() { registry.switchLogsOn(); }

  static std::string line(const char* level, const std::string& function, const std::string& text) {
    return LogEntry(level, "DorvL5", function, text);
  }

  const CoreProcess process;
  const ScratchDirectory directory;
  RegistrySettings registry;
  LogFile log{"DorvL5.logs"};

  const std::string failedToLoad = line("error", "Dorv_Init", "Failed to load SluiceHub.dll. \n");
  const std::string loaded = line("info", "Dorv_Init", "Loaded SluiceHub.dll, getting dispatcher functions. \n");
  const std::string noFunctions = line("error", "Dorv_Init", "Got NULL pointer for tL5DispatcherFunctions. \n");
  const std::string success = loaded + line("info", "Dorv_Init", "Got dispatcher functions. \n") +
                              line("info", "Dorv_Init", "(0) - Success. \n");
};

}  // namespace kel::test
