// SPDX-License-Identifier: MIT
// KEL_ValidateVersion, as a client has it: of the shared library, with the stand-in behind it.
#include <thread>

#include "interface/client.h"

namespace kel::test {
namespace {

constexpr std::uint32_t kUidsTui = 0x18100;

/// A call with a file that nobody reads.
std::uint32_t Validate(std::uint64_t conn, std::string& fileName, const char* versionsVectorsPath = "vectors") {
  std::uint64_t userVersion = 0;
  return KEL_ValidateVersion(conn, fileName.data(), "content", 7, &userVersion, versionsVectorsPath);
}

std::uint32_t Validate(std::uint64_t conn, const char* versionsVectorsPath = "vectors") {
  std::string fileName = "Statistics.bm";
  return Validate(conn, fileName, versionsVectorsPath);
}

SluiceHubSimRule RuleForUids() {
  SluiceHubSimRule rule{};
  rule.tui = kUidsTui;
  rule.tuiMask = SLUICEHUBSIM_EXACT;
  return rule;
}

using ExportTest = ClientTest;

TEST_F(ExportTest, GivesOneForAFileThatPasses) {
  const std::uint64_t conn = connect();
  EXPECT_EQ(Validate(conn), KEL_VERSION_VALID);
  EXPECT_EQ(Requests(), 1u);
  EXPECT_EQ(Validate(conn), 1u);
  EXPECT_EQ(Requests(), 2u);  // the UIDs are fetched again
}

TEST_F(ExportTest, GivesSevenForAConnectionThatIsNotThere) {
  EXPECT_EQ(Validate(4711), KEL_E_CONNECTION);
  const std::uint64_t conn = connect();
  EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);
  EXPECT_EQ(Validate(conn), 7u);
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(ExportTest, GivesZeroForConnectionZeroWhichIsAFreeRow) { EXPECT_EQ(Validate(0), 0u); }

TEST_F(ExportTest, GivesZeroWithoutAPathSinceConnectionsHaveNoVersionControl) {
  const std::uint64_t conn = connect();
  EXPECT_EQ(Validate(conn, nullptr), KEL_VERSION_INVALID);
  EXPECT_EQ(Requests(), 0u);
}

TEST_F(ExportTest, GivesZeroWithoutUids) {
  const std::uint64_t conn = connect();
  SluiceHubSimRule none = RuleForUids();
  none.flags = SLUICEHUBSIM_DATA;
  SluiceHubSim_AddRule(&none);
  EXPECT_EQ(Validate(conn), 0u);
}

TEST_F(ExportTest, GivesZeroIfTheUidsAreRefused) {
  const std::uint64_t conn = connect();
  SluiceHubSimRule refuse = RuleForUids();
  refuse.L4status = 1;
  SluiceHubSim_AddRule(&refuse);
  EXPECT_EQ(Validate(conn), 0u);
}

TEST_F(ExportTest, GivesZeroIfTheUidsDoNotComeInTime) {
  folder.writeSettings("RxWaitTimeout=10\n");
  const std::uint64_t conn = connect();
  SluiceHubSimRule drop = RuleForUids();
  drop.flags = SLUICEHUBSIM_DROP;
  SluiceHubSim_AddRule(&drop);
  EXPECT_EQ(Validate(conn), 0u);
}

TEST_F(ExportTest, GivesZeroForANameThatEndsInASeparatorAndCutsIt) {
  const std::uint64_t conn = connect();
  for (const auto& [name, cut] :
       {std::pair{"C:\\versions\\", "C:\\versions"}, std::pair{"versions/", "versions"}, std::pair{"a\\b/", "a\\b"}}) {
    std::string fileName = name;
    EXPECT_EQ(Validate(conn, fileName), 0u);
    EXPECT_STREQ(fileName.c_str(), cut);
    EXPECT_EQ(Validate(conn, fileName), 1u);
    EXPECT_STREQ(fileName.c_str(), cut);
  }
}

TEST_F(ExportTest, GivesZeroForANullName) {
  const std::uint64_t conn = connect();
  std::uint64_t userVersion = 0;
  EXPECT_EQ(KEL_ValidateVersion(conn, nullptr, "content", 7, &userVersion, "vectors"), 0u);
}

TEST_F(ExportTest, LeavesTheFileAndTheUserVersionAlone) {
  const std::uint64_t conn = connect();
  char name[] = "versions/Statistics.bm";
  char content[] = "content";
  std::uint64_t userVersion = 4711;
  EXPECT_EQ(KEL_ValidateVersion(conn, name, content, sizeof content, &userVersion, "vectors"), 1u);
  EXPECT_STREQ(name, "versions/Statistics.bm");
  EXPECT_STREQ(content, "content");
  EXPECT_EQ(userVersion, 4711u);
}

TEST_F(ExportTest, OfOneConnectionKeepsTheTasksOfAnotherWaiting) {
  folder.writeSettings("RxWaitTimeout=30000\n");
  const std::uint64_t conn = connect();
  const std::uint64_t other = connect();
  SluiceHubSimRule drop = RuleForUids();
  drop.flags = SLUICEHUBSIM_DROP;
  SluiceHubSim_AddRule(&drop);
  std::thread validating([conn] { EXPECT_EQ(Validate(conn), 1u); });
  ASSERT_EQ(SluiceHubSim_WaitForRequests(1, kLong), 1u);
  std::thread sending([other] { EXPECT_EQ(SendValues(other, {1, 2, 3}).result, KEL_OK); });
  EXPECT_EQ(SluiceHubSim_WaitForRequests(2, 100), 0u);
  const std::uint32_t uids[4] = {7, 0, 0, 0};
  EXPECT_EQ(SluiceHubSim_DeliverRecord(conn, kUidsTui, 0, 0, uids, sizeof uids, 1), 1u);
  validating.join();
  sending.join();
}

}  // namespace
}  // namespace kel::test
