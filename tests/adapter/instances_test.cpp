// SPDX-License-Identifier: MIT
// Taking rows of the adapter and giving them back.
#include "adapter/adapter_test.h"

namespace kel::test {
namespace {

TEST_F(Adapter, CannotFinalizeARowBeforeAnyWasTaken) {
  EXPECT_EQ(Dorv_Finalize(0), DORV_FAILED);
  EXPECT_EQ(Dorv_Disconnect(0), DORV_FAILED);
  EXPECT_EQ(Dorv_Connect(0, "127.0.0.1", 1234), DORV_FAILED);
  const task record{};
  EXPECT_EQ(Dorv_Send(0, &record, sizeof record), DORV_FAILED);
  // Before the first load the log has no file.
  EXPECT_EQ(log.fresh(), "");
}

TEST_F(Adapter, TakesRow0First) {
  EXPECT_EQ(initRow(), 0u);
  EXPECT_EQ(row(0).handle, 0u);
  EXPECT_EQ(row(0).inUse, 1u);
  EXPECT_EQ(row(0).L5Connection, 0u);
  EXPECT_EQ(row(0).socketID, 255);
  EXPECT_EQ(row(0).disconnecting, 0u);
  EXPECT_EQ(row(0).brelCallback, Engine::onRecord);
  EXPECT_EQ(row(0).brelAlertsCallback, Engine::onAlert);
  EXPECT_EQ(log.fresh(), Info("Dorv_Init", "Loaded SluiceHub.dll, getting dispatcher functions. \n") +
                             Info("Dorv_Init", "Got dispatcher functions. \n") +
                             RowInfo(0, "Dorv_Init", "Success. \n"));
}

TEST_F(Adapter, TakesTheLowestFreeRow) {
  for (std::uint32_t i = 0; i < 5; ++i) EXPECT_EQ(initRow(), i);
  EXPECT_EQ(Dorv_Finalize(3), DORV_OK);
  EXPECT_EQ(Dorv_Finalize(1), DORV_OK);
  EXPECT_EQ(initRow(), 1u);
  EXPECT_EQ(initRow(), 3u);
  EXPECT_EQ(initRow(), 5u);
}

TEST_F(Adapter, TakesRow0AnewWhileRow1Lives) {
  const std::uint32_t first = connectRow();
  EXPECT_EQ(initRow(), 1u);
  EXPECT_EQ(Dorv_Finalize(first), DORV_OK);
  EXPECT_EQ(row(0).disconnecting, 1u);
  EXPECT_EQ(Dorv_Init(nullptr, nullptr), 0u);
  EXPECT_EQ(row(0).socketID, 255);
  EXPECT_EQ(row(0).disconnecting, 0u);
  EXPECT_EQ(row(0).L5Connection, 0u);
  EXPECT_EQ(row(0).brelCallback, nullptr);
}

// Nobody asks for a seventeenth; it must not do harm.
TEST_F(Adapter, HasSixteenRows) {
  for (std::uint32_t i = 0; i < 16; ++i) EXPECT_EQ(initRow(), i);
  EXPECT_EQ(initRow(), kNoDorvHandle);
  EXPECT_EQ(Dorv_Finalize(15), DORV_OK);
  EXPECT_EQ(initRow(), 15u);
}

TEST_F(Adapter, FinalizesARowWithoutAConnection) {
  const std::uint32_t handle = initRow();
  log.fresh();
  EXPECT_EQ(Dorv_Finalize(handle), DORV_OK);
  EXPECT_EQ(row(0).inUse, 0u);
  EXPECT_EQ(row(0).brelCallback, nullptr);
  EXPECT_EQ(row(0).brelAlertsCallback, nullptr);
  EXPECT_EQ(row(0).socketID, 255);
  EXPECT_EQ(row(0).disconnecting, 0u);
  EXPECT_EQ(log.fresh(), RowInfo(0, "Dorv_Finalize", "Start. \n") +
                             RowInfo(0, "Dorv_Finalize", "Calling WRAPPER_COMMON_UnloadSluiceHub...\n") +
                             RowInfo(0, "Dorv_Finalize", "Success. \n"));
}

TEST_F(Adapter, DisconnectsAConnectedRowThatIsFinalized) {
  const std::uint32_t handle = connectRow('A');
  const std::uint64_t sent = messagesSent();
  EXPECT_EQ(Dorv_Finalize(handle), DORV_OK);
  EXPECT_EQ(messagesSent(), sent + 1);
  EXPECT_EQ(lastRequest().messageID, 1002u);
  EXPECT_EQ(SluiceHubSim_GetConnections(nullptr, 0), 0u);
  EXPECT_EQ(row(0).inUse, 0u);
  EXPECT_EQ(row(0).L5Connection, 0u);
  // The last values stay until the row is taken again.
  EXPECT_EQ(row(0).handle, 0u);
  EXPECT_EQ(row(0).socketID, 255);
  EXPECT_EQ(row(0).disconnecting, 1u);
  EXPECT_EQ(log.fresh(),
            RowInfo(0, "Dorv_Finalize", "Start. \n") + RowInfo(0, "Dorv_Finalize", "Calling Dorv_Disconnect...\n") +
                RowInfo(0, "Dorv_Disconnect", "Start. \n") +
                RowInfo(0, "Dorv_Disconnect", "SocketID = A released. \n") +
                RowInfo(0, "Dorv_DisconnectL5", "Start. \n") + RowInfo(0, "Dorv_EventHandler", "Start. \n") +
                RowInfo(0, "Dorv_EventHandler", "Got L5_EVENT_DISCONNECTED. \n") +
                RowInfo(0, "Dorv_EventHandler", "Finish. \n") + RowInfo(0, "Dorv_DisconnectL5", "Success. \n") +
                RowInfo(0, "Dorv_Disconnect", "L5 disconnected. \n") + RowInfo(0, "Dorv_Disconnect", "Success. \n") +
                RowInfo(0, "Dorv_Finalize", "Calling WRAPPER_COMMON_UnloadSluiceHub...\n") +
                RowInfo(0, "Dorv_Finalize", "Success. \n"));
}

TEST_F(Adapter, KeepsTheHighestRowApartFromTheOthers) {
  for (std::uint32_t i = 0; i < 15; ++i) initRow();
  const std::uint32_t handle = connectRow('P');
  EXPECT_EQ(handle, 15u);
  EXPECT_NE(Dorv_GetL5Connection(15), 0u);
  EXPECT_EQ(Dorv_GetL5Connection(14), 0u);
  EXPECT_EQ(Dorv_Finalize(15), DORV_OK);
}

TEST_F(Adapter, PrintsNothing) {
  testing::internal::CaptureStdout();
  const std::uint32_t handle = connectRow();
  const task record{};
  Dorv_Send(handle, &record, sizeof record);
  SluiceHubSim_DeliverMessage(0, 1003, "x", 1, 1);
  SluiceHubSim_LoseLink(0, 5, 1);
  Dorv_Send(handle, &record, sizeof record);
  Dorv_Finalize(handle);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace kel::test
