// The verbs with a device that is told to misbehave; what they do with one that works is in CMakeLists.txt.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "SluiceHubSim.h"
#include "commands.h"
#include "session.h"
#include "support/scratch_directory.h"

namespace kelctl {
namespace {

constexpr std::uint32_t kEcho = 0x38240;
constexpr std::uint32_t kStreamer = 0x38243;
constexpr std::uint32_t kGetUids = 0x18100;

SluiceHubSimRule RuleFor(std::uint32_t tui) {
  SluiceHubSimRule rule{};
  rule.tui = tui;
  rule.tuiMask = SLUICEHUBSIM_EXACT;
  return rule;
}

class VerbsTest : public testing::Test {
 protected:
  /// What a verb prints while it runs; its status goes to mStatus.
  template <class Verb>
  std::string printed(Verb verb) {
    testing::internal::CaptureStdout();
    try {
      mStatus = verb();
    } catch (const Refused& refused) {
      mRefusal = refused.what();
    }
    return testing::internal::GetCapturedStdout();
  }

  kel::test::ScratchDirectory mFolder;
  int mStatus = -1;
  std::string mRefusal;
};

SendOptions InFlight(std::uint32_t count) {
  SendOptions options;
  options.task = "TASK_ID_APPLICATION_DEBUG_VAL";
  options.inFlight = count;
  return options;
}

TEST_F(VerbsTest, TasksThatAreNotAnsweredAreCountedAsTimedOut) {
  mFolder.writeSettings("RxWaitTimeout=100\n");
  SluiceHubSimRule lose = RuleFor(kEcho);
  lose.flags = SLUICEHUBSIM_DROP;
  lose.skip = 1;
  lose.times = 3;
  SluiceHubSim_AddRule(&lose);
  const std::string text = printed([] { return send(InFlight(8)); });
  EXPECT_EQ(text.rfind("8 tasks: 5 answered, 3 timed out, 0 refused, ", 0), 0u) << text;
  EXPECT_EQ(mStatus, 1);
}

TEST_F(VerbsTest, RefusedTasksAreCountedAndTheOthersWaitedFor) {
  SluiceHubSimRule refuse = RuleFor(kEcho);
  refuse.L4status = 5;
  refuse.times = 2;
  SluiceHubSim_AddRule(&refuse);
  const std::string text = printed([] { return send(InFlight(4)); });
  EXPECT_EQ(text.rfind("4 tasks: 2 answered, 0 timed out, 2 refused, ", 0), 0u) << text;
  EXPECT_EQ(mRefusal.rfind("KEL_SendReceiveAsyncKEL returned 10:", 0), 0u) << mRefusal;
}

StreamOptions Stream() {
  StreamOptions options;
  options.task = "TASK_ID_APPLICATION_DEBUG_STREAMER";
  return options;
}

TEST_F(VerbsTest, AStreamOfBytesIsDumped) {
  SluiceHubSimRule bytes = RuleFor(kStreamer);
  bytes.flags = SLUICEHUBSIM_STREAM;
  bytes.streamCount = 1;
  bytes.streamPayloadSize = 14;
  SluiceHubSim_AddRule(&bytes);
  EXPECT_EQ(printed([] { return stream(Stream()); }),
            "message REF     14 bytes\n"
            "00000000  00 00 00 00 01 00 00 00  00 00 00 00 0c 0d        |..............|\n"
            "end     REF     14 bytes\n"
            "00000000  01 00 00 00 01 00 00 00  00 00 00 00 0d 0e        |..............|\n");
  EXPECT_EQ(mStatus, 0);
}

TEST_F(VerbsTest, AStreamThatIsNotOpenedInTimeIsRefused) {
  mFolder.writeSettings("RxWaitTimeout=50\n");
  SluiceHubSimRule lose = RuleFor(kStreamer);
  lose.flags = SLUICEHUBSIM_DROP;
  SluiceHubSim_AddRule(&lose);
  EXPECT_EQ(printed([] { return stream(Stream()); }), "");
  EXPECT_EQ(mRefusal.rfind("KEL_SendReceiveKELEx returned 12:", 0), 0u) << mRefusal;
}

TEST_F(VerbsTest, AStreamWithoutAnEndEndsWithCtrlC) {
  SluiceHubSimRule endless = RuleFor(kStreamer);
  endless.flags = SLUICEHUBSIM_STREAM | SLUICEHUBSIM_NO_END;
  endless.streamCount = 1;
  SluiceHubSim_AddRule(&endless);
  std::thread user([] {
    EXPECT_EQ(SluiceHubSim_WaitForRequests(1, 10000), 1u);
    std::raise(SIGINT);
  });
  printed([] { return stream(Stream()); });
  user.join();
  EXPECT_EQ(mStatus, 0);
}

TEST_F(VerbsTest, AFileIsNotValidIfTheDeviceDoesNotTellItsGeneration) {
  mFolder.write("Statistics.bm", "content");
  SluiceHubSimRule refuse = RuleFor(kGetUids);
  refuse.L4status = 5;
  SluiceHubSim_AddRule(&refuse);
  ValidateOptions options;
  options.file = "Statistics.bm";
  EXPECT_EQ(printed([&] { return validate(options); }), "Statistics.bm: not valid, or that could not be found out\n");
  EXPECT_EQ(mStatus, 1);
}

TEST_F(VerbsTest, AWrongAnswerFailsTheDemo) {
  const std::uint32_t wrong[] = {7, 8, 10};
  SluiceHubSimRule rule = RuleFor(kEcho);
  rule.times = 1;
  rule.flags = SLUICEHUBSIM_DATA;
  rule.data = wrong;
  rule.dataSize = sizeof wrong;
  SluiceHubSim_AddRule(&rule);
  const std::string text = printed([] { return demo(false); });
  EXPECT_NE(text.find("    ! the answer is not what was sent\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\n14 of 14 steps, wrong: 3\n"), std::string::npos) << text;
  EXPECT_EQ(mStatus, 1);
}

TEST_F(VerbsTest, ARefusedConnectEndsTheDemo) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1);
  const std::string text = printed([] { return demo(false); });
  EXPECT_NE(text.find("\n2 of 14 steps, wrong: 2\n"), std::string::npos) << text;
  EXPECT_EQ(mStatus, 1);
}

TEST_F(VerbsTest, TheDemoLeavesTheWorkingDirectoryAsItWas) {
  mFolder.writeSettings("RxWaitTimeout=777\n");
  printed([] { return demo(false); });
  EXPECT_EQ(mStatus, 0);
  EXPECT_EQ(std::filesystem::current_path(), mFolder.path());
  EXPECT_EQ(kel::test::ReadText("Brel.ini"), "[Common]\nRxWaitTimeout=777\n");
}

}  // namespace
}  // namespace kelctl
