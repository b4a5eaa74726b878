// SPDX-License-Identifier: MIT
// Clients that come and go under deliveries that never end: every call returns, every connection can be closed, nobody
// is called once it is, and no delivery is left inside the library.
#include <vector>

#include "hostile/hostile_client.h"

namespace kel::test {
namespace {

class RoundsTest : public HostileTest {
 protected:
  /// All clients at once, each in rounds of its own: connects, does its work, disconnects.
  template <class Work>
  static void inRounds(std::uint32_t clients, Work work) {
    EXPECT_TRUE(Returns([clients, work] {
      std::vector<std::thread> threads;
      for (std::uint32_t client = 0; client < clients; ++client) {
        threads.emplace_back([client, work] {
          for (Rounds rounds(3000); rounds.next();) {
            ASSERT_EQ(Connect(client), KEL_OK);
            work(client);
            ASSERT_EQ(Disconnect(client), KEL_OK);
          }
        });
      }
      for (std::thread& thread : threads) thread.join();
    })) << "a call did not return";
    for (std::uint32_t client = 0; client < clients; ++client) {
      EXPECT_EQ(gClients[client].lateCalls, 0u) << "calls of client " << client << " after its disconnect";
      EXPECT_NE(gClients[client].connections, 0u);
    }
    EXPECT_NE(Hostile_Deliveries(), 0u);
  }
};

// The one engine comes and goes, and with it all that exists only while there is one.
TEST_F(RoundsTest, BroadcastsPourOverOneConnectionThatComesAndGoes) {
  behave({.connecting = "BB", .disconnecting = "BB", .pouring = "B"});
  Hostile_Pour(3, kSeed);
  inRounds(1, [](std::uint32_t) {});
}

TEST_F(RoundsTest, AnswersToNobodyPourOverOneConnectionThatComesAndGoes) {
  behave({.connecting = "AO", .disconnecting = "AO", .pouring = "AMEUOSHRINLV"});
  Hostile_Pour(3, kSeed);
  inRounds(1, [](std::uint32_t) {});
}

TEST_F(RoundsTest, ConnectionsComeAndGoBesideOneAnother) {
  behave({.connecting = "BLAO", .disconnecting = "BLAO", .pouring = "BAMEUOSHRINLV"});
  Hostile_Pour(2, kSeed);
  inRounds(3, [](std::uint32_t) {});
}

TEST_F(RoundsTest, WaitingClientsGetAnswersOfEveryKindAtEveryMoment) {
  folder.writeSettings("RxWaitTimeout=100\n");
  behave({.before = "SHORUA", .after = "ABMEL", .disconnecting = "BAL", .pouring = "BAMEUOSHRINLV"});
  Hostile_Pour(2, kSeed);
  inRounds(3, [](std::uint32_t client) {
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(Ask(client), KEL_OK);
      EXPECT_EQ(Ask(client, false), KEL_OK);
    }
  });
}

// A refused task without an answer frees number 0, whoever has it. Here that is a task that waited in vain, if anybody.
TEST_F(RoundsTest, WaitingClientsAreRefusedAndLeftWithoutAnswers) {
  folder.writeSettings("RxWaitTimeout=5\n");
  behave({.after = "SHORL",
          .pouring = "BAMEUOSHRINLV",
          .refuses = HOSTILE_REFUSES_EXPECTANT | HOSTILE_REFUSES_OTHERS | HOSTILE_REFUSES_SOME});
  Hostile_Pour(2, kSeed);
  inRounds(3, [](std::uint32_t client) {
    for (int i = 0; i < 5; ++i) {
      Ask(client);
      Ask(client, false);
    }
  });
}

TEST_F(RoundsTest, TasksThatNobodyWaitsForAreAnsweredTwiceAndForOneAnother) {
  behave({.before = "SHA", .after = "ANBO", .disconnecting = "AOB", .pouring = "BAOSHRINLV"});
  Hostile_Pour(2, kSeed);
  inRounds(3, [](std::uint32_t client) {
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(AskAsync(client), KEL_OK);
      EXPECT_EQ(Ask(client), KEL_OK);
    }
  });
}

TEST_F(RoundsTest, StreamsEndBeforeTheyBeginAndGoOnAfterTheirEnd) {
  behave({.before = "EMA", .after = "MAEMEBS", .disconnecting = "MEA", .pouring = "BAMEOSHRINLV"});
  Hostile_Pour(2, kSeed);
  inRounds(3, [](std::uint32_t client) {
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(AskAsync(client, OnStream), KEL_OK);
      EXPECT_EQ(Ask(client, true, OnStream), KEL_OK);
      EXPECT_EQ(AskAsync(client, OnStream, false), KEL_OK);
    }
  });
}

TEST_F(RoundsTest, ConnectionsThatAreRefusedLeaveNothingOpen) {
  behave({.connecting = "BAOL", .disconnecting = "BAOL", .pouring = "BAMEUOL", .refuses = HOSTILE_REFUSES_SOCKETS});
  Hostile_Pour(2, kSeed);
  EXPECT_TRUE(Returns([] {
    for (Rounds rounds(3000); rounds.next();) {
      ASSERT_EQ(Connect(0), KEL_E_CONNECTION);
    }
  }));
  behave({.pouring = "BAMEUOL"});
  EXPECT_TRUE(Returns([] {
    ASSERT_EQ(Connect(0), KEL_OK);
    EXPECT_EQ(Disconnect(0), KEL_OK);
  }));
}

// Each wait is over before it has begun, also that of a thread whose task is still being sent.
TEST_F(RoundsTest, TasksThatMayNotWaitLeaveTheConnectionUsable) {
  folder.writeSettings("RxWaitTimeout=0\n");
  behave({.after = "A"});
  inRounds(3, [](std::uint32_t client) {
    for (int i = 0; i < 20; ++i) AskAsync(client);
  });
}

}  // namespace
}  // namespace kel::test
