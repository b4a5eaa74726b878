// SPDX-License-Identifier: MIT
// Changes of the link's state.
#include "adapter/adapter_test.h"

namespace kel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char* const kHandler = "Dorv_EventHandler";

std::string Unheeded(std::uint32_t handle) {
  return RowInfo(handle, kHandler, "Start. \n") + RowInfo(handle, kHandler, "Got L5_EVENT_DISCONNECTED. \n") +
         RowInfo(handle, kHandler, "Finish. \n");
}
std::string Alerted(std::uint32_t handle) {
  return RowInfo(handle, kHandler, "Start. \n") + RowInfo(handle, kHandler, "Got L5_EVENT_DISCONNECTED. \n") +
         RowInfo(handle, kHandler,
                 "Got reason other than L5_RESULT_USER_REQUESTED_DISCONNECT. Invoking Brel's alert callback ...\n") +
         RowInfo(handle, kHandler, "Finish. \n");
}

class Event : public Adapter {
 protected:
  static void happen(std::uint32_t event, std::uint32_t reason, std::uint32_t handle = 0) {
    Dorv_EventHandler(0, event, &reason, &row(handle).handle);
  }
};

TEST_F(Event, OfALostLinkGivesOneAlert) {
  const std::uint32_t handle = connectRow();
  const std::uint64_t connection = Dorv_GetL5Connection(handle);
  SluiceHubSim_LoseLink(0, 5, 1);
  EXPECT_THAT(Engine::alerts(), ElementsAre(Engine::Alert{0, 4}));
  EXPECT_EQ(log.fresh(), Alerted(0));
  // Nothing of the row changes.
  EXPECT_EQ(row(handle).L5Connection, connection);
  EXPECT_EQ(row(handle).socketID, 'A');
  EXPECT_EQ(row(handle).disconnecting, 0u);
  EXPECT_EQ(row(handle).inUse, 1u);
}

TEST_F(Event, GivesAnAlertForEveryReasonBut17) {
  connectRow();
  for (const std::uint32_t reason : {0u, 1u, 16u, 18u, 0x10011u, 0xFFFFFFFFu}) {
    const std::size_t before = Engine::alerts().size();
    happen(0, reason);
    EXPECT_EQ(Engine::alerts().size(), before + 1) << reason;
    EXPECT_EQ(log.fresh(), Alerted(0));
  }
}

TEST_F(Event, OfALostLinkNeedsNoReason) {
  connectRow();
  Dorv_EventHandler(0, 0, nullptr, &row(0).handle);
  EXPECT_THAT(Engine::alerts(), ElementsAre(Engine::Alert{0, 4}));
  EXPECT_EQ(log.fresh(), Alerted(0));
}

TEST_F(Event, OfADisconnectThatThisSideAskedForGivesNoAlert) {
  connectRow();
  SluiceHubSim_LoseLink(0, 17, 1);
  EXPECT_THAT(Engine::alerts(), IsEmpty());
  EXPECT_EQ(log.fresh(), Unheeded(0));
}

TEST_F(Event, GivesNoAlertOnceThisSideHasBegunToDisconnect) {
  const std::uint32_t handle = connectRow();
  Dorv_Disconnect(handle);
  log.fresh();
  happen(0, 5);
  EXPECT_THAT(Engine::alerts(), IsEmpty());
  EXPECT_EQ(log.fresh(), Unheeded(0));
}

TEST_F(Event, GivesNoAlertOnAFreeRow) {
  initRow();
  initRow();
  Dorv_Finalize(1);
  log.fresh();
  happen(0, 5, 1);
  EXPECT_THAT(Engine::alerts(), IsEmpty());
  EXPECT_EQ(log.fresh(), Unheeded(1));
}

TEST_F(Event, OfAnotherKindIsOnlyLogged) {
  connectRow();
  for (const std::uint32_t event : {1u, 2u, 0xFFFFFFFFu}) {
    happen(event, 5);
    EXPECT_EQ(log.fresh(), RowInfo(0, kHandler, "Start. \n") + RowInfo(0, kHandler, "Finish. \n"));
  }
  // The reason belongs to the disconnect alone.
  Dorv_EventHandler(0, 1, nullptr, &row(0).handle);
  EXPECT_THAT(Engine::alerts(), IsEmpty());
}

TEST_F(Event, FindsNobodyToAlertWithoutACallback) {
  Dorv_Init(Engine::onRecord, nullptr);
  log.fresh();
  happen(0, 5);
  EXPECT_THAT(Engine::alerts(), IsEmpty());
  EXPECT_EQ(log.fresh(), Alerted(0));
}

TEST_F(Event, ComesToTheRowOfItsLink) {
  connectRow('A');
  const std::uint32_t other = connectRow('B');
  log.fresh();
  SluiceHubSim_LoseLink(Dorv_GetL5Connection(other), 5, 1);
  EXPECT_THAT(Engine::alerts(), ElementsAre(Engine::Alert{other, 4}));
  EXPECT_EQ(log.fresh(), Alerted(other));
}

TEST_F(Event, GivesAnAlertEachTime) {
  connectRow();
  SluiceHubSim_DeliverEvent(0, 0, 5, 1);
  SluiceHubSim_DeliverEvent(0, 0, 6, 1);
  EXPECT_THAT(Engine::alerts(), ElementsAre(Engine::Alert{0, 4}, Engine::Alert{0, 4}));
}

}  // namespace
}  // namespace kel::test
