// SPDX-License-Identifier: MIT
// The task record: the words that open it, and how a request is built from a task's name and a payload.
#include "engine/engine_test.h"
#include "sequencer/SequenceNumber.h"

namespace kel::test {
namespace {

TEST(TaskRecordTest, AHeadIsFourWordsWithoutGaps) {
  EXPECT_EQ(sizeof(task), 16u);
  EXPECT_EQ(offsetof(task, TUI), 0u);
  EXPECT_EQ(offsetof(task, responseExpected), 4u);
  EXPECT_EQ(offsetof(task, errorCode), 4u);
  EXPECT_EQ(offsetof(task, seqTUI), 8u);
  EXPECT_EQ(offsetof(task, payloadSize), 12u);
  EXPECT_EQ(BREL_MAX_TASK_PAYLOAD, 8192u);
  EXPECT_EQ(BrelTaskRecordCapacity, 8208u);
}

TEST(TaskRecordTest, TheWordTellsIndexTargetTypeAndSequenceByte) {
  constexpr std::uint32_t kWord = 0xC5FB7FEB;
  EXPECT_EQ(GetTuiIndex(kWord), 0x0Bu);
  EXPECT_EQ(GetTuiTarget(kWord), 7u);
  EXPECT_EQ(GetTuiType(kWord), 3u);
  EXPECT_EQ(GetTuiSeqNum(kWord), 0xC5u);
  for (const auto& [word, target, type] : {std::array{614400u, 6u, 1u}, std::array{kDebugValTui, 8u, 0u},
                                           std::array{kDebugRefTui, 8u, 1u}, std::array{0x34161u, 4u, 0u}}) {
    EXPECT_EQ(GetTuiTarget(word), target);
    EXPECT_EQ(GetTuiType(word), type);
    EXPECT_EQ(GetTuiSeqNum(word), 0u);
  }
}

TEST(TaskRecordTest, TheTypeIsBitsNineteenAndTwentyAlone) {
  EXPECT_EQ(GetTuiType(0x80000), 1u);
  EXPECT_EQ(GetTuiType(0x100000), 2u);
  EXPECT_EQ(GetTuiType(0x180000), 3u);
  EXPECT_EQ(GetTuiType(0xFFE7FFFF), 0u);
}

TEST(TaskRecordTest, ASequenceByteReplacesWhatStoodThere) {
  EXPECT_EQ(MakeSeqTUI(0x34161, 3), 0x3034161u);
  EXPECT_EQ(MakeSeqTUI(0xFF034161, 0), 0x34161u);
  EXPECT_EQ(MakeSeqTUI(0xFFFFFFFF, static_cast<std::uint8_t>(0x1C5)), 0xC5FFFFFFu);
}

TEST(TaskRecordTest, ASequenceByteIsANumberAndAClass) {
  EXPECT_EQ(GetCoreSeqNum(0xC5), 5u);
  EXPECT_EQ(GetSeqNumType(0xC5), SEQ_NUM_UNKNOWN);
  for (std::uint32_t number = 0; number < 64; ++number) {
    EXPECT_EQ(GetSeqNumType(number), SEQ_NUM_ACK);
    EXPECT_EQ(GetSeqNumType(number | 64), SEQ_NUM_STREAM_MESSAGE);
    EXPECT_EQ(GetSeqNumType(number | 128), SEQ_NUM_STREAM_END);
    EXPECT_EQ(GetSeqNumType(number | 192), SEQ_NUM_UNKNOWN);
    EXPECT_EQ(GetAckSeqNum(number), number);
    EXPECT_EQ(GetStreamSeqNum(number), number | 64);
    EXPECT_EQ(GetStreamEndSeqNum(number), number | 128);
    for (const std::uint32_t seqClass : {0u, 64u, 128u, 192u}) EXPECT_EQ(GetCoreSeqNum(number | seqClass), number);
  }
}

/// A request as the device gets it: the 12 bytes of header, four words, the payload.
std::vector<std::uint8_t> Request(const std::vector<std::uint32_t>& words, const std::string& payload) {
  const std::uint32_t recordSize = 16 + static_cast<std::uint32_t>(payload.size());
  std::vector<std::uint8_t> body(12 + 16 + payload.size());
  body[0] = 0x02;
  body[1] = 0x26;
  body[2] = static_cast<std::uint8_t>(recordSize);
  body[3] = static_cast<std::uint8_t>(recordSize >> 8);
  std::memcpy(body.data() + 12, words.data(), 16);
  std::memcpy(body.data() + 28, payload.data(), payload.size());
  return body;
}

class RequestTest : public EngineTest {
 protected:
  /// What the device gets of a task that expects no response, and so keeps its sequence word.
  std::vector<std::uint8_t> sent(const char* name, const void* input, std::uint32_t inputSize) {
    EXPECT_EQ(Invoke(handle, name, input, inputSize, 0xAABBCCDD, 0).status, kStatusOk);
    return LastMessage();
  }

  const std::uint32_t handle = start();
};

TEST_F(RequestTest, AValTaskWithInputCarriesIt) {
  const Values values = {1, 0x80000000, 0xFFFFFFFF};
  EXPECT_EQ(sent(kDebugVal, values.data(), sizeof values), Request({kDebugValTui, 12, 0xAABBCCDD, 0}, Bytes(values)));
}

TEST_F(RequestTest, AValTaskWithoutInputCarriesThreeZeros) {
  EXPECT_EQ(sent(kDebugVal, nullptr, 0), Request({kDebugValTui, 12, 0xAABBCCDD, 0}, Bytes({0, 0, 0})));
}

TEST_F(RequestTest, ARefTaskWithoutInputCarriesNothing) {
  const auto body = sent(kDebugRef, nullptr, 0);
  EXPECT_EQ(body, Request({kDebugRefTui, 0, 0xAABBCCDD, 0}, ""));
  EXPECT_EQ(body.size(), 28u);
}

TEST_F(RequestTest, ASizeOfZeroIsNoInput) {
  EXPECT_EQ(sent(kDebugVal, "abc", 0), Request({kDebugValTui, 12, 0xAABBCCDD, 0}, Bytes({0, 0, 0})));
  EXPECT_EQ(sent(kDebugRef, "abc", 0), Request({kDebugRefTui, 0, 0xAABBCCDD, 0}, ""));
}

TEST_F(RequestTest, ANullInputIsNoInputWhateverItsSize) {
  EXPECT_EQ(sent(kDebugVal, nullptr, 5), Request({kDebugValTui, 12, 0xAABBCCDD, 0}, Bytes({0, 0, 0})));
  EXPECT_EQ(sent(kDebugRef, nullptr, 5), Request({kDebugRefTui, 0, 0xAABBCCDD, 0}, ""));
}

TEST_F(RequestTest, AValTaskKeepsTheCallersSize) {
  EXPECT_EQ(sent(kDebugVal, "12345", 5), Request({kDebugValTui, 5, 0xAABBCCDD, 0}, "12345"));
  const std::string longer(100, 'x');
  EXPECT_EQ(sent(kDebugVal, longer.data(), 100), Request({kDebugValTui, 100, 0xAABBCCDD, 0}, longer));
}

TEST_F(RequestTest, ATypeOtherThanOneIsBuiltAsVal) {
  // Types 2 and 3, which no shipped row has.
  folder.write("types.csv",
               "TYPE_2,  0, 18, X, 3, VAL, 1278528, 0x138240\r\n"
               "TYPE_3,  0, 18, X, 3, VAL, 1802816, 0x1b8240\r\n");
  std::uint32_t other = 0;
  ASSERT_EQ(BrelInit(&other, "types.csv", 0, nullptr, nullptr, nullptr), kStatusOk);
  AddRule(RuleFor(0, SLUICEHUBSIM_DATA));  // answers for tasks that the device does not know
  for (const auto& [name, tui] : {std::pair{"TYPE_2", 0x138240u}, std::pair{"TYPE_3", 0x1B8240u}}) {
    EXPECT_EQ(Invoke(other, name, nullptr, 0, 0xAABBCCDD, 0).status, kStatusOk);
    EXPECT_EQ(LastMessage(), Request({tui, 12, 0xAABBCCDD, 0}, Bytes({0, 0, 0})));
  }
}

TEST_F(RequestTest, WithAResponseExpectedTheSequenceByteReplacesTheCallersWordAndTheSocketItsLowByte) {
  const std::uint32_t second = start();  // with socket 1
  for (std::uint32_t seqNum = 0; seqNum < 3; ++seqNum) {
    EXPECT_EQ(Invoke(second, kDebugRef, "xyz", 3, 0xAABBCCDD, 1).payload, "xyz");
    const std::uint32_t seqTUI = seqNum << 24 | (kDebugRefTui & 0xFFFF00) | 1;
    EXPECT_EQ(LastMessage(), Request({kDebugRefTui, 3, seqTUI, 1}, "xyz"));
  }
}

TEST_F(RequestTest, AFlagThatIsNotOneGoesOutAsItIsAndWaitsForNothing) {
  const Answer answer = Invoke(handle, kDebugRef, "xyz", 3, 0xAABBCCDD, 2);
  EXPECT_EQ(answer.status, kStatusOk);
  EXPECT_TRUE(answer.written);
  EXPECT_FALSE(answer.hasPayload);
  EXPECT_EQ(LastMessage(), Request({kDebugRefTui, 3, 0xAABBCCDD, 2}, "xyz"));
}

class LargePayloadTest : public EngineTest, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(LargePayloadTest, IsCarriedWholeBothWays) {
  std::string payload(GetParam(), '\0');
  std::uint32_t state = GetParam();
  for (char& byte : payload) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  const std::uint32_t handle = start();
  const Answer answer = Invoke(handle, kDebugRef, payload.data(), GetParam());
  EXPECT_EQ(answer.status, kStatusOk);
  EXPECT_EQ(answer.payload.size(), payload.size());
  EXPECT_TRUE(answer.payload == payload);
  EXPECT_EQ(LastMessage(), Request({kDebugRefTui, GetParam(), kDebugRefTui & 0xFFFF00, 1}, payload));
  // The engine is none the worse for it.
  EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).payload, Bytes({1, 2, 3}));
}

INSTANTIATE_TEST_SUITE_P(Sizes, LargePayloadTest,
                         ::testing::Values(1u, 8191u, 8192u, 8193u, 8204u, 8205u, 8208u, 8220u, 8221u, 10000u, 16384u,
                                           65519u, 65520u, 65535u, 65536u));

}  // namespace
}  // namespace kel::test
