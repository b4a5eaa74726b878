// SPDX-License-Identifier: MIT
// Bringing an engine up and down: each step that can fail, what it says and what it leaves behind.
#include <future>
#include <thread>

#include "adapter/Dorv.h"
#include "engine/IncomingData.h"
#include "engine/engine_test.h"
#include "platform/platform.h"
#include "support/private_member.h"
#include "support/process_resources.h"

namespace kel::test {

struct VersionsVectorsPathOf {
  friend auto memberOf(VersionsVectorsPathOf);
};
template struct OpenMember<VersionsVectorsPathOf, &BrelEngine::mVersionsVectorsPath>;

namespace {

Noted<std::uint32_t> gBroadcasts;
Noted<Status> gAlerts;

void NoteBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t seqTUI) {
  std::free(name);
  std::free(payload);
  gBroadcasts.add(seqTUI);
}

void NoteAlert(Status status) { gAlerts.add(status); }

class LifecycleTest : public EngineTest {
 protected:
  /// Opens an engine's log up to the task table, as without settings and with the built-in table.
  static Log upToTheTable() {
    return EngineLog()
        .info("init", "Start \n")
        .info("init", "No Brel.ini file was found. Using defaults. \n")
        .info("ReadTUIs", "The KEL_ALLTASKS.csv TUIs file could NOT be opened. Using defaults. \n")
        .info("init", "loaded TUIs \n");
  }
  static Log upToTheAdapter() {
    return upToTheTable().info("ActivateAsyncThread", "OK init async listener \n").info("init", "Dorv.dll loaded \n");
  }

  /// The status of init() itself, which BrelInit() does not pass on, in an engine that is removed again.
  static Status initOf(const char* table, bool versionControl = false, const char* vectorsPath = nullptr,
                       bool callbacks = false) {
    std::uint32_t handle = kNoBrelHandle;
    auto engine = AddBrelInst(&handle);
    if (callbacks) {
      engine->mBroadcastCallback = &NoteBroadcast;
      engine->mAlertsCallback = &NoteAlert;
    }
    const Status status = engine->init(table, versionControl, vectorsPath);
    if (status == kStatusOk) {
      EXPECT_EQ(engine->Finalize(), kStatusOk);
    }
    engine.reset();
    RemoveBrelInst(handle);
    return status;
  }

  /// Everything that a failed start could have left: a row of the adapter, a connection, a handle.
  void expectNothingLeft() const {
    EXPECT_EQ(OpenConnections(), 0u);
    EXPECT_EQ(OpenHandles(), mHandles);
    for (std::uint32_t handle = 0; handle < 16; ++handle) EXPECT_EQ(GetBrelInst(handle), nullptr);
  }
  void countHandles() { mHandles = OpenHandles(); }

 private:
  std::optional<std::size_t> mHandles;
};

// ---------------------------------------------------------------------------------------------------------------------
// Starts that fail
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(LifecycleTest, ATaskTableThatCannotBeReadGivesThree) {
  folder.write("empty.csv", "");
  initOf(nullptr);  // so that the count of handles is one of a process that has been through all this
  countHandles();
  engineLog.fresh();
  EXPECT_EQ(initOf("empty.csv", false, nullptr, true), 3u);
  EXPECT_EQ(engineLog.fresh(), EngineLog()
                                   .info("init", "Start \n")
                                   .info("init", "No Brel.ini file was found. Using defaults. \n")
                                   .info("ReadTUIs", "The KEL_ALLTASKS.csv TUIs file was opened. \n")
                                   .error("ReadTUIs", "The KEL_ALLTASKS.csv TUIs file ended unexpectedly. \n")
                                   .error("init", "could not read TUIs \n")
                                   .info("Finalize", "Start \n")
                                   .info("ShutdownAsyncThread", "async listener not active - stop not required \n")
                                   .info("Finalize", "End \n")
                                   .text());
  expectNothingLeft();
}

TEST_F(LifecycleTest, AnAdapterThatDoesNotComeUpGivesSeven) {
  countHandles();
  SluiceHubSim_ForceResult(SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS, 0);
  EXPECT_EQ(initOf(nullptr), 7u);
  EXPECT_EQ(engineLog.fresh(), upToTheAdapter()
                                   .error("init", "error initializing Dorv.dll \n")
                                   .info("Finalize", "Start \n")
                                   .info("ShutdownAsyncThread", "all async listener threads already stopped \n")
                                   .info("Finalize", "End \n")
                                   .text());
  EXPECT_EQ(SluiceHubSim_Calls(SLUICEHUBSIM_L5_CONNECT), 0u);
  expectNothingLeft();
}

TEST_F(LifecycleTest, AVersionThatIsRefusedGivesSeven) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_VALIDATE_VERSION, 2);
  EXPECT_EQ(initOf(nullptr), 7u);
}

TEST_F(LifecycleTest, AConnectThatFailsGivesElevenAndGivesTheAdapterRowBack) {
  initOf(nullptr);
  countHandles();
  engineLog.fresh();
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1);
  EXPECT_EQ(initOf(nullptr), 11u);
  EXPECT_EQ(engineLog.fresh(), upToTheAdapter()
                                   .info("init", "Dorv.dll initialized \n")
                                   .error("init", "error connecting Dorv.dll to Upper Driver \n")
                                   .info("Finalize", "Start \n")
                                   .info("Finalize", "Dorv.dll disconnected from Upper Driver \n")
                                   .info("Finalize", "Dorv.dll finalized \n")
                                   .info("ShutdownAsyncThread", "all async listener threads already stopped \n")
                                   .info("Finalize", "End \n")
                                   .text());
  expectNothingLeft();
  SluiceHubSim_UnforceResult(SLUICEHUBSIM_L5_CONNECT);
  EXPECT_EQ(BrelGetDorvHandle(start()), 0u);
}

TEST_F(LifecycleTest, AConnectThatGetsNoSocketGivesElevenWithItsListenersStopped) {
  initOf(nullptr, false, nullptr, true);
  countHandles();
  SluiceHubSimSocketReply none{};
  none.replyID = 1001;
  none.replySize = 1;
  none.socketID = 255;
  SluiceHubSim_SetSocketReply(&none);
  EXPECT_EQ(initOf(nullptr, false, nullptr, true), 11u);
  EXPECT_THAT(LogText("Brel.logs"),
              ::testing::HasSubstr(EngineLog()
                                       .info("ShutdownAlerterThread", "stopped alerts listener \n")
                                       .info("ShutdownBroadcastThread", "stopped broadcast listener \n")
                                       .text()));
  expectNothingLeft();
}

TEST_F(LifecycleTest, AVersionControlThatGetsNoAnswerGivesTwentyOne) {
  folder.writeSettings("RxWaitTimeout=20\n");
  initOf(nullptr);
  countHandles();
  DropRequests(0);
  EXPECT_EQ(initOf(nullptr, true), 21u);
  EXPECT_THAT(LogText("Brel.logs"),
              ::testing::HasSubstr(EngineLog()
                                       .error("init", "Failed to initialize Versioning support \n")
                                       .info("Finalize", "Start \n")
                                       .info("Finalize", "Dorv.dll disconnected from Upper Driver \n")
                                       .text()));
  expectNothingLeft();
}

TEST_F(LifecycleTest, TheFrontFunctionTellsOneWhateverTheReason) {
  folder.write("empty.csv", "");
  std::uint32_t handle = 4711;
  EXPECT_EQ(BrelInit(&handle, "empty.csv", 0, nullptr, nullptr, nullptr), 1u);
  EXPECT_EQ(handle, 0u);
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1);
  EXPECT_EQ(BrelInit(&handle, nullptr, 0, nullptr, nullptr, nullptr), 1u);
  EXPECT_EQ(GetBrelInst(0), nullptr);
}

// ---------------------------------------------------------------------------------------------------------------------
// Starts and stops
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(LifecycleTest, WithBothCallbacksBothListenersStartAndStop) {
  initOf(nullptr);
  countHandles();
  engineLog.fresh();
  EXPECT_EQ(initOf(nullptr, false, nullptr, true), kStatusOk);
  EXPECT_EQ(engineLog.fresh(), upToTheTable()
                                   .info("ActivateAlerterThread", "OK init alerts listener \n")
                                   .info("ActivateAlerterThread", "started alerts listener \n")
                                   .info("ActivateBroadcastThread", "OK init broadcast listener \n")
                                   .info("ActivateBroadcastThread", "started broadcast listener \n")
                                   .info("ActivateAsyncThread", "OK init async listener \n")
                                   .info("init", "Dorv.dll loaded \n")
                                   .info("init", "Dorv.dll initialized \n")
                                   .info("init", "Dorv.dll connected to Upper Driver \n")
                                   .info("init", "End \n")
                                   .info("Finalize", "Start \n")
                                   .info("Finalize", "Dorv.dll disconnected from Upper Driver \n")
                                   .info("Finalize", "Dorv.dll finalized \n")
                                   .info("ShutdownAlerterThread", "stopped alerts listener \n")
                                   .info("ShutdownBroadcastThread", "stopped broadcast listener \n")
                                   .info("ShutdownAsyncThread", "all async listener threads already stopped \n")
                                   .info("Finalize", "End \n")
                                   .text());
  expectNothingLeft();
}

TEST_F(LifecycleTest, WithoutCallbacksNoListenerStarts) {
  EXPECT_EQ(initOf(nullptr), kStatusOk);
  EXPECT_EQ(LogPath("Brel_Alerts_Listener.logs"), "");
  EXPECT_EQ(LogPath("Brel_Broadcast_Listener.logs"), "");
}

TEST_F(LifecycleTest, VersionControlThatPassesIsTold) {
  EXPECT_EQ(initOf(nullptr, true), kStatusOk);
  EXPECT_THAT(LogText("Brel.logs"),
              ::testing::HasSubstr(
                  EngineLog().info("init", "Versioning support initialized \n").info("init", "End \n").text()));
}

TEST_F(LifecycleTest, VersionControlIsAskedForNothingUnlessActivated) {
  EXPECT_EQ(initOf(nullptr, false, "some folder"), kStatusOk);
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(LifecycleTest, APathOfVersionsVectorsIsKeptOnlyWithVersionControl) {
  const auto keptPath = [](bool versionControl) {
    std::uint32_t handle = kNoBrelHandle;
    const auto engine = AddBrelInst(&handle);
    EXPECT_EQ(engine->init(nullptr, versionControl, "some folder"), kStatusOk);
    const char* const path = (*engine).*memberOf(VersionsVectorsPathOf{});
    return path != nullptr ? std::string(path) : "none";
  };
  EXPECT_EQ(keptPath(false), "none");
  EXPECT_EQ(keptPath(true), "some folder");
}

TEST_F(LifecycleTest, TheTableOfTheCallerOverridesThatOfTheSettings) {
  folder.writeSettings("TUIsFilePath=ini.csv\n");
  folder.write("ini.csv", "OF_THE_INI,  0, 18, X, 3, VAL, 1, 0x1\n");
  folder.write("argument.csv", "OF_THE_ARGUMENT,  0, 18, X, 3, VAL, 2, 0x2\n");
  std::uint32_t ofTheIni = 0, ofTheArgument = 0;
  ASSERT_EQ(BrelInit(&ofTheIni, nullptr, 0, nullptr, nullptr, nullptr), kStatusOk);
  ASSERT_EQ(BrelInit(&ofTheArgument, "argument.csv", 0, nullptr, nullptr, nullptr), kStatusOk);
  std::uint32_t tui = 0;
  BrelFindTuiByName(ofTheIni, "OF_THE_INI", &tui);
  EXPECT_EQ(tui, 1u);
  BrelFindTuiByName(ofTheArgument, "OF_THE_ARGUMENT", &tui);
  EXPECT_EQ(tui, 2u);
  BrelFindTuiByName(ofTheArgument, "OF_THE_INI", &tui);
  EXPECT_EQ(tui, 0u);
}

TEST_F(LifecycleTest, WithoutSettingsTheTableOfTheWorkingDirectoryIsRead) {
  folder.write("KEL_ALLTASKS.csv", "OF_THE_FOLDER,  0, 18, X, 3, VAL, 3, 0x3\n");
  std::uint32_t tui = 0;
  BrelFindTuiByName(start(), "OF_THE_FOLDER", &tui);
  EXPECT_EQ(tui, 3u);
}

TEST_F(LifecycleTest, AnEngineFinalizedTwiceFindsItsStopEventStaleAndStays) {
  std::uint32_t handle = 0;
  const auto engine = AddBrelInst(&handle);
  ASSERT_EQ(engine->init(nullptr, false, nullptr), kStatusOk);
  EXPECT_EQ(engine->Finalize(), kStatusOk);
  engineLog.fresh();
  EXPECT_EQ(BrelFinalize(handle), 1u);
  EXPECT_EQ(GetBrelInst(handle), engine);
  EXPECT_THAT(engineLog.fresh(),
              ::testing::EndsWith(EngineLog()
                                      .info("ShutdownAsyncThread", "async listener not active - stop not required \n")
                                      .error("Finalize", "could not close mGeneralStopEvent handle \n")
                                      .text()));
  leavesEngines = true;
}

// ---------------------------------------------------------------------------------------------------------------------
// Data that comes while an engine comes up
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(LifecycleTest, WhileVersionControlIsAskedAnswersAreTakenAndBroadcastsAndAlertsAreNot) {
  constexpr std::uint32_t kUidsTui = 0x18100;
  folder.writeSettings("RxWaitTimeout=30000\n");
  DropRequests(kUidsTui);
  std::uint32_t handle = kNoBrelHandle;
  auto starting = std::async(std::launch::async,
                             [&] { return BrelInit(&handle, nullptr, 1, nullptr, &NoteBroadcast, &NoteAlert); });
  ASSERT_EQ(SluiceHubSim_WaitForRequests(1, kLong), 1u);

  SluiceHubSim_Broadcast(0, kDebugValTui, 1, nullptr, 0, 1);
  while (LogText("Brel_Broadcast_Listener.logs").find("data processing finished \n") == std::string::npos) {
    std::this_thread::yield();
  }
  SluiceHubSim_DeliverEvent(0, L5_EVENT_DISCONNECTED, 1, 1);
  const std::uint32_t uids[4] = {1144315543, 0, 0, 0};
  SluiceHubSim_DeliverRecord(0, kUidsTui, 0, 0, uids, sizeof uids, 1);

  EXPECT_EQ(starting.get(), kStatusOk);
  SluiceHubSim_Broadcast(0, kDebugValTui, 2, nullptr, 0, 1);
  EXPECT_THAT(gBroadcasts.waitFor(1), ::testing::ElementsAre(2));
  EXPECT_EQ(BrelFinalize(handle), kStatusOk);
  EXPECT_TRUE(gAlerts.waitFor(0).empty());
}

}  // namespace
}  // namespace kel::test
