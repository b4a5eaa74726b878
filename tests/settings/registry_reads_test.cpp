// SPDX-License-Identifier: MIT
// How often the registry is read for a connection. The readers pass through the test.
#include <gtest/gtest.h>

#include <cstdint>

#include "engine/Brel.h"
#include "platform/platform.h"
#include "support/core_process.h"
#include "support/log_file.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace {
std::uint32_t gReadings = 0;
}

// Where calls of kel::platform::registryNumbers() are sent by the linker.
extern "C" std::uint32_t __wrap__ZN3kel8platform15registryNumbersENS0_12RegistryRootEPKcjPKS3_Pj(
    kel::platform::RegistryRoot root, const char* subKey, std::uint32_t count, const char* const* valueNames,
    std::uint32_t* numbers);
extern "C" std::uint32_t __real__ZN3kel8platform15registryNumbersENS0_12RegistryRootEPKcjPKS3_Pj(
    kel::platform::RegistryRoot root, const char* subKey, std::uint32_t count, const char* const* valueNames,
    std::uint32_t* numbers);

extern "C" std::uint32_t __wrap__ZN3kel8platform15registryNumbersENS0_12RegistryRootEPKcjPKS3_Pj(
    kel::platform::RegistryRoot root, const char* subKey, std::uint32_t count, const char* const* valueNames,
    std::uint32_t* numbers) {
  ++gReadings;
  return __real__ZN3kel8platform15registryNumbersENS0_12RegistryRootEPKcjPKS3_Pj(root, subKey, count, valueNames,
                                                                                 numbers);
}

namespace kel::test {
namespace {

class RegistryReads : public testing::Test {
 protected:
  static std::uint32_t connect() {
    std::uint32_t handle = 0;
    EXPECT_EQ(BrelInit(&handle, nullptr, 0, nullptr, nullptr, nullptr), 2U);
    return handle;
  }

  CoreProcess mProcess;
  ScratchDirectory mDirectory;
  RegistrySettings mRegistry;
};

TEST_F(RegistryReads, AreOneForTheSwitchesOfAllLoggersOfAnEngine) {
  const std::uint32_t first = connect();
  EXPECT_EQ(gReadings, 2U);  // the adapter's log is no engine's
  const std::uint32_t second = connect();
  EXPECT_EQ(gReadings, 3U);
  EXPECT_EQ(BrelFinalize(second), 2U);
  EXPECT_EQ(BrelFinalize(first), 2U);
  EXPECT_EQ(gReadings, 3U);
}

TEST_F(RegistryReads, AreMadeAnewForEachEngine) {
  const std::uint32_t first = connect();
  mRegistry.switchLogsOn();
  const std::uint32_t second = connect();
  EXPECT_TRUE(LogText("Brel.logs").starts_with(LogEntry("info", "BrelEngine", "init", "Start \n")));
  EXPECT_EQ(BrelFinalize(second), 2U);
  const std::string written = LogText("Brel.logs");
  EXPECT_EQ(BrelFinalize(first), 2U);
  EXPECT_EQ(LogText("Brel.logs"), written);
}

}  // namespace
}  // namespace kel::test
