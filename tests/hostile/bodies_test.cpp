// SPDX-License-Identifier: MIT
// Messages and events one by one, each in a block of just its size: what a body does not hold is never read, and the
// connection works on.
#include <algorithm>
#include <cstring>
#include <vector>

#include "adapter/L5Records.h"
#include "hostile/hostile_client.h"

namespace kel::test {
namespace {

class BodiesTest : public HostileTest {
 protected:
  void SetUp() override { ASSERT_EQ(Connect(0), KEL_OK); }

  /// The connection still answers, and can be closed.
  void TearDown() override {
    behave({.before = "A"});
    EXPECT_EQ(Ask(0), KEL_OK);
    EXPECT_EQ(Disconnect(0), KEL_OK);
  }

  /// The latest connection gets the start of a response, as much of it as `size` says.
  static void deliver(std::uint32_t messageID, std::uint32_t row, std::uint32_t word, std::uint32_t announced,
                      std::uint32_t size) {
    struct {
      KelResponseHeader header;
      WireTask wire;
    } head{};
    head.header.handle = static_cast<std::uint16_t>(row);
    head.wire.TUI = word;
    head.wire.payloadSize = announced;
    const auto body = std::make_unique<std::uint8_t[]>(size);
    std::memcpy(body.get(), &head, std::min<std::size_t>(size, sizeof head));
    Hostile_Message(messageID, body.get(), size);
  }
};

constexpr std::uint32_t kBroadcastWord = 0x35240;
constexpr std::uint32_t kSizes[] = {0, 1, 2, 3, 11, 12, 27, 28, 29, 40, 8220, 8221, 70000};
constexpr std::uint32_t kAnnounced[] = {
    0, 1, 2, 12, 8191, 8192, 8193, 0x7FFFFFFF, 0x80000000, 0xFFFFFFE3, 0xFFFFFFE4, 0xFFFFFFEF, 0xFFFFFFF0, 0xFFFFFFFF};

TEST_F(BodiesTest, NothingIsReadThatABodyDoesNotHold) {
  for (const std::uint32_t size : kSizes) {
    for (const std::uint32_t announced : kAnnounced) {
      for (const std::uint32_t word : {kBroadcastWord, 0x38240u, 0xFF0B8241u}) {
        deliver(KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, 0, word, announced, size);
      }
    }
  }
}

TEST_F(BodiesTest, ABroadcastIsHandedOnIfItsBodyIsWholeAndOnlyThen) {
  std::uint32_t whole = 0;
  for (const std::uint32_t size : kSizes) {
    for (const std::uint32_t announced : kAnnounced) {
      deliver(KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, 0, kBroadcastWord, announced, size);
      if (size >= 28 && announced <= size - 28) ++whole;
    }
  }
  EXPECT_TRUE(Returns([whole] {
    while (gClients[0].calls < whole) std::this_thread::yield();
  }));
  EXPECT_EQ(gClients[0].calls, whole);
}

TEST_F(BodiesTest, RowsThatAreFreeOrDoNotExistAreRefused) {
  for (const std::uint32_t row : {1u, 14u, 15u, 16u, 17u, 254u, 255u, 256u, 0x7FFFu, 0xFFFFu}) {
    for (const std::uint32_t size : kSizes) {
      deliver(KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, row, kBroadcastWord, 0, size);
    }
  }
}

TEST_F(BodiesTest, MessagesOfOtherIdsAreNotEvenLookedAt) {
  for (const std::uint32_t messageID : {0u, 1u, 1000u, 1001u, 1002u, 1004u, 0xFFFFFFFFu}) {
    Hostile_Message(messageID, nullptr, 0);
    Hostile_Message(messageID, nullptr, 0xFFFFFFFF);
  }
}

TEST_F(BodiesTest, AMessageWithoutABodyIsDropped) {
  for (const std::uint32_t size : {0u, 1u, 28u, 0xFFFFFFFFu}) {
    Hostile_Message(KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, nullptr, size);
  }
}

TEST_F(BodiesTest, AnEventOfNoMeaningNeedsNoReason) {
  for (const std::uint32_t event : {1u, 2u, 17u, 0xFFFFFFFFu}) Hostile_Event(event, nullptr);
}

TEST_F(BodiesTest, TheLinkMayBeLostManyTimesFromTwoThreads) {
  const auto lose = [] {
    for (const std::uint32_t reason : {17u, 0u, 1u, 18u, 0xFFFFFFFFu}) {
      for (int i = 0; i < 20; ++i) Hostile_Event(L5_EVENT_DISCONNECTED, &reason);
    }
  };
  std::thread other(lose);
  lose();
  other.join();
}

}  // namespace
}  // namespace kel::test
