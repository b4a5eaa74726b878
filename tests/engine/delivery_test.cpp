// SPDX-License-Identifier: MIT
// The way out on the listener threads: broadcasts and alerts.
#include <atomic>

#include "adapter/Dorv.h"
#include "engine/IncomingData.h"
#include "engine/engine_test.h"

namespace kel::test {
namespace {

struct Broadcast {
  std::string name;
  std::uint32_t isRef;
  bool hasPayload;
  std::string payload;
  std::uint32_t seqTUI;

  bool operator==(const Broadcast&) const = default;
};

Noted<Broadcast> gBroadcasts;
Noted<Status> gAlerts;

void NoteBroadcast(char* name, std::uint32_t isRef, void* payload, std::uint32_t size, std::uint32_t seqTUI) {
  Broadcast broadcast{name, isRef, payload != nullptr, {}, seqTUI};
  if (payload != nullptr) broadcast.payload.assign(static_cast<const char*>(payload), size);
  std::free(name);
  std::free(payload);
  gBroadcasts.add(std::move(broadcast));
}

void NoteAlert(Status status) { gAlerts.add(status); }

constexpr std::uint32_t kBroadcastBits = 5 << 12;

// ---------------------------------------------------------------------------------------------------------------------
// Broadcasts
// ---------------------------------------------------------------------------------------------------------------------

using BroadcastTest = EngineTest;

TEST_F(BroadcastTest, OfATaskThatTheTableDoesNotHaveIsUnknown) {
  start(&NoteBroadcast);
  engineLog.fresh();
  SluiceHubSim_Broadcast(0, kDebugRefTui, 0x11223344, "bytes", 5, 1);
  EXPECT_THAT(gBroadcasts.waitFor(1), ::testing::ElementsAre(Broadcast{"UNKNOWN_TASK", 1, true, "bytes", 0x11223344}));
  EXPECT_THAT(engineLog.fresh(),
              ::testing::HasSubstr(EngineLog().error("HandleBroadcastResponse", "could not find TUI \n").text()));
}

TEST_F(BroadcastTest, OfATaskThatAnExternalTableHasIsCalledByItsName) {
  constexpr std::uint32_t kNamed = 0x35240;
  folder.write("KEL_ALLTASKS.csv", "NAMED_BROADCAST,  0, 18, X, 3, VAL, " + std::to_string(kNamed) + ", 0x35240\n");
  start(&NoteBroadcast);
  const Values values = {1, 2, 3};
  SluiceHubSim_Broadcast(0, kNamed, 1, values.data(), sizeof values, 1);
  // With a sequence byte it is no longer that number.
  SluiceHubSim_DeliverRecord(0, kNamed | 1 << 24, 0, 2, nullptr, 0, 1);
  EXPECT_THAT(gBroadcasts.waitFor(2), ::testing::ElementsAre(Broadcast{"NAMED_BROADCAST", 0, true, Bytes(values), 1},
                                                             Broadcast{"UNKNOWN_TASK", 0, true, "", 2}));
  EXPECT_THAT(LogText("Brel.logs"), ::testing::HasSubstr("HandleBroadcastResponse - could not find TUI "));
}

TEST_F(BroadcastTest, WithAnEmptyPayloadGivesABlockOfSizeZero) {
  start(&NoteBroadcast);
  SluiceHubSim_Broadcast(0, kDebugValTui, 1, nullptr, 0, 1);
  EXPECT_THAT(gBroadcasts.waitFor(1), ::testing::ElementsAre(Broadcast{"UNKNOWN_TASK", 0, true, "", 1}));
}

TEST_F(BroadcastTest, IsRefForEveryTypeButZero) {
  start(&NoteBroadcast);
  for (const std::uint32_t type : {0u, 1u, 2u, 3u}) {
    SluiceHubSim_DeliverRecord(0, kBroadcastBits | type << 19, 0, type, nullptr, 0, 1);
  }
  const auto broadcasts = gBroadcasts.waitFor(4);
  ASSERT_EQ(broadcasts.size(), 4u);
  for (std::uint32_t type = 0; type < 4; ++type) EXPECT_EQ(broadcasts[type].isRef, type != 0 ? 1u : 0u) << type;
}

TEST_F(BroadcastTest, ArrivesWithALargePayloadWhole) {
  start(&NoteBroadcast);
  for (const std::uint32_t size : {8192u, 8193u, 20000u, 65536u}) {
    const std::string payload(size, static_cast<char>(size));
    SluiceHubSim_Broadcast(0, kDebugRefTui, size, payload.data(), size, 1);
    const Broadcast last = gBroadcasts.waitFor(size == 8192 ? 1 : size == 8193 ? 2 : size == 20000 ? 3 : 4).back();
    EXPECT_EQ(last.seqTUI, size);
    EXPECT_TRUE(last.payload == payload) << size;
  }
}

TEST_F(BroadcastTest, OfABurstComeAllInTheirOrder) {
  start(&NoteBroadcast);
  for (std::uint32_t i = 0; i < 500; ++i) SluiceHubSim_Broadcast(0, kDebugValTui, i, nullptr, 0, 0);
  const auto broadcasts = gBroadcasts.waitFor(500);
  ASSERT_EQ(broadcasts.size(), 500u);
  for (std::uint32_t i = 0; i < 500; ++i) ASSERT_EQ(broadcasts[i].seqTUI, i);
}

TEST_F(BroadcastTest, GoesToTheEngineThatItIsFor) {
  start();
  start(&NoteBroadcast);
  std::uint64_t connections[2] = {};
  ASSERT_EQ(SluiceHubSim_GetConnections(connections, 2), 2u);
  SluiceHubSim_Broadcast(connections[0], kDebugValTui, 1, nullptr, 0, 1);
  SluiceHubSim_Broadcast(connections[1], kDebugValTui, 2, nullptr, 0, 1);
  const auto broadcasts = gBroadcasts.waitFor(1);
  ASSERT_EQ(broadcasts.size(), 1u);
  EXPECT_EQ(broadcasts[0].seqTUI, 2u);
}

TEST_F(BroadcastTest, IsLostInSilenceWhileTheEngineIsNotInitialised) {
  std::uint32_t handle = 0;
  const auto engine = AddBrelInst(&handle);
  engine->mBroadcastCallback = &NoteBroadcast;
  const auto record = Record(kBroadcastBits, 0, 0, "");
  EXPECT_TRUE(engine->HandleBroadcastResponse(record.data(), static_cast<std::uint32_t>(record.size())));
  EXPECT_EQ(LogText("Brel.logs"), "");
  EXPECT_TRUE(gBroadcasts.waitFor(0).empty());
  RemoveBrelInst(handle);
}

TEST_F(BroadcastTest, ForAnEngineThatHasGoneIsRefused) {
  start(&NoteBroadcast);
  const auto record = Record(kBroadcastBits, 0, 7, "");
  const auto size = static_cast<std::uint32_t>(record.size());
  for (const std::uint32_t handle : {1u, 15u, 16u, kNoBrelHandle}) {
    EXPECT_EQ(ProcessBroadcastData(handle, record.data(), size), 0u);
    EXPECT_EQ(ProcessAlertData(handle, record.data(), 4), 0u);
  }
  EXPECT_EQ(ProcessBroadcastData(0, record.data(), size), 1u);
  EXPECT_EQ(gBroadcasts.waitFor(1).size(), 1u);
}

// ---------------------------------------------------------------------------------------------------------------------
// Alerts
// ---------------------------------------------------------------------------------------------------------------------

constexpr std::uint32_t kUserRequested = 17;

class AlertTest : public EngineTest {
 protected:
  /// Whether an alert's four bytes reach the client of an engine that is not initialised.
  static bool reachesUninitialised(std::uint32_t code) {
    std::uint32_t handle = 0;
    const auto engine = AddBrelInst(&handle);
    engine->mAlertsCallback = &NoteAlert;
    const std::size_t before = gAlerts.waitFor(0).size();
    EXPECT_TRUE(engine->HandleAlertResponse(reinterpret_cast<const std::uint8_t*>(&code), sizeof code));
    RemoveBrelInst(handle);
    return gAlerts.waitFor(0).size() > before;
  }
};

TEST_F(AlertTest, OfALostLinkTellsThatItWasSevered) {
  start(nullptr, &NoteAlert);
  engineLog.fresh();
  SluiceHubSim_LoseLink(0, 1, 1);
  EXPECT_THAT(gAlerts.waitFor(1), ::testing::ElementsAre(18));
  EXPECT_THAT(
      engineLog.fresh(),
      ::testing::StartsWith(EngineLog().error("BrelEngineAlertsCallback", "callback - errorCode = 4 \n").text()));
  // The engine changes nothing of the connection: a task now fails at its send.
  EXPECT_EQ(InvokeVal(0, {}).status, 14u);
}

TEST_F(AlertTest, ComesForEachEventWithAReasonOfItsOwn) {
  start(nullptr, &NoteAlert);
  for (const std::uint32_t reason : {0u, 16u, 18u, 0xFFFFFFFFu}) {
    SluiceHubSim_DeliverEvent(0, L5_EVENT_DISCONNECTED, reason, 1);
  }
  EXPECT_THAT(gAlerts.waitFor(4), ::testing::ElementsAre(18, 18, 18, 18));
}

TEST_F(AlertTest, DoesNotComeOfADisconnectThatThisSideAskedFor) {
  const std::uint32_t handle = start(nullptr, &NoteAlert);
  engineLog.fresh();
  SluiceHubSim_LoseLink(0, kUserRequested, 1);
  SluiceHubSim_DeliverEvent(0, 1, 1, 1);  // nor of another event
  EXPECT_EQ(engineLog.fresh(), "");
  EXPECT_EQ(BrelFinalize(handle), kStatusOk);
  EXPECT_TRUE(gAlerts.waitFor(0).empty());
}

TEST_F(AlertTest, WithoutACallbackIsToldToTheLogAndDropped) {
  folder.writeSettings("LogToConsole=1\n");
  start();
  engineLog.fresh();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(BrelEngineAlertsCallback(0, 4), 1u);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Alerts callback - errorCode = 4 \n"
            "BrelEngineAlertsCallback - callback - Alert arrived but no alerts callback exists \n");
  EXPECT_EQ(engineLog.fresh(),
            EngineLog()
                .error("BrelEngineAlertsCallback", "callback - errorCode = 4 \n")
                .info("BrelEngineAlertsCallback", "callback - Alert arrived but no alerts callback exists \n")
                .text());
}

TEST_F(AlertTest, ThatIsQueuedIsToldToLogAndConsole) {
  static std::atomic<bool> mayReturn{false};
  folder.writeSettings("LogToConsole=1\n");
  ::testing::internal::CaptureStdout();
  start(nullptr, [](Status status) {
    NoteAlert(status);
    mayReturn.wait(false);
  });
  EXPECT_EQ(BrelEngineAlertsCallback(0, 3), 1u);
  gAlerts.waitFor(1);  // from here on the listener's thread is in its client and says nothing
  ::testing::internal::GetCapturedStdout();
  engineLog.fresh();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(BrelEngineAlertsCallback(0, 4), 1u);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Alerts callback - errorCode = 4 \n"
            "recvData - inserting buffer to queue \n"
            "recvData - set data event \n"
            "BrelEngineAlertsCallback - callback - Alert buffer copied & event set \n");
  EXPECT_EQ(engineLog.fresh(), EngineLog()
                                   .error("BrelEngineAlertsCallback", "callback - errorCode = 4 \n")
                                   .info("BrelEngineAlertsCallback", "callback - Alert buffer copied & event set \n")
                                   .text());
  mayReturn = true;
  mayReturn.notify_all();
  EXPECT_THAT(gAlerts.waitFor(2), ::testing::ElementsAre(17, 18));
}

TEST_F(AlertTest, WhileTheEngineIsNotInitialisedDoesNotReachTheListener) {
  std::uint32_t handle = 0;
  const auto engine = AddBrelInst(&handle);
  engine->mAlertsCallback = &NoteAlert;
  SetDorvHandle(handle, 3);
  EXPECT_EQ(BrelEngineAlertsCallback(3, 4), 0u);
  EXPECT_EQ(BrelEngineAlertsCallback(3, 3), 0u);
  EXPECT_EQ(LogText("Brel.logs"), "");
  RemoveBrelInst(handle);
}

TEST_F(AlertTest, IsTranslatedByItsFirstByte) {
  start(nullptr, &NoteAlert);
  for (const std::uint32_t code : {0u, 1u, 2u, 3u, 4u, 5u, 255u, 256u, 260u, 0x01000001u}) {
    EXPECT_EQ(BrelEngineAlertsCallback(0, code), 1u);
  }
  EXPECT_THAT(gAlerts.waitFor(10), ::testing::ElementsAre(15, 14, 16, 17, 18, 0, 0, 15, 18, 14));
}

TEST_F(AlertTest, OfAClosedSocketIsWithheldWhileTheEngineIsNotInitialised) {
  EXPECT_FALSE(reachesUninitialised(4));
  EXPECT_EQ(LogText("Brel.logs"),
            EngineLog()
                .info("HandleAlertResponse",
                      "Brel not initialized & errorCode = DORV_SOCKET_WAS_CLOSED_BY_PEER. Will not invoke Alerts "
                      "callback. \n")
                .text());
  EXPECT_FALSE(reachesUninitialised(260));
}

TEST_F(AlertTest, OfAnythingElseIsDeliveredAllTheSame) {
  EXPECT_TRUE(reachesUninitialised(3));
  EXPECT_EQ(LogText("Brel.logs"), EngineLog()
                                      .info("HandleAlertResponse", "Invoking Alerts callback \n")
                                      .info("HandleAlertResponse", "Alerts callback returned \n")
                                      .text());
  EXPECT_TRUE(reachesUninitialised(0x400));
  EXPECT_THAT(gAlerts.waitFor(2), ::testing::ElementsAre(17, 15));
}

TEST_F(AlertTest, WithoutACallbackToInvokeIsToldToTheLog) {
  std::uint32_t handle = 0;
  const auto engine = AddBrelInst(&handle);
  const std::uint32_t code = 4;
  EXPECT_TRUE(engine->HandleAlertResponse(reinterpret_cast<const std::uint8_t*>(&code), sizeof code));
  EXPECT_EQ(LogText("Brel.logs"), EngineLog().info("HandleAlertResponse", "No Alerts callback to invoke \n").text());
  RemoveBrelInst(handle);
}

TEST_F(AlertTest, PassesThroughBothListenersLogs) {
  LogFile listenerLog("Brel_Alerts_Listener.logs");
  const std::uint32_t handle = start(nullptr, &NoteAlert);
  EXPECT_EQ(listenerLog.fresh(), LogEntry("info", "AlertsListener", "startListen", "\n"));
  EXPECT_EQ(BrelEngineAlertsCallback(0, 4), 1u);
  gAlerts.waitFor(1);
  while (LogText("Brel_Alerts_Listener.logs").find("data processing finished \n") == std::string::npos) {
  }
  EXPECT_EQ(BrelFinalize(handle), kStatusOk);
  EXPECT_EQ(listenerLog.fresh(),
            Log("AlertsListener")
                .info("recvData", "inserting buffer to queue \n")
                .info("recvData", "set data event \n")
                .info("listenerThreadFunc", "data event received, extracting from queue \n")
                .info("listenerThreadFunc", "data event received, processing data \n")
                .info("listenerThreadFunc", "data event received, data processing finished \n")
                .info("listenerThreadFunc", "stop wait event received - exiting listener thread \n")
                .info("stopListen", "listener thread exited \n")
                .text());
}

}  // namespace
}  // namespace kel::test
