// SPDX-License-Identifier: MIT
// What the dump files hold.
#include <thread>

#include "dumps/dump_test.h"
#include "engine/IncomingData.h"

namespace kel::test {
namespace {

using DumpContent = DumpTest;

TEST_F(DumpContent, IsTheWholeRecordAndItsPayloadInReadableForm) {
  const std::uint32_t handle = startDumpingAll();
  EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).status, kStatusOk);
  EXPECT_EQ(RawFile(kRequestDump), RequestDumpOf(kDebugValTui, Bytes({1, 2, 3})));
  EXPECT_EQ(RawFile(kRequestPayloadDump), ValDump(1, 2, 3));
  EXPECT_EQ(RawFile(kResponseDump), ResponseDumpOf(kDebugValTui, Bytes({1, 2, 3})));
  EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(1, 2, 3));
}

TEST_F(DumpContent, OfARecordOnDiskBeginsWithItsSizeInDecimal) {
  InvokeVal(startDumpingAll(), {1, 2, 3});
  EXPECT_EQ(ReadText(kRequestDump).substr(0, 3), "28\n");
  EXPECT_EQ(ReadText(kRequestPayloadDump), "VAL\n1\n2\n3\n");
}

TEST_F(DumpContent, ShowsValuesWithTheirSign) {
  const std::uint32_t handle = startDumpingAll();
  InvokeVal(handle, {0xFFFFFFFF, 0x80000000, 0x7FFFFFFF});
  EXPECT_EQ(RawFile(kRequestPayloadDump), ValDump(-1, -0x7FFFFFFF - 1, 0x7FFFFFFF));
  EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(-1, -0x7FFFFFFF - 1, 0x7FFFFFFF));
}

TEST_F(DumpContent, OfAReferenceIsItsSizeAndItsBytes) {
  const std::uint32_t handle = startDumpingAll();
  const std::string bytes("line\n\r\n\x1A\0\xFF\n", 11);
  EXPECT_EQ(invokeRef(handle, bytes).payload, bytes);
  EXPECT_EQ(RawFile(kRequestDump), RequestDumpOf(kDebugRefTui, bytes));
  EXPECT_EQ(RawFile(kRequestPayloadDump), RefDump(bytes));
  EXPECT_EQ(RawFile(kResponseDump), ResponseDumpOf(kDebugRefTui, bytes));
  EXPECT_EQ(RawFile(kResponsePayloadDump), RefDump(bytes));
}

TEST_F(DumpContent, OfAnEmptyReferenceIsASizeOfZero) {
  const std::uint32_t handle = startDumpingAll();
  EXPECT_EQ(Invoke(handle, kDebugRef, nullptr, 0).status, kStatusOk);
  EXPECT_EQ(RawFile(kRequestDump), RequestDumpOf(kDebugRefTui, ""));
  EXPECT_EQ(RawFile(kRequestPayloadDump), RefDump(""));
  EXPECT_EQ(RawFile(kResponsePayloadDump), RefDump(""));
  EXPECT_EQ(ReadText(kRequestPayloadDump), "REF\n0\n");
}

TEST_F(DumpContent, OfARecordBeyondTheCapacityIsWhole) {
  const std::uint32_t handle = startDumpingAll();
  const std::string bytes(20'000, 'r');
  EXPECT_EQ(invokeRef(handle, bytes).payload, bytes);
  EXPECT_EQ(RawFile(kRequestDump), RequestDumpOf(kDebugRefTui, bytes));
  EXPECT_EQ(RawFile(kResponseDump), ResponseDumpOf(kDebugRefTui, bytes));
  EXPECT_EQ(RawFile(kResponsePayloadDump), RefDump(bytes));
}

TEST_F(DumpContent, OfARequestWithMoreThanThreeValuesShowsThree) {
  const std::uint32_t handle = startDumpingAll();
  const std::uint32_t values[] = {1, 2, 3, 4};
  EXPECT_EQ(Invoke(handle, kDebugVal, values, sizeof values).status, kStatusOk);
  EXPECT_EQ(RawFile(kRequestDump),
            RequestDumpOf(kDebugValTui, std::string(reinterpret_cast<const char*>(values), sizeof values)));
  EXPECT_EQ(RawFile(kRequestPayloadDump), ValDump(1, 2, 3));
}

TEST_F(DumpContent, OfARequestWithFewerThanThreeValuesBeginsWithThem) {
  const std::uint32_t handle = startDumpingAll();
  const std::uint32_t values[] = {1, 2};
  EXPECT_EQ(Invoke(handle, kDebugVal, values, sizeof values).status, kStatusOk);
  EXPECT_EQ(RawFile(kRequestPayloadDump), ValDump(1, 2, 0));
}

TEST_F(DumpContent, OfACallersRecordThatEndsWithAShortPayloadShowsMissingBytesAsZero) {
  const std::uint32_t handle = startDumpingAll();
  std::vector<std::uint8_t> record = Record(kDebugValTui, 0, 0, Bytes({1, 0x01020304, 3}).substr(0, 6));
  record.shrink_to_fit();
  task* response = nullptr;
  std::uint32_t size = 0;
  EXPECT_EQ(BrelIssueCommand(handle, 1, reinterpret_cast<task*>(record.data()), &response, &size, nullptr), kStatusOk);
  EXPECT_EQ(RawFile(kRequestPayloadDump), ValDump(1, 0x0304, 0));
}

TEST_F(DumpContent, OfAShortBroadcastShowsMissingBytesAsZero) {
  const std::uint32_t handle = startDumpingAll();
  const std::vector<std::uint8_t> record = Record(0x35240, 0, 0, Bytes({7, 8, 9}).substr(0, 8));
  EXPECT_EQ(ProcessBroadcastData(handle, record.data(), static_cast<std::uint32_t>(record.size())), 1u);
  EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(7, 8, 0));
}

TEST_F(DumpContent, OfAShortResponseShowsMissingBytesAsZero) {
  const std::uint32_t handle = startDumpingAll();
  answerWith(0, "");
  InvokeVal(handle, {1, 2, 3});
  EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(0, 0, 0));
  answerWith(0, Bytes({4, 5, 6}).substr(0, 4));
  InvokeVal(handle, {1, 2, 3});
  EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(4, 0, 0));
  answerWith(0, Bytes({4, 0x01020304, 6}).substr(0, 6));
  InvokeVal(handle, {1, 2, 3});
  EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(4, 0x0304, 0));
  answerWith(0, Bytes({4, 5, 6}) + "more");
  InvokeVal(handle, {1, 2, 3});
  EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(4, 5, 6));
}

TEST_F(DumpContent, GoesByTheTypeOfTheRecordAndNotOfTheTask) {
  const std::uint32_t handle = startDumpingAll();
  answerWith(1, "text");
  InvokeVal(handle, {1, 2, 3});
  EXPECT_EQ(RawFile(kRequestPayloadDump), ValDump(1, 2, 3));
  EXPECT_EQ(RawFile(kResponsePayloadDump), RefDump("text"));
}

class UnknownType : public DumpTest, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(UnknownType, GivesAnEmptyPayloadDumpAndTheWholeRecord) {
  dumpAll("LogToConsole=1\n");
  std::uint32_t handle = kNoBrelHandle;
  recorder.of([&] { handle = start(); });
  answerWith(GetParam(), "payload");
  const std::uint32_t TUI = (kDebugValTui & ~0x180000u) | GetParam() << 19;
  std::vector<std::uint8_t> record = Record(TUI, 1, 0, "request");
  task* response = nullptr;
  std::uint32_t size = 0;
  const Transcript said = recorder.of([&] {
    EXPECT_EQ(BrelIssueCommand(handle, 1, reinterpret_cast<task*>(record.data()), &response, &size, nullptr),
              kStatusOk);
  });
  std::free(response);
  EXPECT_EQ(RawFile(kRequestDump), RequestDumpOf(TUI, "request"));
  EXPECT_EQ(RawFile(kResponseDump), ResponseDumpOf(TUI, "payload"));
  EXPECT_TRUE(folder.has(kRequestPayloadDump));
  EXPECT_EQ(RawFile(kRequestPayloadDump), "");
  EXPECT_TRUE(folder.has(kResponsePayloadDump));
  EXPECT_EQ(RawFile(kResponsePayloadDump), "");
  // And not a word about it.
  EXPECT_EQ(said, Transcript()
                      .assigned(0)
                      .info("IssueCommandBase", "assigned sequence number 0 \n")
                      .sentAndAnswered("IssueCommandBase", 0)
                      .answerTaken("IssueCommandBase", 0)
                      .info("IssueCommandBase", "response received from Dorv \n"));
}

INSTANTIATE_TEST_SUITE_P(Types, UnknownType, ::testing::Values(2u, 3u));

TEST_F(DumpContent, IsTheLatestRecordAlone) {
  const std::uint32_t handle = startDumpingAll();
  invokeRef(handle, "the longer one of the two");
  invokeRef(handle, "the shorter");
  EXPECT_EQ(RawFile(kRequestDump), RequestDumpOf(kDebugRefTui, "the shorter", 1));
  EXPECT_EQ(RawFile(kRequestPayloadDump), RefDump("the shorter"));
  EXPECT_EQ(RawFile(kResponseDump), ResponseDumpOf(kDebugRefTui, "the shorter", 1));
  EXPECT_EQ(RawFile(kResponsePayloadDump), RefDump("the shorter"));
}

TEST_F(DumpContent, IsWhereverItsNamePoints) {
  std::filesystem::create_directory(folder.path() / "dumps of today");
  folder.writeSettings("ResponseStructPayloadDumpFilename=dumps of today/response.txt\n");
  InvokeVal(start(), {1, 2, 3});
  EXPECT_EQ(RawFile("dumps of today/response.txt"), ValDump(1, 2, 3));
}

class OneDump : public DumpTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(OneDump, IsWrittenAlone) {
  InvokeVal(startDumping({GetParam()}), {1, 2, 3});
  for (const char* name : kDumps) EXPECT_EQ(folder.has(name), name == std::string(GetParam())) << name;
}

INSTANTIATE_TEST_SUITE_P(Dumps, OneDump, ::testing::ValuesIn(kDumps));

TEST_F(DumpContent, IsSomeRecordsOrAMixWhereSeveralThreadsWrite) {
  const std::uint32_t handle = startDumpingAll();
  std::vector<std::thread> clients;
  for (std::uint32_t client = 0; client < 4; ++client) {
    clients.emplace_back([=] {
      for (std::uint32_t i = 0; i < 50; ++i) EXPECT_EQ(InvokeVal(handle, {client, i, 0}).status, kStatusOk);
    });
  }
  for (std::thread& client : clients) client.join();
  for (const char* name : kDumps) EXPECT_TRUE(folder.has(name)) << name;
}

}  // namespace
}  // namespace kel::test
