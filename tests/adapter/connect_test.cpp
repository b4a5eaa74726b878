// SPDX-License-Identifier: MIT
// A row's L5 connection and its socket ID.
#include "adapter/adapter_test.h"

namespace kel::test {
namespace {

const char* const kConnect = "Dorv_Connect";
const char* const kDisconnect = "Dorv_Disconnect";
const char* const kDisconnectL5 = "Dorv_DisconnectL5";

/// The lines of the L5 connection's end, the event that this side has asked for included.
std::string Closing(std::uint32_t handle) {
  return RowInfo(handle, kDisconnectL5, "Start. \n") + RowInfo(handle, "Dorv_EventHandler", "Start. \n") +
         RowInfo(handle, "Dorv_EventHandler", "Got L5_EVENT_DISCONNECTED. \n") +
         RowInfo(handle, "Dorv_EventHandler", "Finish. \n") + RowInfo(handle, kDisconnectL5, "Success. \n");
}

class Connecting : public Adapter {
 protected:
  void setReply(const SluiceHubSimSocketReply& reply) { SluiceHubSim_SetSocketReply(&reply); }

  /// Connects row 0 and expects it to fail with these lines behind "L5 connected." and the link to be closed again.
  void expectNoSocket(const std::string& problem) {
    const std::uint32_t handle = initRow();
    log.fresh();
    EXPECT_EQ(Dorv_Connect(handle, "127.0.0.1", 1234), DORV_FAILED);
    EXPECT_EQ(log.fresh(), RowInfo(handle, kConnect, "Start. \n") + RowInfo(handle, kConnect, "L5 connected. \n") +
                               Closing(handle) + RowError(handle, kConnect, problem));
    EXPECT_EQ(SluiceHubSim_GetConnections(nullptr, 0), 0u);
    expectClosed(handle);
    EXPECT_TRUE(Engine::alerts().empty());
  }
  void expectClosed(std::uint32_t handle) {
    EXPECT_EQ(row(handle).inUse, 1u);
    EXPECT_EQ(row(handle).L5Connection, 0u);
    EXPECT_EQ(row(handle).socketID, 255);
    EXPECT_EQ(row(handle).disconnecting, 1u);
  }
};

const std::string kNotSent = "Failed to send ACQUIRE_SOCKET_ID L5 request to KelProxyAgent. \n";
const std::string kNotAcquired = "Failed to acquire SocketID from KelProxyAgent. \n";

TEST_F(Connecting, OpensALinkAndAcquiresASocket) {
  setReply({0, 1001, 1, 'A', 0});
  const std::uint32_t handle = initRow();
  log.fresh();
  EXPECT_EQ(Dorv_Connect(handle, "127.0.0.1", 1234), DORV_OK);
  EXPECT_EQ(log.fresh(), RowInfo(0, kConnect, "Start. \n") + RowInfo(0, kConnect, "L5 connected. \n") +
                             RowInfo(0, kConnect, "SocketID = A acquired. \n") + RowInfo(0, kConnect, "Success. \n"));
  std::uint64_t connection = 0;
  EXPECT_EQ(SluiceHubSim_GetConnections(&connection, 1), 1u);
  EXPECT_EQ(Dorv_GetL5Connection(handle), connection);
  EXPECT_EQ(row(handle).socketID, 'A');
  EXPECT_EQ(row(handle).disconnecting, 0u);
}

TEST_F(Connecting, AsksKelProxyAgentWithTheLowByteOfTheRow) {
  for (std::uint32_t handle = 0; handle < 3; ++handle) {
    initRow();
    EXPECT_EQ(Dorv_Connect(handle, "127.0.0.1", 1234), DORV_OK);
    Bytes body;
    const SluiceHubSimRequest request = lastRequest(&body);
    EXPECT_EQ(request.connection, Dorv_GetL5Connection(handle));
    EXPECT_EQ(request.agent, 7u);
    EXPECT_EQ(request.messageID, 1000u);
    EXPECT_EQ(body, Bytes{static_cast<std::uint8_t>(handle)});
  }
}

TEST_F(Connecting, WritesTheSocketIDAsACharacter) {
  initRow();
  log.fresh();
  EXPECT_EQ(Dorv_Connect(0, "127.0.0.1", 1234), DORV_OK);
  EXPECT_EQ(row(0).socketID, 0);
  EXPECT_EQ(log.fresh(), RowInfo(0, kConnect, "Start. \n") + RowInfo(0, kConnect, "L5 connected. \n") +
                             RowInfo(0, kConnect, "SocketID = " + std::string(1, '\0') + " acquired. \n") +
                             RowInfo(0, kConnect, "Success. \n"));
}

TEST_F(Connecting, TakesEverySocketIDBut255) {
  initRow();
  for (const std::uint8_t socketID : Bytes{0, 1, 254}) {
    setReply({0, 1001, 1, socketID, 0});
    EXPECT_EQ(Dorv_Connect(0, "127.0.0.1", 1234), DORV_OK);
    EXPECT_EQ(row(0).socketID, socketID);
    EXPECT_EQ(Dorv_Disconnect(0), DORV_OK);
  }
}

TEST_F(Connecting, IgnoresThePeer) {
  initRow();
  EXPECT_EQ(Dorv_Connect(0, nullptr, 0), DORV_OK);
  Dorv_Disconnect(0);
  EXPECT_EQ(Dorv_Connect(0, "no such host", 65535), DORV_OK);
}

TEST_F(Connecting, FailsIfTheLinkDoes) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 5);
  initRow();
  log.fresh();
  EXPECT_EQ(Dorv_Connect(0, "127.0.0.1", 1234), DORV_FAILED);
  EXPECT_EQ(log.fresh(), RowInfo(0, kConnect, "Start. \n") + RowError(0, kConnect, "Failed to connect L5. \n"));
  EXPECT_EQ(messagesSent(), 0u);
  EXPECT_EQ(row(0).L5Connection, 0u);
  EXPECT_EQ(row(0).disconnecting, 0u);
  EXPECT_EQ(SluiceHubSim_Calls(SLUICEHUBSIM_L5_DISCONNECT), 0u);
}

TEST_F(Connecting, FailsIfTheLinkHasNoValue) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 0);
  initRow();
  log.fresh();
  EXPECT_EQ(Dorv_Connect(0, "127.0.0.1", 1234), DORV_FAILED);
  EXPECT_EQ(log.fresh(), RowInfo(0, kConnect, "Start. \n") + RowError(0, kConnect, "Failed to connect L5. \n"));
}

TEST_F(Connecting, ClosesTheLinkIfTheSocketCannotBeAskedFor) {
  setReply({9, 1001, 1, 'A', 0});
  expectNoSocket(kNotSent);
}

TEST_F(Connecting, ClosesTheLinkIfTheReplyHasAnotherID) {
  setReply({0, 1000, 1, 'A', 0});
  expectNoSocket(kNotAcquired);
}

TEST_F(Connecting, ClosesTheLinkIfTheReplyIsTooLong) {
  setReply({0, 1001, 2, 'A', 0});
  expectNoSocket(kNotAcquired);
}

TEST_F(Connecting, ClosesTheLinkIfTheReplyIsEmpty) {
  setReply({0, 1001, 0, 'A', 0});
  expectNoSocket(kNotAcquired);
}

TEST_F(Connecting, ClosesTheLinkIfThereIsNoSocketLeft) {
  setReply({0, 1001, 1, 255, 0});
  expectNoSocket(kNotAcquired);
}

TEST_F(Connecting, MayBeTriedAgain) {
  setReply({0, 1001, 1, 255, 0});
  expectNoSocket(kNotAcquired);
  SluiceHubSim_SetSocketReply(nullptr);
  EXPECT_EQ(Dorv_Connect(0, "127.0.0.1", 1234), DORV_OK);
  EXPECT_EQ(row(0).disconnecting, 0u);
  EXPECT_EQ(row(0).socketID, 0);
}

TEST_F(Connecting, EndsWithTheReleaseOfTheSocket) {
  const std::uint32_t handle = connectRow('A');
  const std::uint64_t connection = Dorv_GetL5Connection(handle);
  EXPECT_EQ(Dorv_Disconnect(handle), DORV_OK);
  Bytes body;
  const SluiceHubSimRequest request = lastRequest(&body);
  EXPECT_EQ(request.connection, connection);
  EXPECT_EQ(request.agent, 7u);
  EXPECT_EQ(request.messageID, 1002u);
  EXPECT_EQ(body, Bytes{'A'});
  EXPECT_EQ(log.fresh(), RowInfo(0, kDisconnect, "Start. \n") + RowInfo(0, kDisconnect, "SocketID = A released. \n") +
                             Closing(0) + RowInfo(0, kDisconnect, "L5 disconnected. \n") +
                             RowInfo(0, kDisconnect, "Success. \n"));
  EXPECT_EQ(SluiceHubSim_GetConnections(nullptr, 0), 0u);
  expectClosed(handle);
  EXPECT_TRUE(Engine::alerts().empty());
}

TEST_F(Connecting, EndsAllTheSameIfTheSocketCannotBeReleased) {
  const std::uint32_t handle = connectRow('A');
  setReply({0, 1001, 1, 'A', 77});
  EXPECT_EQ(Dorv_Disconnect(handle), DORV_OK);
  EXPECT_EQ(log.fresh(), RowInfo(0, kDisconnect, "Start. \n") +
                             RowError(0, kDisconnect,
                                      "Failed to send RELEASE_SOCKET_ID_INDICATION L5 request to KelProxyAgent. \n") +
                             RowInfo(0, kDisconnect, "SocketID = A released. \n") + Closing(0) +
                             RowInfo(0, kDisconnect, "L5 disconnected. \n") + RowInfo(0, kDisconnect, "Success. \n"));
  expectClosed(handle);
}

TEST_F(Connecting, EndsForThisSideEvenIfTheLinkDoesNotClose) {
  const std::uint32_t handle = connectRow('A');
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_DISCONNECT, 1);
  EXPECT_EQ(Dorv_Disconnect(handle), DORV_OK);
  expectClosed(handle);
}

TEST_F(Connecting, EndsOnceOnly) {
  const std::uint32_t handle = connectRow('A');
  Dorv_Disconnect(handle);
  const std::uint64_t sent = messagesSent();
  log.fresh();
  EXPECT_EQ(Dorv_Disconnect(handle), DORV_OK);
  EXPECT_EQ(messagesSent(), sent);
  EXPECT_EQ(log.fresh(), RowInfo(0, kDisconnect, "Start. \n"));
}

TEST_F(Connecting, IsNothingToEndOnARowWithoutALink) {
  const std::uint32_t handle = initRow();
  log.fresh();
  EXPECT_EQ(Dorv_Disconnect(handle), DORV_OK);
  EXPECT_EQ(messagesSent(), 0u);
  EXPECT_EQ(row(handle).disconnecting, 0u);
  EXPECT_EQ(log.fresh(), RowInfo(0, kDisconnect, "Start. \n"));
}

TEST_F(Connecting, IsNothingToEndOnAFreeRow) {
  initRow();
  log.fresh();
  EXPECT_EQ(Dorv_Disconnect(9), DORV_OK);
  EXPECT_EQ(log.fresh(), RowInfo(9, kDisconnect, "Start. \n"));
}

// No engine connects without a row.
TEST_F(Connecting, LeavesTheLinkOfAFreeRowOpen) {
  const std::uint32_t other = connectRow();
  setReply({0, 1001, 1, 'B', 0});
  ASSERT_EQ(Dorv_Connect(9, "127.0.0.1", 1234), DORV_OK);
  const std::uint64_t link = Dorv_GetL5Connection(9);
  const std::uint64_t sent = messagesSent();
  log.fresh();
  EXPECT_EQ(Dorv_Disconnect(9), DORV_OK);
  EXPECT_EQ(log.fresh(), RowInfo(9, kDisconnect, "Start. \n"));
  setReply({0, 1001, 1, 255, 0});
  EXPECT_EQ(Dorv_Connect(8, "127.0.0.1", 1234), DORV_FAILED);
  EXPECT_EQ(Dorv_GetL5Connection(9), link);
  EXPECT_NE(Dorv_GetL5Connection(8), 0u);
  EXPECT_EQ(messagesSent(), sent + 1);
  EXPECT_EQ(SluiceHubSim_GetConnections(nullptr, 0), 3u);
  EXPECT_EQ(row(other).disconnecting, 0u);
}

TEST_F(Connecting, GivesEachRowALinkOfItsOwn) {
  const std::uint32_t one = connectRow('A'), other = connectRow('B');
  EXPECT_NE(Dorv_GetL5Connection(one), Dorv_GetL5Connection(other));
  Dorv_Disconnect(one);
  EXPECT_EQ(Dorv_GetL5Connection(one), 0u);
  EXPECT_EQ(row(other).socketID, 'B');
  std::uint64_t connection = 0;
  EXPECT_EQ(SluiceHubSim_GetConnections(&connection, 1), 1u);
  EXPECT_EQ(connection, Dorv_GetL5Connection(other));
}

}  // namespace
}  // namespace kel::test
