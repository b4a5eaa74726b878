// SPDX-License-Identifier: MIT
// The verbs with a device that is told to misbehave; what they do with one that works is in CMakeLists.txt.
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "SluiceHubSim.h"
#include "kelctl/kelctl_test.h"
#include "platform/platform.h"
#include "support/environment_variable.h"

namespace kelctl {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr std::uint32_t kEcho = 0x38240;
constexpr std::uint32_t kBroadcaster = 0x38242;
constexpr std::uint32_t kStreamer = 0x38243;
constexpr std::uint32_t kGetUids = 0x18100;

constexpr char kEchoName[] = "TASK_ID_APPLICATION_DEBUG_VAL";
constexpr char kStreamerName[] = "TASK_ID_APPLICATION_DEBUG_STREAMER";

SluiceHubSimRule RuleFor(std::uint32_t tui) {
  SluiceHubSimRule rule{};
  rule.tui = tui;
  rule.tuiMask = SLUICEHUBSIM_EXACT;
  return rule;
}

/// A device that does not answer a task, from the one behind the first `skip` on.
void Lose(std::uint32_t tui, std::uint32_t skip = 0, std::uint32_t times = 0) {
  SluiceHubSimRule rule = RuleFor(tui);
  rule.flags = SLUICEHUBSIM_DROP;
  rule.skip = skip;
  rule.times = times;
  SluiceHubSim_AddRule(&rule);
}

void Refuse(std::uint32_t tui, std::uint32_t times = 0) {
  SluiceHubSimRule rule = RuleFor(tui);
  rule.L4status = 5;
  rule.times = times;
  SluiceHubSim_AddRule(&rule);
}

class VerbsTest : public KelctlTest {
 protected:
  /// Runs a command line with Ctrl-C as soon as the device has got so many requests.
  std::string interrupted(std::uint32_t requests, const std::vector<std::string>& words) {
    std::thread user([requests] {
      EXPECT_EQ(SluiceHubSim_WaitForRequests(requests, 10000), 1u);
      std::raise(SIGINT);
    });
    const std::string text = kelctl(words);
    user.join();
    EXPECT_EQ(SluiceHubSim_GetConnections(nullptr, 0), 0u) << "the connection is still open";
    return text;
  }
};

TEST_F(VerbsTest, AnEmptyWordTooManyIsWrongUsage) {
  const std::vector<std::string> lines[] = {
      {"send", kEchoName, "", "--json"}, {"send", kEchoName, ""}, {"stream", kStreamerName, ""}, {"ping", "", ""}};
  for (const std::vector<std::string>& words : lines) {
    EXPECT_EQ(kelctl(words), "");
    EXPECT_EQ(mStatus, 2);
    EXPECT_THAT(mErrors, HasSubstr("one word too many")) << words[0];
  }
}

TEST_F(VerbsTest, ATaskThatIsNotAnsweredEndsWithAStatusOfItsOwn) {
  mFolder.writeSettings("RxWaitTimeout=50\n");
  Lose(kEcho);
  EXPECT_EQ(kelctl({"send", kEchoName}), "");
  EXPECT_EQ(mStatus, 3);
  EXPECT_THAT(mErrors, StartsWith("kelctl: TASK_ID_APPLICATION_DEBUG_VAL: no answer came in time.\n"));
}

TEST_F(VerbsTest, AnAnswerIsWaitedForAsLongAsToldTo) {
  Lose(kEcho);
  EXPECT_EQ(kelctl({"send", kEchoName, "--timeout", "0.05"}), "");
  EXPECT_EQ(mStatus, 3);
  EXPECT_EQ(kelctl({"stream", kEchoName, "--timeout", "0.05"}), "");
  EXPECT_EQ(mStatus, 3);
}

TEST_F(VerbsTest, WithoutADeviceTheStatusSaysThereIsNoLink) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1);
  for (const char* verb : {"send", "stream", "ping"}) {
    EXPECT_EQ(kelctl({verb, kEchoName}), "");
    EXPECT_EQ(mStatus, 4);
    EXPECT_THAT(mErrors, HasSubstr("there is no connection to the device"));
  }
}

TEST_F(VerbsTest, ATaskThatIsRefusedSaysSo) {
  Refuse(kEcho);
  EXPECT_EQ(kelctl({"send", kEchoName}), "");
  EXPECT_EQ(mStatus, 1);
  EXPECT_THAT(mErrors, StartsWith("kelctl: TASK_ID_APPLICATION_DEBUG_VAL: the device refused the task.\n"));
}

TEST_F(VerbsTest, AnErrorIsAnObjectAsWell) {
  Refuse(kEcho);
  const std::string text = kelctl({"send", kEchoName, "--json"});
  EXPECT_THAT(text, StartsWith(R"({"error":{"status":1,"text":")"));
  EXPECT_THAT(text, HasSubstr(R"(,"cause":"refused"}})"));
}

TEST_F(VerbsTest, CtrlCDoesNotWaitForTheTimeOut) {
  Lose(kEcho);
  EXPECT_EQ(interrupted(1, {"send", kEchoName}), "");
  EXPECT_EQ(mStatus, 1);
  EXPECT_EQ(mErrors, "kelctl: interrupted before the answer came.\n");
}

TEST_F(VerbsTest, CtrlCEndsTasksInFlight) {
  Lose(kEcho, 2);
  EXPECT_THAT(interrupted(8, {"send", kEchoName, "--in-flight", "8"}), StartsWith("8 tasks: "));
  EXPECT_EQ(mStatus, 1);
}

TEST_F(VerbsTest, TasksThatAreNotAnsweredAreCountedAsTimedOut) {
  mFolder.writeSettings("RxWaitTimeout=100\n");
  Lose(kEcho, 1, 3);
  EXPECT_THAT(kelctl({"send", kEchoName, "--in-flight", "8"}),
              StartsWith("8 tasks: 5 answered, 3 timed out, 0 refused, "));
  EXPECT_EQ(mStatus, 3);
}

TEST_F(VerbsTest, RefusedTasksAreCountedAndTheOthersWaitedFor) {
  Refuse(kEcho, 2);
  EXPECT_THAT(kelctl({"send", kEchoName, "--in-flight", "4"}),
              StartsWith("4 tasks: 2 answered, 0 timed out, 2 refused, "));
  EXPECT_EQ(mStatus, 1);
  EXPECT_THAT(mErrors, StartsWith("kelctl: TASK_ID_APPLICATION_DEBUG_VAL: the device refused"));
}

TEST_F(VerbsTest, PingCountsWhatIsLostAndWhatIsRefused) {
  mFolder.writeSettings("RxWaitTimeout=500\n");
  Lose(kEcho, 1, 1);
  SluiceHubSimRule refuse = RuleFor(kEcho);
  refuse.L4status = 5;
  refuse.skip = 1;
  SluiceHubSim_AddRule(&refuse);
  const std::string text = kelctl({"ping", "--count", "4", "--interval", "0"});
  EXPECT_THAT(text, StartsWith("12 bytes, number 1, "));
  EXPECT_THAT(text, HasSubstr("\nlost, number 2\n"));
  EXPECT_THAT(text, HasSubstr("\n4 sent, 1 answered, 2 refused, 25% lost\n"));
  EXPECT_EQ(mStatus, 0) << "one was answered";
}

TEST_F(VerbsTest, PingOfASilentDeviceEndsWithItsStatus) {
  mFolder.writeSettings("RxWaitTimeout=20\n");
  Lose(kEcho);
  EXPECT_EQ(kelctl({"ping", "--count", "2", "--interval", "0"}),
            "lost, number 1\nlost, number 2\n\n2 sent, 0 answered, 0 refused, 100% lost\n");
  EXPECT_EQ(mStatus, 3);
}

TEST_F(VerbsTest, PingOutlivesMoreLossesThanAConnectionHasSequenceNumbers) {
  mFolder.writeSettings("RxWaitTimeout=20\n");
  Lose(kEcho, 0, 70);
  EXPECT_THAT(kelctl({"ping", "--count", "80", "--interval", "0"}), HasSubstr("80 sent, "));
  EXPECT_EQ(mStatus, 0);
}

TEST_F(VerbsTest, PingKeepsItsIntervalWhileAnswersAreLate) {
  SluiceHubSimRule late = RuleFor(kEcho);
  late.delayMs = 400;
  SluiceHubSim_AddRule(&late);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(kelctl({"ping", "--count", "10", "--interval", "20"}), HasSubstr("10 sent, 10 answered"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3)) << "one behind the other it takes four";
}

TEST_F(VerbsTest, CtrlCBeforeAnyAnswerIsNoAnswer) {
  Lose(kEcho);
  EXPECT_THAT(interrupted(1, {"ping"}), HasSubstr("1 sent, 0 answered, 0 refused, 100% lost"));
  EXPECT_EQ(mStatus, 3);
}

TEST_F(VerbsTest, CtrlCEndsPingWithItsSummary) {
  Lose(kEcho, 1);
  EXPECT_THAT(interrupted(2, {"ping", "--interval", "0"}),
              HasSubstr("\nlost, number 2\n\n2 sent, 1 answered, 0 refused, 50% lost\n"));
  EXPECT_EQ(mStatus, 0);
}

TEST_F(VerbsTest, AStreamOfBytesIsDumped) {
  SluiceHubSimRule bytes = RuleFor(kStreamer);
  bytes.flags = SLUICEHUBSIM_STREAM;
  bytes.streamCount = 1;
  bytes.streamPayloadSize = 14;
  SluiceHubSim_AddRule(&bytes);
  EXPECT_EQ(kelctl({"stream", kStreamerName}),
            "opening VAL     12 bytes  0 0 0\n"
            "message REF     14 bytes\n"
            "00000000  00 00 00 00 01 00 00 00  00 00 00 00 0c 0d        |..............|\n"
            "end     REF     14 bytes\n"
            "00000000  01 00 00 00 01 00 00 00  00 00 00 00 0d 0e        |..............|\n");
  EXPECT_EQ(mStatus, 0);
}

TEST_F(VerbsTest, AStreamThatIsNotOpenedInTimeHasNoAnswer) {
  mFolder.writeSettings("RxWaitTimeout=50\n");
  Lose(kStreamer);
  EXPECT_EQ(kelctl({"stream", kStreamerName}), "");
  EXPECT_EQ(mStatus, 3);
}

TEST_F(VerbsTest, CtrlCEndsAStreamThatDoesNotOpen) {
  Lose(kStreamer);
  interrupted(1, {"stream", kStreamerName});
  EXPECT_EQ(mStatus, 1);
}

TEST_F(VerbsTest, ABroadcasterThatDoesNotAnswerHasNoAnswer) {
  mFolder.writeSettings("RxWaitTimeout=50\n");
  Lose(kBroadcaster);
  EXPECT_EQ(kelctl({"listen", "--trigger", "--count", "1"}), "");
  EXPECT_EQ(mStatus, 3);
}

TEST_F(VerbsTest, AFileIsNotValidIfTheDeviceDoesNotTellItsGeneration) {
  mFolder.write("Statistics.bm", "content");
  Refuse(kGetUids);
  EXPECT_EQ(kelctl({"validate", "Statistics.bm"}), "Statistics.bm: not valid, or that could not be found out\n");
  EXPECT_EQ(mStatus, 1);
}

TEST_F(VerbsTest, HaveTheLibraryReleaseItsBlocksUnlessTheUserSaysOtherwise) {
  constexpr const char* kVariable = "KELHANDLER_RELEASE_BLOCKS";
  std::uint32_t released = 4711;
  {
    const kel::test::EnvironmentVariable keep(kVariable, "0");
    kelctl({"send", kEchoName});
    EXPECT_TRUE(kel::platform::environmentNumber(kVariable, &released));
    EXPECT_EQ(released, 0u);
  }
  kelctl({"send", kEchoName});
  EXPECT_TRUE(kel::platform::environmentNumber(kVariable, &released));
  EXPECT_EQ(released, 1u);
}

TEST_F(VerbsTest, AWrongAnswerFailsTheDemo) {
  const std::uint32_t wrong[] = {7, 8, 10};
  SluiceHubSimRule rule = RuleFor(kEcho);
  rule.times = 1;
  rule.flags = SLUICEHUBSIM_DATA;
  rule.data = wrong;
  rule.dataSize = sizeof wrong;
  SluiceHubSim_AddRule(&rule);
  const std::string text = kelctl({"demo"});
  EXPECT_THAT(text, HasSubstr("    ! the answer is not what was sent\n"));
  EXPECT_THAT(text, HasSubstr("\n14 of 14 steps, wrong: 3\n"));
  EXPECT_EQ(mStatus, 1);
}

TEST_F(VerbsTest, ARefusedConnectEndsTheDemo) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1);
  EXPECT_THAT(kelctl({"demo"}), HasSubstr("\n2 of 14 steps, wrong: 2\n"));
  EXPECT_EQ(mStatus, 1);
}

TEST_F(VerbsTest, CtrlCEndsTheDemoInOrder) {
  EXPECT_THAT(interrupted(3, {"demo"}), HasSubstr(" of 14 steps"));
  EXPECT_EQ(mStatus, 1);
}

TEST_F(VerbsTest, TheDemoLeavesTheWorkingDirectoryAsItWas) {
  mFolder.writeSettings("RxWaitTimeout=777\n");
  kelctl({"demo"});
  EXPECT_EQ(mStatus, 0);
  EXPECT_EQ(std::filesystem::current_path(), mFolder.path());
  EXPECT_EQ(kel::test::ReadText("Brel.ini"), "[Common]\nRxWaitTimeout=777\n");
}

}  // namespace
}  // namespace kelctl
