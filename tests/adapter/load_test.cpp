// SPDX-License-Identifier: MIT
// Loading, counting and freeing the pipe library, and the check of its version.
#include <thread>

#include "adapter/adapter_test.h"
#include "platform/platform.h"
#include "support/left_thread.h"
#include "support/platform_calls.h"

namespace kel::test {
namespace {

const std::string kLoaded = Info("Dorv_Init", "Loaded SluiceHub.dll, getting dispatcher functions. \n");
const std::string kGotFunctions = Info("Dorv_Init", "Got dispatcher functions. \n");
const std::string kFailedToLoad = Error("Dorv_Init", "Failed to load SluiceHub.dll. \n");
const std::string kNoFunctions = Error("Dorv_Init", "Got NULL pointer for tL5DispatcherFunctions. \n");

class PipeLibrary : public Adapter {
 protected:
  static std::vector<std::uint32_t> calls() {
    return {SluiceHubSim_Calls(SLUICEHUBSIM_IS_VERSION_VALIDATION_ENABLED),
            SluiceHubSim_Calls(SLUICEHUBSIM_GET_VERSION), SluiceHubSim_Calls(SLUICEHUBSIM_VALIDATE_VERSION),
            SluiceHubSim_Calls(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS)};
  }
};

TEST_F(PipeLibrary, IsCheckedAndAskedForItsFunctionsAtTheFirstInit) {
  EXPECT_EQ(initRow(), 0u);
  EXPECT_EQ(calls(), (std::vector<std::uint32_t>{1, 1, 1, 1}));
}

TEST_F(PipeLibrary, IsNeitherCheckedNorAskedAtTheSecondInit) {
  initRow();
  log.fresh();
  SluiceHubSim_ForceResult(SLUICEHUBSIM_VALIDATE_VERSION, 2);
  SluiceHubSim_ForceResult(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS, 0);
  EXPECT_EQ(initRow(), 1u);
  EXPECT_EQ(calls(), (std::vector<std::uint32_t>{1, 1, 1, 1}));
  EXPECT_EQ(log.fresh(), kLoaded + kGotFunctions + RowInfo(1, "Dorv_Init", "Success. \n"));
}

TEST_F(PipeLibrary, IsCheckedAnewAfterTheLastRowButKeepsItsFunctions) {
  initRow();
  initRow();
  EXPECT_EQ(Dorv_Finalize(0), DORV_OK);
  EXPECT_EQ(initRow(), 0u);
  EXPECT_EQ(calls(), (std::vector<std::uint32_t>{1, 1, 1, 1}));

  EXPECT_EQ(Dorv_Finalize(0), DORV_OK);
  EXPECT_EQ(Dorv_Finalize(1), DORV_OK);
  EXPECT_EQ(gGetServiceDispatcherFunctions, nullptr);
  const tL5DispatcherFunctions* const functions = gL5DispatcherFunctions;
  EXPECT_NE(functions, nullptr);

  EXPECT_EQ(initRow(), 0u);
  EXPECT_EQ(calls(), (std::vector<std::uint32_t>{2, 2, 2, 1}));
  EXPECT_EQ(gL5DispatcherFunctions, functions);
  EXPECT_EQ(Dorv_Connect(0, "127.0.0.1", 1234), DORV_OK);
}

TEST_F(PipeLibrary, IsLoadedForTheFirstRowAndFreedWithTheLast) {
  initRow();
  EXPECT_EQ(CountedLibraryCalls(), (LibraryCalls{1, 0}));
  initRow();
  EXPECT_EQ(CountedLibraryCalls(), (LibraryCalls{1, 0}));
  EXPECT_EQ(Dorv_Finalize(0), DORV_OK);
  EXPECT_EQ(CountedLibraryCalls(), (LibraryCalls{1, 0}));
  EXPECT_EQ(Dorv_Finalize(1), DORV_OK);
  EXPECT_EQ(CountedLibraryCalls(), (LibraryCalls{1, 1}));
  initRow();
  EXPECT_EQ(CountedLibraryCalls(), (LibraryCalls{2, 1}));
}

TEST_F(PipeLibrary, IsNotAskedForItsVersionWithTheValidationOff) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_IS_VERSION_VALIDATION_ENABLED, 0);
  SluiceHubSim_ForceResult(SLUICEHUBSIM_VALIDATE_VERSION, 2);
  EXPECT_EQ(initRow(), 0u);
  EXPECT_EQ(calls(), (std::vector<std::uint32_t>{1, 0, 0, 1}));
}

TEST_F(PipeLibrary, IsTakenWithTheFirstTwoResultsOfTheCheck) {
  for (const std::uint32_t result : {0u, 1u}) {
    SluiceHubSim_ForceResult(SLUICEHUBSIM_VALIDATE_VERSION, result);
    EXPECT_EQ(initRow(), 0u);
    EXPECT_EQ(Dorv_Finalize(0), DORV_OK);
  }
}

TEST_F(PipeLibrary, IsTakenInItsOwnVersion) {
  const std::uint32_t own[] = {4, 1, 0, 21, 0}, near[] = {4, 9, 9, 9, 9};
  SluiceHubSim_SetVersion(own);
  EXPECT_EQ(initRow(), 0u);
  Dorv_Finalize(0);
  SluiceHubSim_SetVersion(near);
  EXPECT_EQ(initRow(), 0u);
}

TEST_F(PipeLibrary, IsRefusedInAnotherVersionWithOneLine) {
  const std::uint32_t other[] = {5, 1, 0, 21, 0};
  SluiceHubSim_SetVersion(other);
  EXPECT_EQ(initRow(), kNoDorvHandle);
  EXPECT_EQ(log.fresh(), kFailedToLoad);
  EXPECT_EQ(gL5DispatcherFunctions, nullptr);
}

TEST_F(PipeLibrary, IsTakenForLoadedAfterItWasRefusedByTheThreadThatAskedThen) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_VALIDATE_VERSION, 0xFFFFFFFF);
  EXPECT_EQ(initRow(), kNoDorvHandle);
  EXPECT_EQ(initRow(), 0u);
  EXPECT_EQ(calls(), (std::vector<std::uint32_t>{1, 1, 1, 1}));
  EXPECT_EQ(log.fresh(), kFailedToLoad + kLoaded + kGotFunctions + RowInfo(0, "Dorv_Init", "Success. \n"));
}

// The blocked thread ends with the process, for nobody can let the lock go.
TEST(RefusedPipeLibrary, BlocksEveryOtherThreadForGood) {
  static CoreProcess& process = *new CoreProcess;
  static_cast<void>(process);
  SluiceHubSim_ForceResult(SLUICEHUBSIM_VALIDATE_VERSION, 2);
  EXPECT_EQ(Dorv_Init(Engine::onRecord, Engine::onAlert), kNoDorvHandle);

  static const platform::Handle begun = platform::createEvent(false, false);
  static const platform::Handle ended = platform::createEvent(false, false);
  LeaveToItself([] {
    platform::setEvent(begun);
    Dorv_Init(Engine::onRecord, Engine::onAlert);
    platform::setEvent(ended);
  });
  EXPECT_EQ(platform::waitForOne(begun, platform::kInfinite), platform::kWaitObject);
  EXPECT_EQ(platform::waitForOne(ended, 200), platform::kWaitTimeout);
  // This thread goes through all the same, which lets nobody else in.
  EXPECT_EQ(Dorv_Init(Engine::onRecord, Engine::onAlert), 0u);
  EXPECT_EQ(platform::waitForOne(ended, 100), platform::kWaitTimeout);
}

/// Rows for this thread and for two others.
void ExpectRowsForSeveralThreads() {
  EXPECT_EQ(Dorv_Init(Engine::onRecord, Engine::onAlert), 0u);
  for (const std::uint32_t row : {1u, 2u}) {
    std::thread([row] { EXPECT_EQ(Dorv_Init(Engine::onRecord, Engine::onAlert), row); }).join();
  }
}

TEST(AcceptedPipeLibrary, BlocksNobody) {
  const CoreProcess process;
  ExpectRowsForSeveralThreads();
}

TEST(UncheckedPipeLibrary, BlocksNobody) {
  const CoreProcess process;
  SluiceHubSim_ForceResult(SLUICEHUBSIM_IS_VERSION_VALIDATION_ENABLED, 0);
  ExpectRowsForSeveralThreads();
}

TEST_F(PipeLibrary, WithoutItsTableGivesNoRow) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS, 0);
  EXPECT_EQ(initRow(), kNoDorvHandle);
  EXPECT_EQ(row(0).inUse, 0u);
  EXPECT_EQ(log.fresh(), kLoaded + kNoFunctions);
}

TEST_F(PipeLibrary, IsAskedForItsTableUntilItGivesIt) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS, 0);
  initRow();
  EXPECT_EQ(initRow(), kNoDorvHandle);
  SluiceHubSim_UnforceResult(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS);
  log.fresh();
  // The two failures count as users, so this is no first load.
  EXPECT_EQ(initRow(), 0u);
  EXPECT_EQ(calls(), (std::vector<std::uint32_t>{1, 1, 1, 3}));
  EXPECT_EQ(log.fresh(), kLoaded + kGotFunctions + RowInfo(0, "Dorv_Init", "Success. \n"));
}

TEST_F(PipeLibrary, StaysLoadedForUsersThatFailed) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS, 0);
  initRow();
  SluiceHubSim_UnforceResult(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS);
  EXPECT_EQ(initRow(), 0u);
  EXPECT_EQ(Dorv_Finalize(0), DORV_OK);
  EXPECT_NE(gGetServiceDispatcherFunctions, nullptr);
  EXPECT_EQ(initRow(), 0u);
  EXPECT_EQ(SluiceHubSim_Calls(SLUICEHUBSIM_VALIDATE_VERSION), 1u);
}

TEST_F(PipeLibrary, SetsTheLogUpAtTheFirstLoad) {
  registry.set(kLoggerRegistryKey, "Info", 0u);
  initRow();
  EXPECT_EQ(log.fresh(), "");
  // With no row left, the next load is a first one again and reads the switches.
  Dorv_Finalize(0);
  registry.switchLogsOn();
  initRow();
  EXPECT_EQ(log.fresh(), kLoaded + kGotFunctions + RowInfo(0, "Dorv_Init", "Success. \n"));
}

}  // namespace
}  // namespace kel::test
