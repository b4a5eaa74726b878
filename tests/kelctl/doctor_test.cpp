// SPDX-License-Identifier: MIT
// What is wrong with an installation, as `kelctl doctor` finds it.
#include <gmock/gmock.h>

#include "SluiceHubSim.h"
#include "kelctl/kelctl_test.h"
#include "settings.h"

namespace kelctl {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

class DoctorTest : public KelctlTest {
 protected:
  std::vector<std::string> faultsOf(const std::string& ini) {
    std::vector<std::string> texts;
    for (const IniFault& fault : checkIni(ini)) texts.push_back(std::to_string(fault.line) + ": " + fault.text);
    return texts;
  }
};

TEST_F(DoctorTest, FindsAHealthyInstallationHealthy) {
  EXPECT_THAT(kelctl({"doctor"}),
              AllOf(HasSubstr("the stand-in"), HasSubstr("KEL_ValidateVersion"), HasSubstr("RxWaitTimeout"),
                    HasSubstr("10000  (default)"), HasSubstr("nothing: all is well")));
  EXPECT_EQ(mStatus, 0);
}

TEST_F(DoctorTest, TellsWhereASettingComesFrom) {
  mFolder.writeSettings("RxWaitTimeout=0x10\n");
  EXPECT_THAT(kelctl({"doctor", "--offline"}), HasSubstr("0x10  (Brel.ini)"));
  EXPECT_EQ(mStatus, 0);
}

TEST_F(DoctorTest, TellsANumberThatIsNone) {
  mFolder.writeSettings("RxWaitTimeout=abc\n");
  EXPECT_THAT(kelctl({"doctor", "--offline"}), HasSubstr("1. RxWaitTimeout wants a number"));
  EXPECT_EQ(mStatus, 1);
}

TEST_F(DoctorTest, TellsWhatNobodyReads) {
  EXPECT_THAT(faultsOf("; all is well\n[Common]\nRxWaitTimeout=5\nlogtoconsole = 1\n"), IsEmpty());
  EXPECT_THAT(faultsOf("[Comon]\nRxWaitTimeout=5\n"),
              testing::ElementsAre("1: nobody reads a section [Comon]; did you mean \"Common\"?"));
  EXPECT_THAT(
      faultsOf("RxWaitTimeout=5\n[Common]\nRxWaitTimout=6\nLogToConsole\nReleaseBlocks=1\nReleaseBlocks=0\n"),
      testing::ElementsAre("1: this stands ahead of [Common], where nobody reads it",
                           "3: nobody reads a key RxWaitTimout; did you mean \"RxWaitTimeout\"?",
                           "4: LogToConsole has no value", "6: the first ReleaseBlocks counts, and not this one"));
  EXPECT_THAT(faultsOf("[Common]\n[Common]\n"),
              testing::ElementsAre("2: the first section [Common] counts, and not this one"));
}

TEST_F(DoctorTest, TellsTheFaultsOfATable) {
  mFolder.write("KEL_ALLTASKS.csv", "MY_ECHO,  0, 18, KEL_TRACE, 3, VAL, 229952, 0x38240\n");
  EXPECT_THAT(kelctl({"doctor", "--offline"}), HasSubstr("See `kelctl tasks check KEL_ALLTASKS.csv`."));
  EXPECT_EQ(mStatus, 1);
}

TEST_F(DoctorTest, TellsWhatADeviceThatIsNotThereReturned) {
  SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1);
  EXPECT_THAT(kelctl({"doctor"}), AllOf(HasSubstr("returned 7 after"), HasSubstr("1. KEL_Connect: The connection is")));
  EXPECT_EQ(mStatus, 1);
}

TEST_F(DoctorTest, SendsNothingOffline) {
  kelctl({"doctor", "--offline"});
  EXPECT_EQ(SluiceHubSim_GetConnections(nullptr, 0), 0u);
  EXPECT_EQ(SluiceHubSim_WaitForRequests(1, 0), 0u);
}

}  // namespace
}  // namespace kelctl
