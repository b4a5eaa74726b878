// SPDX-License-Identifier: MIT
// Messages from the device side.
#include <algorithm>
#include <memory>
#include <thread>

#include "adapter/adapter_test.h"
#include "support/failing_heap.h"

namespace kel::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

const char* const kHandler = "Dorv_MessagesHandler";
const std::string kStart = Info(kHandler, "Start. \n");

std::string Got(std::uint32_t handle) {
  return RowInfo(handle, kHandler, "Got KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION. \n");
}
std::string Received(std::uint32_t handle, std::size_t size) {
  return RowInfo(handle, kHandler,
                 "Received from socket " + std::to_string(size) + " bytes. Calling Brel callback... \n");
}
std::string Finish(std::uint32_t handle) { return RowInfo(handle, kHandler, "Finish. \n"); }

/// A response's body.
Bytes Body(std::uint16_t row, std::uint32_t TUI, std::uint32_t seqTUI, std::uint32_t errorCode, const Bytes& payload) {
  return Wire()
      .u16(row)
      .bytes({0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA})
      .u32(TUI)
      .u32(static_cast<std::uint32_t>(payload.size()))
      .u32(seqTUI)
      .u32(errorCode)
      .bytes(payload);
}

class Receiving : public Adapter {
 protected:
  /// Over the link, on the pipe library's thread.
  static void deliver(const Bytes& body, std::uint32_t messageID = 1003) {
    SluiceHubSim_DeliverMessage(0, messageID, body.data(), static_cast<std::uint32_t>(body.size()), 1);
  }

  /// A call of the handler as the pipe library makes it. The body ends with its block, so an overread is seen.
  void handle(const Bytes& body, std::uint32_t messageID = 1003) {
    const std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[body.size()]);
    std::copy(body.begin(), body.end(), block.get());
    handle(block.get(), static_cast<std::uint32_t>(body.size()), messageID);
  }
  void handle(const void* body, std::uint32_t size, std::uint32_t messageID = 1003) {
    std::uint32_t replyID = 77, replySize = 24;
    std::uint8_t reply[24] = {9};
    Dorv_MessagesHandler(0, 7, messageID, body, size, &replyID, reply, &replySize, nullptr, nullptr);
    EXPECT_EQ(replyID, 0u);
    EXPECT_EQ(replySize, 0u);
    EXPECT_EQ(reply[0], 9);
  }

  void expectDropped(const Bytes& body, const std::string& lines) {
    handle(body);
    EXPECT_EQ(log.fresh(), lines);
    EXPECT_THAT(Engine::records(), IsEmpty());
  }
};

TEST_F(Receiving, PutsAResponseBackIntoTheOrderOfARecord) {
  connectRow();
  deliver(Body(0, 0x030B8241, 0x11223344, 0x55667788, {1, 2, 3}));
  ASSERT_THAT(Engine::records(), SizeIs(1));
  EXPECT_EQ(Engine::records()[0].handle, 0u);
  EXPECT_EQ(Engine::records()[0].bytes,
            Bytes(Wire().u32(0x030B8241).u32(0x55667788).u32(0x11223344).u32(3).bytes({1, 2, 3})));
  EXPECT_EQ(log.fresh(), kStart + Got(0) + Received(0, 31) + Finish(0));
}

TEST_F(Receiving, TakesAResponseWithoutPayload) {
  connectRow();
  deliver(Body(0, 0xB8241, 0, 0, {}));
  ASSERT_THAT(Engine::records(), SizeIs(1));
  EXPECT_EQ(Engine::records()[0].bytes, Bytes(Wire().u32(0xB8241).u32(0).u32(0).u32(0)));
  EXPECT_EQ(log.fresh(), kStart + Got(0) + Received(0, 28) + Finish(0));
}

TEST_F(Receiving, TakesResponsesOfEverySizeWhole) {
  connectRow();
  const std::size_t sizes[] = {1, 8191, 8192, 8193, 16384, 65535, 65536};
  for (const std::size_t size : sizes) handle(Body(0, 0xB8241, 0, 0, Pattern(size)));
  ASSERT_THAT(Engine::records(), SizeIs(std::size(sizes)));
  for (std::size_t i = 0; i < std::size(sizes); ++i) {
    EXPECT_EQ(
        Engine::records()[i].bytes,
        Bytes(Wire().u32(0xB8241).u32(0).u32(0).u32(static_cast<std::uint32_t>(sizes[i])).bytes(Pattern(sizes[i]))));
  }
}

TEST_F(Receiving, DropsALargeResponseForWhichThereIsNoMemory) {
  connectRow();
  const Bytes body = Body(0, 0xB8241, 0, 0, Pattern(10000));
  std::size_t before = 0;
  for (int objects = 0; objects == 0 || Engine::records().size() > before; ++objects) {  // lines of the log first
    before = Engine::records().size();
    const FailingHeap heap(objects);
    handle(body.data(), static_cast<std::uint32_t>(body.size()));
    ASSERT_TRUE(heap.failed());
  }
  handle(body);
  EXPECT_THAT(Engine::records(), SizeIs(before + 1));
}

TEST_F(Receiving, HandsUpOnlyTheRecordOfALongerBody) {
  connectRow();
  Bytes body = Body(0, 0xB8241, 0, 0, {1, 2, 3, 4, 5});
  body[16] = 2;
  handle(body);
  ASSERT_THAT(Engine::records(), SizeIs(1));
  EXPECT_EQ(Engine::records()[0].bytes, Bytes(Wire().u32(0xB8241).u32(0).u32(0).u32(2).bytes({1, 2})));
  EXPECT_EQ(log.fresh(), kStart + Got(0) + Received(0, 33) + Finish(0));
}

TEST_F(Receiving, TakesTheRowThatTheResponseNames) {
  connectRow('A');
  connectRow('B');
  log.fresh();
  deliver(Body(1, 0xB8241, 0, 0, {}));  // over both links
  ASSERT_THAT(Engine::records(), SizeIs(2));
  for (const auto& record : Engine::records()) EXPECT_EQ(record.handle, 1u);
}

TEST_F(Receiving, DoesNotCompareTheRowWithItsSocketID) {
  connectRow(1);
  initRow();
  log.fresh();
  handle(Body(1, 0xB8241, 0, 0, {}));
  ASSERT_THAT(Engine::records(), SizeIs(1));
  EXPECT_EQ(Engine::records()[0].handle, 1u);
}

TEST_F(Receiving, TakesAResponseForARowWithoutALink) {
  initRow();
  handle(Body(0, 0xB8241, 0, 0, {}));
  EXPECT_THAT(Engine::records(), SizeIs(1));
}

TEST_F(Receiving, TakesNothingOfMessagesOfOtherIDs) {
  connectRow();
  for (const std::uint32_t messageID : {0u, 1u, 1000u, 1002u, 1004u, 0xFFFFFFFFu}) {
    handle(Body(0, 0xB8241, 0, 0, {}), messageID);
    EXPECT_EQ(log.fresh(), kStart + Finish(255));
  }
  handle(nullptr, 0, 5);
  EXPECT_EQ(log.fresh(), kStart + Finish(255));
  EXPECT_THAT(Engine::records(), IsEmpty());
}

TEST_F(Receiving, DropsAResponseForTheInvalidSocket) {
  connectRow();
  expectDropped(
      Body(255, 0xB8241, 0, 0, {}),
      kStart + Got(255) + RowError(255, kHandler, "Got KeL response with invalid socketID. \n") + Finish(255));
}

TEST_F(Receiving, DropsAResponseForAFreeRow) {
  connectRow();
  expectDropped(Body(1, 0xB8241, 0, 0, {}),
                kStart + Got(1) + RowError(1, kHandler, "Got KeL response for an inactive socketID. \n") + Finish(1));
}

TEST_F(Receiving, DropsAResponseForARowThatWasGivenBack) {
  const std::uint32_t handle = connectRow();
  Dorv_Finalize(handle);
  log.fresh();
  expectDropped(Body(0, 0xB8241, 0, 0, {}),
                kStart + Got(0) + RowError(0, kHandler, "Got KeL response for an inactive socketID. \n") + Finish(0));
}

TEST_F(Receiving, DropsAResponseForARowThatDoesNotExist) {
  connectRow();
  for (const std::uint16_t row : std::vector<std::uint16_t>{16, 17, 254, 256, 0x1FF, 65535}) {
    expectDropped(
        Body(row, 0xB8241, 0, 0, {}),
        kStart + Got(row) + RowError(row, kHandler, "Got KeL response for an inactive socketID. \n") + Finish(row));
  }
}

TEST_F(Receiving, DropsAResponseWithoutACallbackWithoutAWord) {
  Dorv_Init(nullptr, nullptr);
  log.fresh();
  expectDropped(Body(0, 0xB8241, 0, 0, {1}), kStart + Got(0) + Received(0, 29) + Finish(0));
}

TEST_F(Receiving, DropsABodyThatHasNoRow) {
  connectRow();
  for (const std::size_t size : {0u, 1u}) {
    expectDropped(Bytes(size),
                  kStart + RowError(255, kHandler, "Got KeL response with invalid socketID. \n") + Finish(255));
  }
  handle(nullptr, 100);
  EXPECT_EQ(log.fresh(), kStart + RowError(255, kHandler, "Got KeL response with invalid socketID. \n") + Finish(255));
}

TEST_F(Receiving, DropsABodyThatIsShorterThanItsHead) {
  connectRow();
  for (std::size_t size = 2; size < 28; ++size) {
    expectDropped(
        Bytes(size),
        kStart + Got(0) + RowError(0, kHandler, "Got KeL response that is shorter than its record. \n") + Finish(0));
  }
}

TEST_F(Receiving, DropsABodyThatAnnouncesMoreThanItHas) {
  connectRow();
  for (const std::uint32_t announced :
       {5u, 8192u, 8193u, 65536u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFE3u, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
    const Bytes body = Wire().u16(0).bytes(Bytes(10)).u32(0xB8241).u32(announced).u32(0).u32(0).bytes({1, 2, 3, 4});
    expectDropped(body, kStart + Got(0) +
                            RowError(0, kHandler, "Got KeL response that is shorter than its record. \n") + Finish(0));
  }
}

TEST_F(Receiving, GoesOnAfterAMessageThatWasDropped) {
  connectRow();
  deliver({});
  deliver(Bytes(27));
  deliver(Body(65535, 0, 0, 0, {}));
  deliver(Body(0, 0xB8241, 0, 0, {1}));
  EXPECT_THAT(Engine::records(), SizeIs(1));
}

TEST_F(Receiving, ManagesWithoutRoomForAReply) {
  connectRow();
  const Bytes body = Body(0, 0xB8241, 0, 0, {1});
  Dorv_MessagesHandler(0, 7, 1003, body.data(), static_cast<std::uint32_t>(body.size()), nullptr, nullptr, nullptr,
                       nullptr, nullptr);
  EXPECT_THAT(Engine::records(), SizeIs(1));
}

// A response may come before the request's own call has returned.
TEST_F(Receiving, TakesAResponseWhileTheRequestIsBeingSent) {
  connectRow();
  SluiceHubSimRule rule = {};
  rule.flags = SLUICEHUBSIM_BEFORE_REPLY;
  SluiceHubSim_AddRule(&rule);
  const Bytes record = Wire().u32(0xB8241).u32(1).u32(0x050B8241).u32(3).bytes({7, 8, 9});
  EXPECT_EQ(Dorv_Send(0, reinterpret_cast<const task*>(record.data()), 19), DORV_OK);
  ASSERT_THAT(Engine::records(), SizeIs(1));
  EXPECT_EQ(Engine::records()[0].bytes,
            Bytes(Wire().u32(0x050B8241).u32(0).u32(0x050B8200 | 'A').u32(3).bytes({7, 8, 9})));
}

TEST_F(Receiving, HandsNothingUpAfterTheRowWasFinalized) {
  const std::uint32_t handle = connectRow();
  SluiceHubSimRule rule = {};
  rule.flags = SLUICEHUBSIM_STREAM | SLUICEHUBSIM_NO_END;
  rule.streamCount = 1'000'000;
  SluiceHubSim_AddRule(&rule);
  const Bytes record = Wire().u32(0xB8241).u32(1).u32(0x050B8241).u32(0);
  Dorv_Send(handle, reinterpret_cast<const task*>(record.data()), 16);
  while (Engine::records().size() < 3) std::this_thread::yield();
  EXPECT_EQ(Dorv_Finalize(handle), DORV_OK);
  const std::size_t count = Engine::records().size();
  std::this_thread::yield();
  EXPECT_EQ(Engine::records().size(), count);
}

}  // namespace
}  // namespace kel::test
