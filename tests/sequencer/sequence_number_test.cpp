// SPDX-License-Identifier: MIT
// The arithmetic of the sequence byte.
#include "sequencer/SequenceNumber.h"

#include <gtest/gtest.h>

namespace kel::test {
namespace {

TEST(SequenceByte, KeepsTheNumberInItsLowSixBits) {
  for (std::uint32_t byte = 0; byte < 256; ++byte) EXPECT_EQ(GetCoreSeqNum(byte), byte % 64);
}

TEST(SequenceByte, KeepsTheClassInItsHighTwoBits) {
  for (std::uint32_t byte = 0; byte < 64; ++byte) EXPECT_EQ(GetSeqNumType(byte), 1u) << byte;
  for (std::uint32_t byte = 64; byte < 128; ++byte) EXPECT_EQ(GetSeqNumType(byte), 2u) << byte;
  for (std::uint32_t byte = 128; byte < 192; ++byte) EXPECT_EQ(GetSeqNumType(byte), 3u) << byte;
  for (std::uint32_t byte = 192; byte < 256; ++byte) EXPECT_EQ(GetSeqNumType(byte), 4u) << byte;
}

TEST(SequenceByte, OfC5IsNumberFiveOfAnUnknownClass) {
  EXPECT_EQ(GetCoreSeqNum(0xC5), 5u);
  EXPECT_EQ(GetSeqNumType(0xC5), SEQ_NUM_UNKNOWN);
}

TEST(SequenceByte, IsMadeFromANumberForEachClass) {
  EXPECT_EQ(GetAckSeqNum(63), 63u);
  EXPECT_EQ(GetStreamSeqNum(63), 127u);
  EXPECT_EQ(GetStreamEndSeqNum(63), 191u);
  EXPECT_EQ(GetAckSeqNum(0), 0u);
  EXPECT_EQ(GetStreamSeqNum(0), 64u);
  EXPECT_EQ(GetStreamEndSeqNum(0), 128u);
}

}  // namespace
}  // namespace kel::test
