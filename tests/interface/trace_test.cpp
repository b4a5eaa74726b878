// SPDX-License-Identifier: MIT
// Each trace call of the exported layer, whole and in order, for each outcome of each export.
#include "interface/client.h"

namespace kel::test {
namespace {

using ::testing::ElementsAre;

constexpr std::uint32_t kProgress = 32;
constexpr std::uint32_t kFailed = 4;
constexpr std::uint32_t kUnknown = 1;

class TraceTest : public ClientTest {
 protected:
  /// A connection, with traces kept from then on.
  std::uint64_t connectQuietly() {
    const std::uint64_t conn = connect();
    SluiceHubSim_KeepTraces(0xFFFFFFFF);
    return conn;
  }
  /// Traces of a call on an unknown connection, behind the one that opens it.
  static auto notFound(const std::string& function, const std::string& opening, std::uint64_t conn) {
    return ElementsAre(Trace{kProgress, function, opening},
                       Trace{kProgress, "GetHandle", "GetHandle - started. Conn=" + Hex(conn)},
                       Trace{kUnknown, "GetHandle", "No handler found for that L5Connection"},
                       Trace{kUnknown, function, "Could'nt find handle for the L5 connection"});
  }
  /// Traces of a call that found row 0.
  static auto found(const std::string& function, const std::string& opening, std::uint64_t conn,
                    std::uint32_t closingLevel, const std::string& closing) {
    return ElementsAre(Trace{kProgress, function, opening},
                       Trace{kProgress, "GetHandle", "GetHandle - started. Conn=" + Hex(conn)},
                       Trace{kProgress, "GetHandle", "returned handler 0"}, Trace{closingLevel, function, closing});
  }
};

TEST_F(TraceTest, OfAConnect) {
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  const std::string conn = Hex(connect());
  EXPECT_THAT(TakeTraces(), ElementsAre(Trace{kProgress, "KEL_ConnectEx", "KEL_ConnectEx - started"},
                                        Trace{kProgress, "UpdateL5ConnectionTable",
                                              "UpdateL5ConnectionTable - started. Conn=" + conn},
                                        Trace{kProgress, "UpdateL5ConnectionTable", "L5 connection table - updated!"},
                                        Trace{kProgress, "KEL_ConnectEx", "KEL_ConnectEx finished OK. Conn=" + conn}));
}

TEST_F(TraceTest, OfAConnectThatFails) {
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1);
  std::uint64_t conn = 0;
  EXPECT_EQ(KEL_ConnectEx(nullptr, 0, 0, nullptr, 0, &conn), KEL_E_CONNECTION);
  EXPECT_THAT(TakeTraces(), ElementsAre(Trace{kProgress, "KEL_ConnectEx", "KEL_ConnectEx - started"},
                                        Trace{kFailed, "KEL_ConnectEx", "Couldn't init Brel!! BrelInit returned 1"}));
}

TEST_F(TraceTest, OfADisconnect) {
  const std::uint64_t conn = connectQuietly();
  EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);
  EXPECT_THAT(TakeTraces(), found("KEL_Disconnect", "KEL_Disconnect - started. Conn=" + Hex(conn), conn, kProgress,
                                  "KEL_Disconnect finished OK. Conn=" + Hex(conn)));
}

TEST_F(TraceTest, OfADisconnectOfAnUnknownConnection) {
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  constexpr std::uint64_t kConn = 0x123456789ABCDEF0;
  EXPECT_EQ(KEL_Disconnect(kConn), KEL_E_CONNECTION);
  EXPECT_THAT(TakeTraces(), notFound("KEL_Disconnect", "KEL_Disconnect - started. Conn=9abcdef0", kConn));
}

TEST_F(TraceTest, OfADisconnectThatFails) {
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  EXPECT_EQ(KEL_Disconnect(0), KEL_E_CONNECTION);
  EXPECT_THAT(TakeTraces(), found("KEL_Disconnect", "KEL_Disconnect - started. Conn=0", 0, kProgress,
                                  "BrelFinalize error. returned - 1 "));
}

TEST_F(TraceTest, OfATask) {
  const std::uint64_t conn = connectQuietly();
  EXPECT_EQ(SendValues(conn, {1, 2, 3}).result, KEL_OK);
  EXPECT_THAT(TakeTraces(), found("KEL_SendReceiveKELEx", "KEL_SendReceiveKELEx - started", conn, kProgress,
                                  "KEL_SendReceiveKELEx finished OK"));
}

TEST_F(TraceTest, OfATaskOnAnUnknownConnection) {
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  EXPECT_EQ(SendValues(77, {}).result, KEL_E_CONNECTION);
  EXPECT_THAT(TakeTraces(), notFound("KEL_SendReceiveKELEx", "KEL_SendReceiveKELEx - started", 77));
}

TEST_F(TraceTest, OfATaskThatFailsTellsTheEnginesStatus) {
  const std::uint64_t conn = connectQuietly();
  EXPECT_EQ(Send(conn, "NO_SUCH_TASK", nullptr, 0).result, KEL_E_TASK);
  EXPECT_THAT(TakeTraces(), found("KEL_SendReceiveKELEx", "KEL_SendReceiveKELEx - started", conn, kFailed,
                                  "Brel invoke tast error. returned - 1"));

  SluiceHubSimRule refuse{};
  refuse.sendStatus = 9;
  SluiceHubSim_AddRule(&refuse);
  EXPECT_EQ(SendValues(conn, {}).result, KEL_E_TASK);
  EXPECT_THAT(TakeTraces(), found("KEL_SendReceiveKELEx", "KEL_SendReceiveKELEx - started", conn, kFailed,
                                  "Brel invoke tast error. returned - 14"));
}

TEST_F(TraceTest, OfAnAsynchronousTaskOnAnUnknownConnection) {
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  EXPECT_EQ(KEL_SendReceiveAsyncKEL(77, kDebugVal, 1, nullptr, 0, nullptr, nullptr, nullptr), KEL_E_CONNECTION);
  EXPECT_THAT(TakeTraces(), notFound("KEL_SendReceiveAsyncKELEx", "KEL_SendReceiveAsyncKELEx - started", 77));
}

void IgnoreAnswer(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t, std::uint32_t) {}

TEST_F(TraceTest, OfAnAsynchronousTask) {
  const std::uint64_t conn = connectQuietly();
  std::uint32_t seqNum = 4711;
  EXPECT_EQ(KEL_SendReceiveAsyncKEL(conn, kDebugVal, 1, nullptr, 0, &seqNum, &IgnoreAnswer, nullptr), KEL_OK);
  EXPECT_EQ(seqNum, 0u);
  EXPECT_THAT(TakeTraces(), found("KEL_SendReceiveAsyncKELEx", "KEL_SendReceiveAsyncKELEx - started", conn, kProgress,
                                  "KEL_SendReceiveAsyncKELEx finished OK"));
}

TEST_F(TraceTest, OfAnAsynchronousTaskThatFails) {
  const std::uint64_t conn = connectQuietly();
  EXPECT_EQ(KEL_SendReceiveAsyncKEL(conn, "NO_SUCH_TASK", 1, nullptr, 0, nullptr, nullptr, nullptr), KEL_E_ASYNC_TASK);
  EXPECT_THAT(TakeTraces(), found("KEL_SendReceiveAsyncKELEx", "KEL_SendReceiveAsyncKELEx - started", conn, kFailed,
                                  "KEL_SendReceiveAsyncKELEx error. returned - 1"));
}

TEST_F(TraceTest, OfAVersionCheckOnAnUnknownConnection) {
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  char file[] = "file";
  EXPECT_EQ(KEL_ValidateVersion(77, file, "", 0, nullptr, "."), KEL_E_CONNECTION);
  EXPECT_THAT(TakeTraces(), notFound("KEL_ValidateVersion", "KEL_ValidateVersion - started", 77));
}

TEST_F(TraceTest, OfAVersionCheck) {
  const std::uint64_t conn = connectQuietly();
  char file[] = "KEL_ALLTASKS.csv";
  std::uint64_t user = 0;
  EXPECT_EQ(KEL_ValidateVersion(conn, file, "", 0, &user, "."), KEL_VERSION_VALID);
  EXPECT_THAT(TakeTraces(), found("KEL_ValidateVersion", "KEL_ValidateVersion - started", conn, kProgress,
                                  "KEL_ValidateVersion finished OK"));
}

TEST_F(TraceTest, OfAVersionCheckThatFailsStandAtProgressLevel) {
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  char file[] = "file";
  EXPECT_EQ(KEL_ValidateVersion(0, file, "", 0, nullptr, "."), KEL_VERSION_INVALID);
  EXPECT_THAT(TakeTraces(), found("KEL_ValidateVersion", "KEL_ValidateVersion - started", 0, kProgress,
                                  "KEL_ValidateVersion error. returned - 1"));
}

TEST_F(TraceTest, OfTheExportsThatAskNoEngine) {
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  KEL_Init();
  KEL_RegisterCtrlStatusUpdatesCB(nullptr);
  KEL_UnregisterCtrlStatusUpdatesCB(nullptr);
  KEL_GetCtrlStatus();
  KEL_SetConnParams(1, 2);
  KEL_GetVersion();
  KEL_Finalize();
  EXPECT_THAT(
      TakeTraces(),
      ElementsAre(Trace{kProgress, "KEL_RegisterCtrlStatusUpdatesCB", "KEL_RegisterCtrlStatusUpdatesCB - started"},
                  Trace{kProgress, "KEL_UnregisterCtrlStatusUpdatesCB", "KEL_UnregisterCtrlStatusUpdatesCB - started"},
                  Trace{kProgress, "KEL_GetCtrlStatus", "KEL_GetCtrlStatus - started"},
                  Trace{kProgress, "KEL_SetConnParams", "KEL_SetConnParams - started"},
                  Trace{kProgress, "KEL_GetVersion", "KEL_GetVersion finished"}));
}

}  // namespace
}  // namespace kel::test
