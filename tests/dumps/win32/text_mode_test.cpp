// SPDX-License-Identifier: MIT
// A text file here has a carriage return ahead of each line feed, also of those that are bytes of a record.
#include "dumps/dump_test.h"

namespace kel::test {
namespace {

using TextModeTest = DumpTest;

TEST_F(TextModeTest, TurnsEachLineFeedIntoTwoBytesAndTheCountStays) {
  const std::uint32_t handle = startDumpingAll();
  EXPECT_EQ(invokeRef(handle, "a\nb\r\n").status, kStatusOk);
  EXPECT_EQ(RawFile(kResponsePayloadDump), "REF\r\n5\r\na\r\nb\r\r\n");
  EXPECT_EQ(RawFile(kResponseDump), std::string("21\r\n\x41\x82\x0B\0\0\0\0\0\0\x82\x0B\0\5\0\0\0a\r\nb\r\r\n", 27));
}

TEST_F(TextModeTest, DoesSoWithTheWordsOfTheHeadToo) {
  const std::uint32_t handle = startDumpingAll();
  EXPECT_EQ(invokeRef(handle, "ten bytes.").status, kStatusOk);
  EXPECT_EQ(RawFile(kResponseDump), std::string("26\r\n\x41\x82\x0B\0\0\0\0\0\0\x82\x0B\0\r\n\0\0\0ten bytes.", 31));
}

}  // namespace
}  // namespace kel::test
