// SPDX-License-Identifier: MIT
// A text file here has its bytes as they are; and a full disk is easily had.
#include "dumps/dump_test.h"

namespace kel::test {
namespace {

using TextModeTest = DumpTest;

TEST_F(TextModeTest, LeavesLineEndsAsTheyAre) {
  const std::uint32_t handle = startDumpingAll();
  EXPECT_EQ(invokeRef(handle, "a\nb\r\n").status, kStatusOk);
  EXPECT_EQ(RawFile(kResponsePayloadDump), "REF\n5\na\nb\r\n");
  EXPECT_EQ(RawFile(kResponseDump), std::string("21\n\x41\x82\x0B\0\0\0\0\0\0\x82\x0B\0\5\0\0\0a\nb\r\n", 24));
}

TEST_F(TextModeTest, OnAFullDiskFailsWithTheTaskGoingOn) {
  folder.writeSettings("RequestStructDumpFilename=/dev/full\nResponseStructPayloadDumpFilename=/dev/full\n");
  const std::uint32_t handle = start();
  AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));  // no other thread's lines between those of the request
  engineLog.fresh();
  EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).status, kStatusOk);
  const std::string log = engineLog.fresh();
  EXPECT_THAT(log, ::testing::HasSubstr(
                       EngineLog()
                           .error("DumpStruct", "Could not close DumpStruct file. \n")
                           .error("DumpRequestBuffer", "Error dumping to RequestStruct dump file: /dev/full \n")
                           .text()));
  EXPECT_THAT(log, ::testing::HasSubstr(EngineLog()
                                            .info("DumpStructPayload", "DumpStructPayload got a VAL call \n")
                                            .error("DumpStructPayload", "Could not close DumpStructPayload file. \n")
                                            .error("DumpResponseBuffer",
                                                   "Error dumping to ResponseStructPayload dump file: /dev/full \n")
                                            .text()));
}

}  // namespace
}  // namespace kel::test
