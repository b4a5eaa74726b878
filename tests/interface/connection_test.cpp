// SPDX-License-Identifier: MIT
// Connections: their number, their values, what a value means once it is stale.
#include "interface/client.h"

namespace kel::test {
namespace {

using ConnectionTest = ClientTest;

TEST_F(ConnectionTest, AConnectionIsTheValueOfTheL5Layer) {
  const std::uint64_t conn = connect();
  EXPECT_EQ(OpenConnections(), std::vector<std::uint64_t>{conn});
  EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);
  EXPECT_TRUE(OpenConnections().empty());
}

TEST_F(ConnectionTest, NothingRequiresInitAheadOfAConnection) {
  connect();
  EXPECT_EQ(SluiceHubSim_Calls(SLUICEHUBSIM_INIT), 0u);
}

TEST_F(ConnectionTest, FifteenConnectionsAreOpenAtOnceAndASixteenthIsRefused) {
  std::vector<std::uint64_t> conns;
  for (int i = 0; i < 15; ++i) conns.push_back(connect());
  EXPECT_EQ(OpenConnections(), conns);

  std::uint64_t conn = 4711;
  EXPECT_EQ(KEL_Connect(nullptr, nullptr, &conn), KEL_E_CONNECTION);
  EXPECT_EQ(conn, 4711u);
  EXPECT_EQ(OpenConnections().size(), 15u);

  for (std::uint32_t i = 0; i < 15; ++i) {
    EXPECT_EQ(SendValues(conns[i], {i, 2, 3}).payload, Bytes({i, 2, 3}));
  }
  EXPECT_EQ(KEL_Disconnect(conns[7]), KEL_OK);
  EXPECT_EQ(SendValues(connect(), {1, 2, 3}).result, KEL_OK);
}

TEST_F(ConnectionTest, AFreedRowIsTakenAgainAndItsNewConnectionFound) {
  const std::uint64_t first = connect();
  const std::uint64_t second = connect();
  const std::uint64_t third = connect();
  EXPECT_EQ(KEL_Disconnect(second), KEL_OK);
  const std::uint64_t fourth = connect();

  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  for (const std::uint64_t conn : {first, fourth, third}) EXPECT_EQ(SendValues(conn, {1, 2, 3}).result, KEL_OK);
  std::vector<std::string> rows;
  for (const Trace& trace : TakeTraces()) {
    if (trace.text.starts_with("returned")) rows.push_back(trace.text);
  }
  EXPECT_THAT(rows, ::testing::ElementsAre("returned handler 0", "returned handler 1", "returned handler 2"));
}

TEST_F(ConnectionTest, AfterDisconnectTheValueIsUnknownToEveryCall) {
  const std::uint64_t conn = connect();
  ASSERT_EQ(KEL_Disconnect(conn), KEL_OK);

  std::uint32_t number = 4711;
  EXPECT_EQ(KEL_Disconnect(conn), KEL_E_CONNECTION);
  EXPECT_EQ(SendValues(conn, {}).result, KEL_E_CONNECTION);
  EXPECT_EQ(KEL_SendReceiveAsyncKEL(conn, kDebugVal, 1, nullptr, 0, &number, nullptr, nullptr), KEL_E_CONNECTION);
  EXPECT_EQ(KEL_SendReceiveAsyncKELEx(conn, kDebugVal, 1, nullptr, 0, 0, 1, &number, nullptr, nullptr),
            KEL_E_CONNECTION);
  char file[] = "file";
  std::uint64_t user = 0;
  EXPECT_EQ(KEL_ValidateVersion(conn, file, "", 0, &user, "."), KEL_E_CONNECTION);
  EXPECT_EQ(number, 4711u);
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(ConnectionTest, AnUnknownConnectionLeavesTheOutputsOfATaskAlone) {
  std::uint32_t type = 1, parameter = 2, size = 3;
  void* payload = &size;
  EXPECT_EQ(KEL_SendReceiveKELEx(12345, kDebugVal, 1, nullptr, 0, 0, 1, &type, &payload, &size, &parameter, nullptr),
            KEL_E_CONNECTION);
  EXPECT_EQ(payload, &size);
  EXPECT_EQ(size, 3u);
}

TEST_F(ConnectionTest, AConnectionOfZeroFindsTheFirstFreeRowAndNoEngineUnderIt) {
  EXPECT_EQ(SendValues(0, {}).result, KEL_E_TASK);
  EXPECT_EQ(KEL_SendReceiveAsyncKEL(0, kDebugVal, 1, nullptr, 0, nullptr, nullptr, nullptr), KEL_E_ASYNC_TASK);
  EXPECT_EQ(KEL_Disconnect(0), KEL_E_CONNECTION);
  char file[] = "file";
  std::uint64_t user = 0;
  EXPECT_EQ(KEL_ValidateVersion(0, file, "", 0, &user, "."), KEL_VERSION_INVALID);
}

TEST_F(ConnectionTest, AFreedRowKeepsItsHandleWhichAConnectionOfZeroThenReaches) {
  const std::uint64_t first = connect();
  const std::uint64_t second = connect();
  // The first free row is 2, whose handle is still the zero of the beginning: engine 0 lives.
  EXPECT_EQ(SendValues(0, {1, 2, 3}).payload, Bytes({1, 2, 3}));
  // Now it is row 0, whose handle is that of the engine which has gone.
  ASSERT_EQ(KEL_Disconnect(first), KEL_OK);
  EXPECT_EQ(SendValues(0, {}).result, KEL_E_TASK);
  EXPECT_EQ(SendValues(second, {1, 2, 3}).payload, Bytes({1, 2, 3}));
}

// The row that is found is the first free one, whose handle is the zero of the beginning; the row that is cleared is
// that of the engine.
TEST_F(ConnectionTest, ADisconnectOfZeroClosesTheFirstConnection) {
  const std::uint64_t first = connect();
  const std::uint64_t second = connect();
  EXPECT_EQ(KEL_Disconnect(0), KEL_OK);
  EXPECT_EQ(OpenConnections(), std::vector<std::uint64_t>{second});
  EXPECT_EQ(SendValues(first, {}).result, KEL_E_CONNECTION);  // unknown, not just without an engine
  EXPECT_EQ(KEL_Disconnect(first), KEL_E_CONNECTION);
  EXPECT_EQ(SendValues(second, {1, 2, 3}).payload, Bytes({1, 2, 3}));
  // Its row is the first free one now.
  EXPECT_EQ(KEL_Disconnect(0), KEL_E_CONNECTION);
}

TEST_F(ConnectionTest, AConnectionWhoseValueNobodyGetsIsNotMade) {
  EXPECT_EQ(KEL_Connect(nullptr, nullptr, nullptr), KEL_E_CONNECTION);
  EXPECT_EQ(KEL_ConnectEx(nullptr, 0, 0, nullptr, 0, nullptr), KEL_E_CONNECTION);
  EXPECT_TRUE(OpenConnections().empty());
}

TEST_F(ConnectionTest, TheIgnoredArgumentsHaveNoEffect) {
  std::uint64_t conns[4] = {};
  EXPECT_EQ(KEL_ConnectEx(nullptr, 0, 0, nullptr, 0, &conns[0]), KEL_OK);
  EXPECT_EQ(KEL_ConnectEx(nullptr, 1, 0xFFFFFFFFFFFFFFFF, nullptr, 1, &conns[1]), KEL_OK);
  EXPECT_EQ(KEL_ConnectEx(nullptr, 0xFFFFFFFF, 1, nullptr, 0xFFFFFFFF, &conns[2]), KEL_OK);
  EXPECT_EQ(KEL_ConnectEx(nullptr, 4711, 4712, nullptr, 4713, &conns[3]), KEL_OK);
  for (const std::uint64_t conn : conns) EXPECT_EQ(SendValues(conn, {1, 2, 3}).payload, Bytes({1, 2, 3}));
}

TEST_F(ConnectionTest, TheTaskTableThatAConnectNamesIsThatConnectionsOwn) {
  folder.write("mine.csv", "MY_TASK,  0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240\r\n");
  std::uint64_t mine = 0;
  ASSERT_EQ(KEL_Connect("mine.csv", nullptr, &mine), KEL_OK);
  const std::uint64_t builtIn = connect();

  const Values values = {1, 2, 3};
  EXPECT_EQ(Send(mine, "MY_TASK", values.data(), sizeof values).payload, Bytes(values));
  EXPECT_EQ(Send(mine, kDebugVal, values.data(), sizeof values).result, KEL_E_TASK);
  EXPECT_EQ(Send(builtIn, "MY_TASK", values.data(), sizeof values).result, KEL_E_TASK);
}

TEST_F(ConnectionTest, AConnectThatFailsLeavesNothingOpenAndItsOutputAlone) {
  folder.write("empty.csv", "");
  std::uint64_t conn = 4711;
  EXPECT_EQ(KEL_Connect("empty.csv", nullptr, &conn), KEL_E_CONNECTION);

  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1);
  EXPECT_EQ(KEL_Connect(nullptr, nullptr, &conn), KEL_E_CONNECTION);
  SluiceHubSim_UnforceResult(SLUICEHUBSIM_L5_CONNECT);

  SluiceHubSimSocketReply noSocket{};
  noSocket.replyID = 1001;
  noSocket.replySize = 1;
  noSocket.socketID = 255;
  SluiceHubSim_SetSocketReply(&noSocket);
  EXPECT_EQ(KEL_Connect(nullptr, nullptr, &conn), KEL_E_CONNECTION);
  SluiceHubSim_SetSocketReply(nullptr);

  EXPECT_EQ(conn, 4711u);
  EXPECT_TRUE(OpenConnections().empty());
  // Row 0 was given back each time.
  SluiceHubSim_KeepTraces(0xFFFFFFFF);
  EXPECT_EQ(KEL_Disconnect(connect()), KEL_OK);
  EXPECT_THAT(TakeTraces(), ::testing::Contains(Trace{32, "GetHandle", "returned handler 0"}));
}

TEST_F(ConnectionTest, ALostLinkRefusesTasksAndCanStillBeClosed) {
  const std::uint64_t conn = connect();
  EXPECT_EQ(SluiceHubSim_LoseLink(conn, 1, 1), 1u);
  EXPECT_EQ(SendValues(conn, {}).result, KEL_E_TASK);
  EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);
  EXPECT_TRUE(OpenConnections().empty());
  EXPECT_EQ(SendValues(connect(), {1, 2, 3}).result, KEL_OK);
}

}  // namespace
}  // namespace kel::test
