// SPDX-License-Identifier: MIT
// Task records on their way to L4msgProxy.
#include "adapter/adapter_test.h"
#include "support/failing_heap.h"

namespace kel::test {
namespace {

const char* const kSend = "Dorv_Send";
constexpr std::uint32_t kDebugRef = 0xB8241;

/// A task record in memory, in a block that ends with it.
Bytes Record(std::uint32_t TUI, std::uint32_t responseExpected, std::uint32_t seqTUI, const Bytes& payload) {
  return Wire()
      .u32(TUI)
      .u32(responseExpected)
      .u32(seqTUI)
      .u32(static_cast<std::uint32_t>(payload.size()))
      .bytes(payload);
}

std::string Sending(std::uint32_t size) {
  return RowInfo(0, kSend, "Start. \n") +
         RowInfo(0, kSend,
                 "Sending KeL Request over L5 to L4msgProxy. L5sndBufferSize = " + std::to_string(size) + " \n");
}
std::string Returned(std::uint32_t status) {
  return RowInfo(0, kSend,
                 "SendReceiveMessage returned. L5Status: " + std::to_string(status) + ", L5rcvBuffer size: 24\n");
}
std::string L4Status(std::uint32_t status) { return RowInfo(0, kSend, "L4Status: " + std::to_string(status) + "\n"); }

class SendPath : public Adapter {
 protected:
  SendPath() {
    // Whatever is sent is taken, and nothing comes back.
    SluiceHubSimRule rule = {};
    rule.flags = SLUICEHUBSIM_DROP | SLUICEHUBSIM_DATA;
    SluiceHubSim_AddRule(&rule);
    handle = connectRow('A');
  }
  std::uint32_t send(const Bytes& record, std::uint32_t size) {
    return Dorv_Send(handle, reinterpret_cast<const task*>(record.data()), size);
  }
  std::uint32_t send(const Bytes& record) { return send(record, static_cast<std::uint32_t>(record.size())); }
  std::uint32_t sendAny() { return send(Record(kDebugRef, 1, 0, {})); }

  /// Sends and has the agent answer like that.
  std::uint32_t sendRefused(std::uint32_t sendStatus, std::uint32_t replyID, std::uint32_t L4status,
                            std::uint32_t L4error) {
    SluiceHubSim_ClearRules();
    SluiceHubSimRule rule = {};
    rule.flags = SLUICEHUBSIM_DROP;
    rule.sendStatus = sendStatus;
    rule.replyID = replyID;
    rule.L4status = L4status;
    rule.L4error = L4error;
    SluiceHubSim_AddRule(&rule);
    return sendAny();
  }

  std::uint32_t handle;
};

TEST_F(SendPath, WrapsARecordInItsWireForm) {
  EXPECT_EQ(send(Record(0x000B8241, 1, 0x030B8241, {0xDE, 0xAD, 0xBE, 0xEF, 0x01})), DORV_OK);
  Bytes body;
  const SluiceHubSimRequest request = lastRequest(&body);
  EXPECT_EQ(request.connection, Dorv_GetL5Connection(handle));
  EXPECT_EQ(request.agent, 6u);
  EXPECT_EQ(request.messageID, 1u);
  EXPECT_EQ(body, Bytes(Wire()
                            .u16(0x2602)
                            .u16(21)
                            .bytes(Bytes(8))
                            .u32(0x000B8241)
                            .u32(5)
                            .u32(0x030B8200 | 'A')
                            .u32(1)
                            .bytes({0xDE, 0xAD, 0xBE, 0xEF, 0x01})));
}

TEST_F(SendPath, EndsAMessageWithoutPayloadBehindResponseExpected) {
  EXPECT_EQ(send(Record(kDebugRef, 1, 0, {})), DORV_OK);
  Bytes body;
  EXPECT_EQ(lastRequest(&body).size, 28u);
  EXPECT_EQ(body, Bytes(Wire().u16(9730).u16(16).bytes(Bytes(8)).u32(kDebugRef).u32(0).u32('A').u32(1)));
  EXPECT_EQ(log.fresh(), Sending(28) + Returned(0) + L4Status(0));
}

TEST_F(SendPath, PutsTheSocketIDIntoTheLowByteOfSeqTUI) {
  const Bytes record = Record(kDebugRef, 1, 0x1234565A, {});
  const Bytes before = record;
  EXPECT_EQ(send(record), DORV_OK);
  Bytes body;
  lastRequest(&body);
  EXPECT_EQ(Bytes(body.begin() + 20, body.begin() + 24), Bytes(Wire().u32(0x12345600 | 'A')));
  EXPECT_EQ(record, before);
}

TEST_F(SendPath, LeavesSeqTUIAloneUnlessAResponseIsExpected) {
  for (const std::uint32_t responseExpected : {0u, 2u, 0xFFFFFFFFu}) {
    EXPECT_EQ(send(Record(kDebugRef, responseExpected, 0x1234565A, {})), DORV_OK);
    Bytes body;
    lastRequest(&body);
    EXPECT_EQ(Bytes(body.begin() + 20, body.begin() + 28), Bytes(Wire().u32(0x1234565A).u32(responseExpected)));
  }
}

TEST_F(SendPath, CarriesPayloadsOfEverySizeWhole) {
  // Around the limit of a record, of the buffer on the stack, and of the header's sixteen bits.
  for (const std::size_t size : {1u, 12u, 8191u, 8192u, 8193u, 8204u, 8205u, 16384u, 65519u, 65520u, 65536u}) {
    const Bytes payload = Pattern(size);
    ASSERT_EQ(send(Record(kDebugRef, 0, 0, payload)), DORV_OK);
    Bytes body;
    lastRequest(&body);
    EXPECT_EQ(body, Bytes(Wire()
                              .u16(0x2602)
                              .u16(static_cast<std::uint16_t>(size + 16))
                              .bytes(Bytes(8))
                              .u32(kDebugRef)
                              .u32(static_cast<std::uint32_t>(size))
                              .u32(0)
                              .u32(0)
                              .bytes(payload)))
        << size;
  }
}

TEST_F(SendPath, RefusesALargeRecordForWhichThereIsNoMemory) {
  const Bytes record = Record(kDebugRef, 0, 0, Pattern(10000));
  std::uint64_t sent = 0;
  std::uint32_t status = DORV_OK;
  for (int objects = 0; status == DORV_OK; ++objects) {  // ahead of it come those of lines of the log
    sent = messagesSent();
    const FailingHeap heap(objects);
    status = send(record);
    ASSERT_TRUE(heap.failed());
  }
  EXPECT_EQ(messagesSent(), sent);
  EXPECT_EQ(send(record), DORV_OK);
}

TEST_F(SendPath, SendsTheLowSixteenBitsOfALargeSize) {
  const Bytes record = Record(kDebugRef, 0, 0, Pattern(65536 + 5 - 16));
  EXPECT_EQ(send(record), DORV_OK);
  Bytes body;
  lastRequest(&body);
  EXPECT_EQ(body.size(), 12u + 65541u);
  EXPECT_EQ(Bytes(body.begin() + 2, body.begin() + 4), Bytes(Wire().u16(5)));
}

TEST_F(SendPath, SendsAsManyBytesAsTheSizeSays) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_SEND_RECEIVE, 0);
  EXPECT_EQ(send(Record(kDebugRef, 0, 0, {}), 9000), DORV_OK);
  EXPECT_EQ(log.fresh(), Sending(9012) + Returned(0) + L4Status(0));
  EXPECT_EQ(send(Record(kDebugRef, 0, 0, Pattern(9000)), 16), DORV_OK);
  EXPECT_EQ(log.fresh(), Sending(28) + Returned(0) + L4Status(0));
}

TEST_F(SendPath, FillsASizeBeyondThePayloadWithZeros) {
  EXPECT_EQ(send(Record(kDebugRef, 0, 0, {1, 2}), 16 + 6), DORV_FAILED);  // the agent finds two sizes in it
  Bytes body;
  lastRequest(&body);
  EXPECT_EQ(Bytes(body.begin() + 28, body.end()), (Bytes{1, 2, 0, 0, 0, 0}));
}

TEST_F(SendPath, RefusesARowWithoutALink) {
  const std::uint32_t other = initRow();
  log.fresh();
  const std::uint64_t sent = messagesSent();
  const Bytes record = Record(kDebugRef, 1, 0, {});
  EXPECT_EQ(Dorv_Send(other, reinterpret_cast<const task*>(record.data()), 16), DORV_NOT_CONNECTED);
  EXPECT_EQ(log.fresh(), RowInfo(1, kSend, "Start. \n") + RowError(1, kSend, "L5 is not connected. \n"));
  EXPECT_EQ(messagesSent(), sent);
}

TEST_F(SendPath, RefusesARowThatWasDisconnected) {
  Dorv_Disconnect(handle);
  EXPECT_EQ(sendAny(), 3u);
}

TEST_F(SendPath, FailsIfTheMessageCannotBeSent) {
  EXPECT_EQ(sendRefused(9, 0, 0, 0), DORV_FAILED);
  EXPECT_EQ(log.fresh(),
            Sending(28) + Returned(9) + RowError(0, kSend, "Failed to send KeL Request over L5 to L4msgProxy. \n"));
}

TEST_F(SendPath, FailsIfTheAgentAnswersWithAnErrorAndReadsNoFurther) {
  EXPECT_EQ(sendRefused(0, 7, 5, 0x1234), DORV_FAILED);
  EXPECT_EQ(log.fresh(),
            Sending(28) + Returned(0) + RowError(0, kSend, "L4msgProxy agent returned error number = 7 \n"));
}

TEST_F(SendPath, FailsIfTheDriverRefusesAndTellsTheFirstWordOfTheReply) {
  EXPECT_EQ(sendRefused(0, 0, 5, 0xFFFF1234), DORV_FAILED);
  EXPECT_EQ(log.fresh(), Sending(28) + Returned(0) + L4Status(5) +
                             RowError(0, kSend, "L4 Adapter in driver returned error number = 4294906420 \n"));
}

TEST_F(SendPath, SucceedsWhateverTheFirstWordOfTheReplySays) {
  EXPECT_EQ(sendRefused(0, 0, 0, 0x1234), DORV_OK);
  EXPECT_EQ(log.fresh(), Sending(28) + Returned(0) + L4Status(0));
}

TEST_F(SendPath, DoesNotSeeTheHighHalfOfTheStatus) {
  EXPECT_EQ(sendRefused(0, 0, 0xABCD0000, 0), DORV_OK);
  EXPECT_EQ(log.fresh(), Sending(28) + Returned(0) + L4Status(0));
  EXPECT_EQ(sendRefused(0, 0, 0xABCDFFFF, 0), DORV_FAILED);
  EXPECT_EQ(log.fresh(), Sending(28) + Returned(0) + L4Status(65535) +
                             RowError(0, kSend, "L4 Adapter in driver returned error number = 0 \n"));
}

TEST_F(SendPath, GoesOnAskingALinkThatIsLost) {
  SluiceHubSim_LoseLink(0, 5, 1);
  log.fresh();
  EXPECT_EQ(sendAny(), DORV_FAILED);
  EXPECT_EQ(log.fresh(), Sending(28) + Returned(SLUICEHUBSIM_STATUS_LINK_LOST) +
                             RowError(0, kSend, "Failed to send KeL Request over L5 to L4msgProxy. \n"));
}

TEST_F(SendPath, ChangesNothingOfTheRowWhenItFails) {
  sendRefused(9, 0, 0, 0);
  EXPECT_EQ(row(handle).inUse, 1u);
  EXPECT_NE(row(handle).L5Connection, 0u);
  EXPECT_EQ(row(handle).socketID, 'A');
  EXPECT_EQ(row(handle).disconnecting, 0u);
}

}  // namespace
}  // namespace kel::test
