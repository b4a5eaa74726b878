// SPDX-License-Identifier: MIT
// When the dump files are written.
#include "dumps/dump_test.h"
#include "engine/IncomingData.h"

namespace kel::test {

struct InitializedOf {
  friend auto memberOf(InitializedOf);
};
template struct OpenMember<InitializedOf, &BrelEngine::mInitialized>;

namespace {

using DumpOccasion = DumpTest;

TEST_F(DumpOccasion, IsARequestThatNobodyAnswers) {
  dumpAll("RxWaitTimeout=0\n");
  const std::uint32_t handle = start();
  DropRequests(kDebugValTui);
  EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).status, kStatusFailed);
  EXPECT_EQ(RawFile(kRequestPayloadDump), ValDump(1, 2, 3));
  EXPECT_FALSE(folder.has(kResponseDump));
  EXPECT_FALSE(folder.has(kResponsePayloadDump));
}

TEST_F(DumpOccasion, IsARequestThatWantsNoResponse) {
  const std::uint32_t handle = startDumpingAll();
  EXPECT_EQ(Invoke(handle, kDebugRef, "quiet", 5, 0x12345678, 0).status, kStatusOk);
  EXPECT_EQ(RawFile(kRequestDump), StructDump(kDebugRefTui, 0, 0x12345678, "quiet"));
}

TEST_F(DumpOccasion, IsNoRequestThatWasNotSent) {
  const std::uint32_t handle = startDumpingAll();
  SluiceHubSimRule refuse = RuleFor(0);
  refuse.L4status = 1;
  AddRule(refuse);
  EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).status, 14u);
  for (const char* name : kDumps) EXPECT_FALSE(folder.has(name)) << name;
}

TEST_F(DumpOccasion, IsAFixedTask) {
  const std::uint32_t handle = startDumpingAll();
  EXPECT_EQ(BrelSetTraceFilePath(handle, "path"), kStatusOk);
  EXPECT_EQ(RawFile(kRequestPayloadDump), RefDump(std::string("path\0", 5)));
  EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(0, 0, 0));
}

// ---------------------------------------------------------------------------------------------------------------------
// Responses that go to callbacks. A dump comes before its callback.
// ---------------------------------------------------------------------------------------------------------------------

Noted<std::uint32_t> gCalled;

void NoteResponse(std::uint32_t, std::uint32_t, std::uint32_t sequenceByte, std::uint32_t, void*, std::uint32_t,
                  std::uint32_t) {
  gCalled.add(sequenceByte);
}

void NoteStream(std::uint32_t, std::uint32_t, std::uint32_t sequenceByte, std::uint32_t, std::uint32_t, void*,
                std::uint32_t, std::uint32_t) {
  gCalled.add(sequenceByte);
}

void NoteBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
  gCalled.add(0);
}

TEST_F(DumpOccasion, IsAnAsynchronousResponseWithItsErrorTakenOut) {
  const std::uint32_t handle = startDumpingAll();
  SluiceHubSimRule rule = RuleFor(kDebugRefTui);
  rule.errorCode = 7;
  AddRule(rule);
  // A waiting client's has it still.
  EXPECT_EQ(invokeRef(handle, "waiting").status, kStatusOk);
  EXPECT_EQ(RawFile(kResponseDump), StructDump(kDebugRefTui, 7, kDebugRefTui & 0xFFFF00, "waiting"));
  std::uint32_t seqNum = 0;
  EXPECT_EQ(BrelInvokeAsyncTask(handle, kDebugRef, 1, "called", 6, 0, 1, &seqNum, NoteResponse, nullptr), kStatusOk);
  ASSERT_EQ(gCalled.waitFor(1).size(), 1u);
  EXPECT_EQ(RawFile(kRequestDump), RequestDumpOf(kDebugRefTui, "called", 1));
  EXPECT_EQ(RawFile(kResponseDump), ResponseDumpOf(kDebugRefTui, "called", 1));
  EXPECT_EQ(RawFile(kResponsePayloadDump), RefDump("called"));
}

TEST_F(DumpOccasion, IsATimeOutWithItsErrorRecord) {
  dumpAll("RxWaitTimeout=10\n");
  const std::uint32_t handle = start();
  DropRequests(0);
  std::uint32_t seqNum = 0;
  EXPECT_EQ(BrelInvokeAsyncTask(handle, kDebugVal, 1, nullptr, 0, 0, 1, &seqNum, NoteResponse, nullptr), kStatusOk);
  ASSERT_EQ(gCalled.waitFor(1).size(), 1u);
  EXPECT_EQ(RawFile(kResponseDump), StructDump(kDebugValTui, 2, 0, ""));
  EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(0, 0, 0));
}

TEST_F(DumpOccasion, IsEachMessageOfAStream) {
  const std::uint32_t handle = startDumpingAll();
  const std::uint32_t streamer = 0x38243;
  AddRule(RuleFor(streamer, SLUICEHUBSIM_STREAM | SLUICEHUBSIM_NO_END));
  std::uint32_t seqNum = 0;
  EXPECT_EQ(BrelInvokeAsyncTask(handle, "TASK_ID_APPLICATION_DEBUG_STREAMER", 1, nullptr, 0, 0, 1, &seqNum,
                                NoteResponse, NoteStream),
            kStatusOk);
  ASSERT_EQ(gCalled.waitFor(1).size(), 1u);
  std::size_t called = 1;
  for (const std::uint32_t word : {64u << 24 | streamer, 128u << 24 | streamer}) {
    SluiceHubSim_DeliverRecord(0, word, 0, 0x5A, "\1\0\0\0\2\0\0\0\3\0\0\0", 12, 1);
    ASSERT_EQ(gCalled.waitFor(++called).size(), called);
    EXPECT_EQ(RawFile(kResponseDump), StructDump(word, 0, 0x5A, Bytes({1, 2, 3})));
    EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(1, 2, 3));
  }
}

TEST_F(DumpOccasion, IsABroadcast) {
  dumpAll();
  start(NoteBroadcast);
  SluiceHubSim_Broadcast(0, kDebugRefTui, 0x5A, "to all", 6, 1);
  ASSERT_EQ(gCalled.waitFor(1).size(), 1u);
  const std::uint32_t word = (kDebugRefTui & ~0xF000u) | 0x5000;
  EXPECT_EQ(RawFile(kResponseDump), StructDump(word, 0, 0x5A, "to all"));
  EXPECT_EQ(RawFile(kResponsePayloadDump), RefDump("to all"));
  EXPECT_FALSE(folder.has(kRequestDump));
}

TEST_F(DumpOccasion, IsABroadcastThatNobodyTakes) {
  const std::uint32_t handle = startDumpingAll();
  const std::vector<std::uint8_t> record = Record(0xB5241, 0, 0, "to nobody");
  EXPECT_EQ(ProcessBroadcastData(handle, record.data(), static_cast<std::uint32_t>(record.size())), 1u);
  EXPECT_EQ(RawFile(kResponseDump), StructDump(0xB5241, 0, 0, "to nobody"));
  EXPECT_EQ(RawFile(kResponsePayloadDump), RefDump("to nobody"));
}

TEST_F(DumpOccasion, IsABroadcastOfAnEngineThatIsNotUp) {
  dumpAll();
  const std::uint32_t handle = start(NoteBroadcast);
  auto& initialized = (*GetBrelInst(handle)).*memberOf(InitializedOf{});
  initialized = false;
  const std::vector<std::uint8_t> record = Record(0xB5241, 0, 0, "too early");
  EXPECT_EQ(ProcessBroadcastData(handle, record.data(), static_cast<std::uint32_t>(record.size())), 1u);
  EXPECT_EQ(RawFile(kResponsePayloadDump), RefDump("too early"));
  initialized = true;
}

}  // namespace
}  // namespace kel::test
