// SPDX-License-Identifier: MIT
// The check of a client's file by an engine that came up without version control, and by one that has it.
#include <thread>

#include "versioning/versioning_test.h"

namespace kel::test {
namespace {

using ValidateTest = VersioningTest;

TEST_F(ValidateTest, WithAPathFetchesTheUidsAndPasses) {
  tellAll();
  const std::uint32_t handle = start();
  ReportUids({kBuiltInUID, 0, 0, 0});
  const Transcript said = recorder.of([&] { EXPECT_EQ(ClientFile().validate(handle, "vectors"), kStatusOk); });
  EXPECT_EQ(said, fetched());
}

TEST_F(ValidateTest, FetchesTheUidsAnewEachTime) {
  const std::uint32_t handle = start();
  for (std::uint64_t call = 1; call <= 3; ++call) {
    EXPECT_EQ(ClientFile().validate(handle, "vectors"), kStatusOk);
    EXPECT_EQ(Requests(), call);
  }
}

TEST_F(ValidateTest, AsksForTheUidsWithThreeZeroValues) {
  const std::uint32_t handle = start();
  EXPECT_EQ(ClientFile().validate(handle, "vectors"), kStatusOk);
  const WireTask request = LastRequest();
  EXPECT_EQ(request.TUI, kUidsTui);
  EXPECT_EQ(request.responseExpected, 1u);
  EXPECT_EQ(request.payloadSize, 12u);
  const std::vector<std::uint8_t> message = LastMessage();
  EXPECT_EQ(std::vector<std::uint8_t>(message.end() - 12, message.end()), std::vector<std::uint8_t>(12));
}

TEST_F(ValidateTest, WithoutAPathIsRefusedAndNothingIsSent) {
  tellAll();
  const std::uint32_t handle = start();
  const Transcript said = recorder.of([&] { EXPECT_EQ(ClientFile().validate(handle, nullptr), 23u); });
  EXPECT_EQ(said, Transcript());
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(ValidateTest, TheRefusalOfANullPathComesBeforeThatOfAName) {
  const std::uint32_t handle = start();
  EXPECT_EQ(BrelValidateVersion(handle, nullptr, nullptr, 0, nullptr, nullptr), 23u);
}

TEST_F(ValidateTest, AnEmptyPathIsAPath) {
  const std::uint32_t handle = start();
  EXPECT_EQ(ClientFile().validate(handle, ""), kStatusOk);
}

// ---------------------------------------------------------------------------------------------------------------------
// UIDs that cannot be had
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ValidateTest, FailsIfTheTaskIsRefused) {
  tellAll();
  const std::uint32_t handle = start();
  RefuseUids();
  const Transcript said = recorder.of([&] { EXPECT_EQ(ClientFile().validate(handle, "vectors"), 24u); });
  EXPECT_EQ(said, notFetched(asked().refused("IssueCommandBase").freed(0)));
}

TEST_F(ValidateTest, FailsIfNoAnswerComesInTime) {
  tellAll(10);
  const std::uint32_t handle = start();
  DropRequests(kUidsTui);
  const Transcript said = recorder.of([&] { EXPECT_EQ(ClientFile().validate(handle, "vectors"), 24u); });
  EXPECT_EQ(said, notFetched(asked()
                                 .sent("IssueCommandBase")
                                 .waited("error", "IssueCommandBase",
                                         "WAIT_TIMEOUT exceeded while waiting for Rx from Dorv. \n")));
}

TEST_F(ValidateTest, FailsIfTheTableHasNoSuchTask) {
  folder.write("KEL_ALLTASKS.csv", "ANOTHER_TASK,  0, 0, KEL_TRACE, 1, REF, 614400, 0x96000\n");
  tellAll();
  const std::uint32_t handle = start();
  const Transcript said = recorder.of([&] { EXPECT_EQ(ClientFile().validate(handle, "vectors"), 24u); });
  EXPECT_EQ(said, notFetched(Transcript().error("InvokeTask", "could not find TUI \n")));
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(ValidateTest, FailsIfAllUidsAreZero) {
  tellAll();
  const std::uint32_t handle = start();
  ReportUids({0, 0, 0, 0});
  const Transcript said = recorder.of([&] { EXPECT_EQ(ClientFile().validate(handle, "vectors"), 24u); });
  EXPECT_EQ(said, fetchedNone(fetched()));
}

TEST_F(ValidateTest, TakesWordsThatTheAnswerDoesNotHaveForZero) {
  const std::uint32_t handle = start();
  AnswerUids("");
  EXPECT_EQ(ClientFile().validate(handle, "vectors"), 24u);
  AnswerUids(Words({0, 0, 0}));
  EXPECT_EQ(ClientFile().validate(handle, "vectors"), 24u);
  AnswerUids(Words({0, 0, 0, 0, 7}));  // the fifth is none of the four
  EXPECT_EQ(ClientFile().validate(handle, "vectors"), 24u);
  AnswerUids(std::string("\0\0\0\0\7", 5));
  EXPECT_EQ(ClientFile().validate(handle, "vectors"), kStatusOk);
}

TEST_F(ValidateTest, TakesUidsInAnAnswerOfAnyType) {
  const std::uint32_t handle = start();
  AnswerUids(Words({7, 0, 0, 0}), 1);
  EXPECT_EQ(ClientFile().validate(handle, "vectors"), kStatusOk);
}

// ---------------------------------------------------------------------------------------------------------------------
// The file's name
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ValidateTest, ANullNameHasNoFileName) {
  const std::uint32_t handle = start();
  EXPECT_EQ(BrelValidateVersion(handle, nullptr, "", 0, nullptr, "vectors"), 20u);
  EXPECT_EQ(Requests(), 1u);  // the UIDs come first
}

TEST_F(ValidateTest, ANameThatEndsInASeparatorHasNoFileNameAndIsCut) {
  tellAll();
  const std::uint32_t handle = start();
  ReportUids({7, 0, 0, 0});
  ClientFile file;
  file.name = "C:\\versions\\";
  const Transcript said = recorder.of([&] { EXPECT_EQ(file.validate(handle, "vectors"), 20u); });
  EXPECT_EQ(said, fetched());
  EXPECT_STREQ(file.name.c_str(), "C:\\versions");
  // And what is left is a name.
  EXPECT_EQ(file.validate(handle, "vectors"), kStatusOk);
}

TEST_F(ValidateTest, AnEmptyNameIsOne) {
  const std::uint32_t handle = start();
  ClientFile file;
  file.name = "";
  EXPECT_EQ(file.validate(handle, "vectors"), kStatusOk);
}

TEST_F(ValidateTest, TheFileAndTheVersionMayBeNull) {
  const std::uint32_t handle = start();
  char name[] = "Statistics.bm";
  EXPECT_EQ(BrelValidateVersion(handle, name, nullptr, 4711, nullptr, "vectors"), kStatusOk);
}

TEST_F(ValidateTest, SeveralChecksAtOnceDoNotDisturbEachOther) {
  const std::uint32_t handle = start();
  std::vector<std::thread> clients;
  for (int client = 0; client < 4; ++client) {
    clients.emplace_back([handle] {
      for (int i = 0; i < 50; ++i) EXPECT_EQ(ClientFile().validate(handle, "vectors"), kStatusOk);
    });
  }
  for (std::thread& client : clients) client.join();
}

// ---------------------------------------------------------------------------------------------------------------------
// With version control
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ValidateTest, AfterAnActivationNeedsNeitherAPathNorTheUidsAgain) {
  std::uint32_t handle = kNoBrelHandle;
  ASSERT_EQ(activate(&handle), kStatusOk);
  EXPECT_EQ(Requests(), 1u);
  RefuseUids();
  EXPECT_EQ(ClientFile().validate(handle, nullptr), kStatusOk);
  EXPECT_EQ(ClientFile().validate(handle, "vectors"), kStatusOk);
  EXPECT_EQ(Requests(), 1u);
}

TEST_F(ValidateTest, AfterAnActivationStillNeedsAName) {
  std::uint32_t handle = kNoBrelHandle;
  ASSERT_EQ(activate(&handle, "vectors"), kStatusOk);
  ClientFile file;
  file.name = "versions/";
  EXPECT_EQ(file.validate(handle, nullptr), 20u);
  EXPECT_STREQ(file.name.c_str(), "versions");
}

TEST_F(ValidateTest, APathThatWasGivenWithoutActivationIsForgotten) {
  std::uint32_t handle = kNoBrelHandle;
  ASSERT_EQ(BrelInit(&handle, nullptr, 0, "vectors", nullptr, nullptr), kStatusOk);
  EXPECT_EQ(Requests(), 0u);
  EXPECT_EQ(ClientFile().validate(handle, nullptr), 23u);
}

}  // namespace
}  // namespace kel::test
