// SPDX-License-Identifier: MIT
// The adapter's calls of the pipe library, argument by argument, and the row's state at each of them.
#include <thread>

#include "adapter/adapter_test.h"

namespace kel::test {
namespace {

constexpr std::uint64_t kConnection = 0x8877665544332211;

/// A row's state, as far as a call of the pipe library can find it changed.
struct State {
  std::uint64_t L5Connection;
  std::uint8_t socketID;
  std::uint32_t disconnecting;
  bool operator==(const State&) const = default;
};

/// Takes the place of the pipe library's functions.
class PipeLibraryCalls : public Adapter {
 protected:
  PipeLibraryCalls() {
    handle = initRow();
    sTest = this;
    gL5DispatcherFunctions = &sFunctions;
  }
  ~PipeLibraryCalls() override { sTest = nullptr; }

  State state() const { return {row(handle).L5Connection, row(handle).socketID, row(handle).disconnecting}; }

  /// What a call does beyond what it notes.
  std::uint32_t connectStatus = 0;
  std::uint32_t tellReplySize = 0;  ///< 0: leaves it

  std::uint32_t handle;
  std::vector<std::string> calls;
  std::vector<State> states;

 private:
  void note(const char* call) {
    calls.push_back(call);
    states.push_back(state());
  }

  static std::uint32_t L5Connect(void* null, L5MessagesHandler messages, L5EventHandler events, std::uint32_t* context,
                                 std::uint32_t zero, std::uint64_t* connection) {
    sTest->note("L5Connect");
    EXPECT_EQ(null, nullptr);
    EXPECT_EQ(messages, Dorv_MessagesHandler);
    EXPECT_EQ(events, Dorv_EventHandler);
    EXPECT_EQ(context, &row(sTest->handle).handle);
    EXPECT_EQ(*context, sTest->handle);
    EXPECT_EQ(zero, 0u);
    EXPECT_EQ(connection, &row(sTest->handle).L5Connection);
    *connection = kConnection;
    return sTest->connectStatus;
  }
  static std::uint32_t L5Disconnect(std::uint64_t connection) {
    sTest->note("L5Disconnect");
    EXPECT_EQ(connection, kConnection);
    return 99;  // dropped
  }
  static std::uint32_t SendReceiveMessage(std::uint64_t connection, std::uint32_t agent, std::uint32_t messageID,
                                          const void* buffer, std::uint32_t size, std::uint32_t* replyID, void* reply,
                                          std::uint32_t* replySize) {
    EXPECT_EQ(connection, kConnection);
    EXPECT_NE(buffer, nullptr);
    switch (messageID) {
      case 1000:
        sTest->note("acquire");
        EXPECT_EQ(agent, 7u);
        EXPECT_EQ(size, 1u);
        EXPECT_EQ(*replyID, 0u);
        EXPECT_EQ(*replySize, 1u);
        *static_cast<std::uint8_t*>(reply) = 'A';
        *replyID = 1001;
        break;
      case 1002:
        sTest->note("release");
        EXPECT_EQ(agent, 7u);
        EXPECT_EQ(buffer, &row(sTest->handle).socketID);
        EXPECT_EQ(size, 1u);
        EXPECT_EQ(replyID, nullptr);
        EXPECT_EQ(reply, nullptr);
        EXPECT_EQ(replySize, nullptr);
        break;
      case 1:
        sTest->note("request");
        EXPECT_EQ(agent, 6u);
        EXPECT_EQ(*replyID, 0u);
        EXPECT_EQ(*replySize, 24u);
        EXPECT_EQ(Bytes(static_cast<std::uint8_t*>(reply), static_cast<std::uint8_t*>(reply) + 24), Bytes(24));
        if (sTest->tellReplySize != 0) *replySize = sTest->tellReplySize;
        break;
      default:
        ADD_FAILURE() << messageID;
    }
    return 0;
  }

  inline static PipeLibraryCalls* sTest = nullptr;
  inline static tL5DispatcherFunctions sFunctions = {nullptr, L5Connect, L5Disconnect, SendReceiveMessage};
};

TEST_F(PipeLibraryCalls, FindTheRowInTheStatesOfAConnectionsLife) {
  EXPECT_EQ(state(), (State{0, 255, 0}));
  EXPECT_EQ(Dorv_Connect(handle, "127.0.0.1", 1234), DORV_OK);
  EXPECT_EQ(state(), (State{kConnection, 'A', 0}));
  const task record{};
  EXPECT_EQ(Dorv_Send(handle, &record, sizeof record), DORV_OK);
  EXPECT_EQ(Dorv_Disconnect(handle), DORV_OK);
  EXPECT_EQ(state(), (State{0, 255, 1}));

  EXPECT_EQ(calls, (std::vector<std::string>{"L5Connect", "acquire", "request", "release", "L5Disconnect"}));
  EXPECT_EQ(
      states,
      (std::vector<State>{
          {0, 255, 0}, {kConnection, 255, 0}, {kConnection, 'A', 0}, {kConnection, 'A', 1}, {kConnection, 255, 1}}));
}

TEST_F(PipeLibraryCalls, ClearDisconnectingAheadOfANewConnection) {
  Dorv_Connect(handle, "127.0.0.1", 1234);
  Dorv_Disconnect(handle);
  states.clear();
  Dorv_Connect(handle, "127.0.0.1", 1234);
  EXPECT_EQ(states, (std::vector<State>{{0, 255, 0}, {kConnection, 255, 0}}));
}

TEST_F(PipeLibraryCalls, LeaveALinkAloneThatFailedWithAValue) {
  connectStatus = 5;
  EXPECT_EQ(Dorv_Connect(handle, "127.0.0.1", 1234), DORV_FAILED);
  EXPECT_EQ(calls, std::vector<std::string>{"L5Connect"});
  EXPECT_EQ(state(), (State{kConnection, 255, 0}));
}

TEST_F(PipeLibraryCalls, TellTheSizeOfAReplyForTheLogOnly) {
  Dorv_Connect(handle, "127.0.0.1", 1234);
  const task record{};
  for (const std::uint32_t size : {1u, 25u, 0xFFFFFFFFu}) {
    tellReplySize = size;
    log.fresh();
    EXPECT_EQ(Dorv_Send(handle, &record, sizeof record), DORV_OK);
    EXPECT_EQ(
        log.fresh(),
        RowInfo(0, "Dorv_Send", "Start. \n") +
            RowInfo(0, "Dorv_Send", "Sending KeL Request over L5 to L4msgProxy. L5sndBufferSize = 28 \n") +
            RowInfo(0, "Dorv_Send",
                    "SendReceiveMessage returned. L5Status: 0, L5rcvBuffer size: " + std::to_string(size) + "\n") +
            RowInfo(0, "Dorv_Send", "L4Status: 0\n"));
  }
}

/// What threads of all kinds do to the rows at once. The sanitizers watch.
TEST(AdapterRows, AreSharedByManyThreads) {
  const CoreProcess process;
  const std::uint32_t kept = Dorv_Init(Engine::onRecord, Engine::onAlert);
  ASSERT_EQ(Dorv_Connect(kept, "127.0.0.1", 1234), DORV_OK);
  constexpr int kRounds = 200;

  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) {
      const std::uint32_t handle = Dorv_Init(Engine::onRecord, Engine::onAlert);
      EXPECT_EQ(handle, 1u);
      EXPECT_EQ(Dorv_Connect(handle, "127.0.0.1", 1234), DORV_OK);
      EXPECT_EQ(Dorv_Finalize(handle), DORV_OK);
    }
  });
  threads.emplace_back([&] {
    const Bytes record = Wire().u32(0xB8241).u32(1).u32(0x050B8241).u32(0);
    for (int i = 0; i < kRounds; ++i) Dorv_Send(kept, reinterpret_cast<const task*>(record.data()), 16);
  });
  for (const std::uint16_t row : {std::uint16_t{0}, std::uint16_t{1}}) {
    threads.emplace_back([row] {
      const Bytes body = Wire().u16(row).bytes(Bytes(10)).u32(0xB8241).u32(0).u32(0).u32(0);
      std::uint32_t replyID = 0, replySize = 0;
      const std::uint32_t reason = 17;
      for (int i = 0; i < kRounds; ++i) {
        Dorv_MessagesHandler(0, 7, 1003, body.data(), static_cast<std::uint32_t>(body.size()), &replyID, nullptr,
                             &replySize, nullptr, nullptr);
        Dorv_EventHandler(0, 0, &reason, &gDorvInstances[row].handle);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(Dorv_Finalize(kept), DORV_OK);
  // The kept row has had the answer to each request, and what the handler was called with for it.
  EXPECT_GE(Engine::records().size(), static_cast<std::size_t>(kRounds));
}

}  // namespace
}  // namespace kel::test
