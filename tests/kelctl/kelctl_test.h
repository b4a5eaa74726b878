/* SPDX-License-Identifier: MIT */
// Command lines that are run in this process.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "command_line.h"
#include "support/scratch_directory.h"

namespace kelctl {

class KelctlTest : public testing::Test {
 protected:
  /// Runs a command line; its status and what it tells on standard error go to the members.
  std::string kelctl(const std::vector<std::string>& words) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    mStatus = run(words);
    mErrors = testing::internal::GetCapturedStderr();
    return testing::internal::GetCapturedStdout();
  }

  kel::test::ScratchDirectory mFolder;
  int mStatus = -1;
  std::string mErrors;
};

}  // namespace kelctl
