// SPDX-License-Identifier: MIT
// Brel.ini and the registry: what an engine makes of them.
#include <gtest/gtest.h>

#include <memory>

#include "SluiceHubSim.h"
#include "engine/Brel.h"
#include "engine/BrelEngine.h"
#include "support/core_process.h"
#include "support/environment_variable.h"
#include "support/failing_files.h"
#include "support/log_file.h"
#include "support/private_member.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {

// clang-format off
struct LoadSettings { friend auto memberOf(LoadSettings); };
struct IniFileFound { friend auto memberOf(IniFileFound); };
struct DllsPath { friend auto memberOf(DllsPath); };
struct LogToConsole { friend auto memberOf(LogToConsole); };
struct RxWaitTimeout { friend auto memberOf(RxWaitTimeout); };
struct TUIsFilePath { friend auto memberOf(TUIsFilePath); };
struct IpAddress { friend auto memberOf(IpAddress); };
struct PortNumber { friend auto memberOf(PortNumber); };
struct RequestDump { friend auto memberOf(RequestDump); };
struct RequestPayloadDump { friend auto memberOf(RequestPayloadDump); };
struct ResponseDump { friend auto memberOf(ResponseDump); };
struct ResponsePayloadDump { friend auto memberOf(ResponsePayloadDump); };
struct Sequencer { friend auto memberOf(Sequencer); };
struct Alerts { friend auto memberOf(Alerts); };
struct Broadcasts { friend auto memberOf(Broadcasts); };
struct Async { friend auto memberOf(Async); };
struct Tasks { friend auto memberOf(Tasks); };
struct Kept { friend auto memberOf(Kept); };
// clang-format on

template struct OpenMember<LoadSettings, &BrelEngine::LoadBrelIniSettings>;
template struct OpenMember<IniFileFound, &BrelEngine::mIniFileFound>;
template struct OpenMember<DllsPath, &BrelEngine::mBrelDllsPath>;
template struct OpenMember<LogToConsole, &BrelEngine::mLogToConsole>;
template struct OpenMember<RxWaitTimeout, &BrelEngine::mRxWaitTimeout>;
template struct OpenMember<TUIsFilePath, &BrelEngine::mTUIsFilePath>;
template struct OpenMember<IpAddress, &BrelEngine::mUpperDriverIpAddress>;
template struct OpenMember<PortNumber, &BrelEngine::mUpperDriverPortNumber>;
template struct OpenMember<RequestDump, &BrelEngine::mRequestStructDumpFilename>;
template struct OpenMember<RequestPayloadDump, &BrelEngine::mRequestStructPayloadDumpFilename>;
template struct OpenMember<ResponseDump, &BrelEngine::mResponseStructDumpFilename>;
template struct OpenMember<ResponsePayloadDump, &BrelEngine::mResponseStructPayloadDumpFilename>;
template struct OpenMember<Sequencer, &BrelEngine::mTasksSequencer>;
template struct OpenMember<Alerts, &BrelEngine::mAlertsListener>;
template struct OpenMember<Broadcasts, &BrelEngine::mBroadcastListener>;
template struct OpenMember<Async, &BrelEngine::mAsyncListener>;
template struct OpenMember<Tasks, &BrelEngine::mTUIsList>;
template struct OpenMember<Kept, &BrelEngine::mKeptBlocks>;

namespace {

constexpr const char* kFunction = "LoadBrelIniSettings";

/// What is told of a file without a key.
const std::vector<std::string> kDefaultLines = {
    "LogToConsole = 0 \n",
    "RxWaitTimeout = 10000 \n",
    "TUIsFilePath = KEL_ALLTASKS.csv \n",
    "UpperDriverIpAddress = 127.0.0.1 \n",
    "UpperDriverPortNumber = 1234 \n",
    "RequestStructDumpFilename =  \n",
    "RequestStructPayloadDumpFilename =  \n",
    "ResponseStructDumpFilename =  \n",
    "ResponseStructPayloadDumpFilename =  \n",
};

/// What the nine keys come to, in their order.
struct Values {
  std::uint32_t LogToConsole = 0;
  std::uint32_t RxWaitTimeout = 10000;
  std::string TUIsFilePath = "KEL_ALLTASKS.csv";
  std::string UpperDriverIpAddress = "127.0.0.1";
  std::uint32_t UpperDriverPortNumber = 1234;
  std::string RequestStructDumpFilename = "";
  std::string RequestStructPayloadDumpFilename = "";
  std::string ResponseStructDumpFilename = "";
  std::string ResponseStructPayloadDumpFilename = "";

  bool operator==(const Values&) const = default;
};

void PrintTo(const Values& values, std::ostream* stream) {
  *stream << values.LogToConsole << " " << values.RxWaitTimeout << " '" << values.TUIsFilePath << "' '"
          << values.UpperDriverIpAddress << "' " << values.UpperDriverPortNumber << " '"
          << values.RequestStructDumpFilename << "' '" << values.RequestStructPayloadDumpFilename << "' '"
          << values.ResponseStructDumpFilename << "' '" << values.ResponseStructPayloadDumpFilename << "'";
}

class Settings : public testing::Test {
 protected:
  Settings() {
    mRegistry.switchLogsOn();
    mEngine = std::make_unique<BrelEngine>();
  }
  // Gives back what the destructor does not.
  ~Settings() override { mEngine->Finalize(); }

  template <class Tag>
  auto& member(Tag tag) {
    return (*mEngine).*memberOf(tag);
  }

  bool load() {
    testing::internal::CaptureStdout();
    const bool loaded = (*mEngine.*memberOf(LoadSettings{}))();
    mConsole += testing::internal::GetCapturedStdout();
    return loaded;
  }

  bool load(const std::string& lines) {
    mDirectory.writeSettings(lines);
    return load();
  }

  /// Writes a Brel.ini in the folder "dlls" and has the registry point there.
  void writeCompanionSettings(const std::string& lines) {
    std::filesystem::create_directory(companionPath());
    mDirectory.write("dlls/Brel.ini", "[Common]\n" + lines);
    mRegistry.set("Software\\Brel", "BrelDllsPath", companionPath());
  }

  std::string companionPath() const { return (mDirectory.path() / "dlls").string(); }

  Values values() {
    return {member(LogToConsole{}),       member(RxWaitTimeout{}), member(TUIsFilePath{}),
            member(IpAddress{}),          member(PortNumber{}),    member(RequestDump{}),
            member(RequestPayloadDump{}), member(ResponseDump{}),  member(ResponsePayloadDump{})};
  }

  void expectLogged(const std::vector<std::string>& texts) {
    std::string log;
    for (const std::string& text : texts) log += LogEntry("info", "BrelEngine", kFunction, text);
    EXPECT_EQ(LogText("Brel.logs"), log);
  }

  void expectPrinted(const std::vector<std::string>& texts) {
    std::string console;
    for (const std::string& text : texts) console += std::string(kFunction) + " - " + text;
    EXPECT_EQ(mConsole, console);
  }

  ScratchDirectory mDirectory;
  RegistrySettings mRegistry;
  std::unique_ptr<BrelEngine> mEngine;
  std::string mConsole;
};

// ---------------------------------------------------------------------------------------------------------------------
// The file
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(Settings, StayAtTheirDefaultsWithoutAFileAndNothingIsSaid) {
  EXPECT_FALSE(load());
  EXPECT_FALSE(member(IniFileFound{}));
  EXPECT_EQ(values(), Values());
  EXPECT_EQ(LogText("Brel.logs"), "");
  EXPECT_EQ(mConsole, "");
}

TEST_F(Settings, StayAtTheirDefaultsWithAnEmptyFileAndAreTold) {
  mDirectory.write("Brel.ini", "");
  EXPECT_TRUE(load());
  EXPECT_TRUE(member(IniFileFound{}));
  EXPECT_EQ(values(), Values());
  expectLogged(kDefaultLines);
  EXPECT_EQ(mConsole, "");
}

TEST_F(Settings, AreAllReplacedInOneOrderWhateverTheFiles) {
  EXPECT_TRUE(
      load("ResponseStructPayloadDumpFilename=d.txt\n"
           "ResponseStructDumpFilename=c.txt\n"
           "RequestStructPayloadDumpFilename=b.txt\n"
           "RequestStructDumpFilename=a.txt\n"
           "UpperDriverPortNumber=4321\n"
           "UpperDriverIpAddress=10.0.0.1\n"
           "TUIsFilePath=my tasks.csv\n"
           "RxWaitTimeout=20\n"
           "LogToConsole=1\n"));
  EXPECT_EQ(values(), (Values{1, 20, "my tasks.csv", "10.0.0.1", 4321, "a.txt", "b.txt", "c.txt", "d.txt"}));
  const std::vector<std::string> lines = {
      "LogToConsole = 1 \n",
      "RxWaitTimeout = 20 \n",
      "TUIsFilePath = my tasks.csv \n",
      "UpperDriverIpAddress = 10.0.0.1 \n",
      "UpperDriverPortNumber = 4321 \n",
      "RequestStructDumpFilename = a.txt \n",
      "RequestStructPayloadDumpFilename = b.txt \n",
      "ResponseStructDumpFilename = c.txt \n",
      "ResponseStructPayloadDumpFilename = d.txt \n",
  };
  expectLogged(lines);
  expectPrinted(lines);
}

TEST_F(Settings, AreReadFromTheirSectionOnly) {
  mDirectory.write("Brel.ini", "RxWaitTimeout=1\n[Other]\nRxWaitTimeout=2\n[common]\nrxwaittimeout=3\n");
  EXPECT_TRUE(load());
  EXPECT_EQ(member(RxWaitTimeout{}), 3U);
}

TEST_F(Settings, AreReadAnewByEachEngine) {
  EXPECT_TRUE(load("RxWaitTimeout=20\n"));
  EXPECT_EQ(member(RxWaitTimeout{}), 20U);
  mDirectory.writeSettings("RxWaitTimeout=30\n");
  EXPECT_EQ(member(RxWaitTimeout{}), 20U);
  mEngine->Finalize();
  mEngine = std::make_unique<BrelEngine>();
  EXPECT_TRUE(load());
  EXPECT_EQ(member(RxWaitTimeout{}), 30U);
}

TEST_F(Settings, AreNotReadFromAFileThatDoesNotClose) {
  mDirectory.writeSettings("LogToConsole=1\nRxWaitTimeout=20\n");
  testing::internal::CaptureStdout();
  bool loaded = true;
  {
    const FailingClose doesNotClose;
    loaded = (*mEngine.*memberOf(LoadSettings{}))();
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_FALSE(loaded);
  EXPECT_TRUE(member(IniFileFound{}));
  EXPECT_EQ(values(), Values());
  EXPECT_EQ(LogText("Brel.logs"), LogEntry("error", "BrelEngine", kFunction, "The Brel.ini file was not closed. \n"));
}

TEST_F(Settings, StayAtTheirDefaultsWithAFolderInThePlaceOfTheFileAndNothingIsSaid) {
  std::filesystem::create_directory("Brel.ini");
  EXPECT_FALSE(load());
  EXPECT_FALSE(member(IniFileFound{}));
  EXPECT_EQ(values(), Values());
  EXPECT_EQ(LogText("Brel.logs"), "");
  EXPECT_EQ(mConsole, "");
}

TEST_F(Settings, NeverComeFromTheReadersDefaultFile) {
  mDirectory.write("demo.ini", "[Common]\nRxWaitTimeout=1\n");
  EXPECT_FALSE(load());
  EXPECT_EQ(member(RxWaitTimeout{}), 10000U);
  EXPECT_TRUE(load("LogToConsole=0\n"));
  EXPECT_EQ(member(RxWaitTimeout{}), 10000U);
}

// ---------------------------------------------------------------------------------------------------------------------
// The folder that the registry names
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(Settings, AreNotReadFromTheRegistrysFolderIfThereIsNoFileInTheWorkingDirectory) {
  writeCompanionSettings("RxWaitTimeout=20\n");
  EXPECT_FALSE(load());
  EXPECT_FALSE(member(IniFileFound{}));
  EXPECT_EQ(values(), Values());
  EXPECT_EQ(member(DllsPath{}), companionPath());
}

TEST_F(Settings, AreReadFromTheRegistrysFolderIfThereIsAFileInTheWorkingDirectory) {
  writeCompanionSettings("RxWaitTimeout=20\n");
  EXPECT_TRUE(load("RxWaitTimeout=30\nUpperDriverPortNumber=99\n"));
  EXPECT_EQ(member(RxWaitTimeout{}), 20U);
  EXPECT_EQ(member(PortNumber{}), 1234U);
}

TEST_F(Settings, ComeToTheDefaultsOfTheKeysIfTheRegistrysFolderHasNoFile) {
  mRegistry.set("Software\\Brel", "BrelDllsPath", companionPath());
  EXPECT_TRUE(load("RxWaitTimeout=30\n"));
  EXPECT_TRUE(member(IniFileFound{}));
  EXPECT_EQ(values(), Values());
}

TEST_F(Settings, ComeToTheDefaultsOfTheKeysIfTheRegistrysFolderHasAFolderInThePlaceOfTheFile) {
  std::filesystem::create_directories("dlls/Brel.ini");
  mRegistry.set("Software\\Brel", "BrelDllsPath", companionPath());
  EXPECT_TRUE(load("RxWaitTimeout=30\n"));
  EXPECT_TRUE(member(IniFileFound{}));
  EXPECT_EQ(values(), Values());
  expectLogged(kDefaultLines);
}

TEST_F(Settings, AreReadFromTheRegistrysFolderAlsoWithASeparatorBehindIt) {
  writeCompanionSettings("RxWaitTimeout=20\n");
  const std::string withSeparator = companionPath() + platform::kPathSeparator;
  mRegistry.set("Software\\Brel", "BrelDllsPath", withSeparator);
  EXPECT_TRUE(load("RxWaitTimeout=30\n"));
  EXPECT_EQ(member(RxWaitTimeout{}), 20U);
  EXPECT_EQ(member(DllsPath{}), withSeparator);
}

TEST_F(Settings, AreReadFromTheWorkingDirectoryIfTheRegistryNamesAnEmptyFolder) {
  mRegistry.set("Software\\Brel", "BrelDllsPath", "");
  EXPECT_TRUE(load("RxWaitTimeout=30\n"));
  EXPECT_EQ(member(RxWaitTimeout{}), 30U);
  EXPECT_EQ(member(DllsPath{}), "");
}

// ---------------------------------------------------------------------------------------------------------------------
// The keys
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(Settings, LogToConsoleHoldsForAllThatPrint) {
  EXPECT_TRUE(load("LogToConsole=3\n"));
  EXPECT_EQ(member(LogToConsole{}), 3U);
  EXPECT_EQ(member(Sequencer{}).mLogToConsole, 3U);
  EXPECT_EQ(member(Alerts{}).mLogToConsole, 3U);
  EXPECT_EQ(member(Broadcasts{}).mLogToConsole, 3U);
  EXPECT_EQ(member(Async{}).mLogToConsole, 3U);
  EXPECT_EQ(member(Tasks{}).mLogToConsole, 3U);
}

TEST_F(Settings, NobodyPrintsWithoutLogToConsole) {
  EXPECT_TRUE(load("LogToConsole=0\nRxWaitTimeout=20\n"));
  EXPECT_EQ(mConsole, "");
  EXPECT_EQ(member(Sequencer{}).mLogToConsole, 0U);
  EXPECT_EQ(member(Alerts{}).mLogToConsole, 0U);
  EXPECT_EQ(member(Broadcasts{}).mLogToConsole, 0U);
  EXPECT_EQ(member(Async{}).mLogToConsole, 0U);
  EXPECT_EQ(member(Tasks{}).mLogToConsole, 0U);
}

TEST_F(Settings, RxWaitTimeoutHoldsForTheAsyncListener) {
  EXPECT_TRUE(load("RxWaitTimeout=0x2710\n"));
  EXPECT_EQ(member(RxWaitTimeout{}), 10000U);
  mEngine->Finalize();
  mEngine = std::make_unique<BrelEngine>();
  EXPECT_TRUE(load("RxWaitTimeout=25\n"));
  EXPECT_EQ(member(Async{}).mWaitTimeout, 25U);
}

TEST_F(Settings, RxWaitTimeoutIsZeroBehindACapitalX) {
  EXPECT_TRUE(load("RxWaitTimeout=0X2710\n"));
  EXPECT_EQ(member(RxWaitTimeout{}), 0U);
  EXPECT_EQ(member(Async{}).mWaitTimeout, 0U);
}

TEST_F(Settings, APortBeyond16BitsIsStoredAsItIs) {
  EXPECT_TRUE(load("UpperDriverPortNumber=70000\nLogToConsole=1\n"));
  EXPECT_EQ(member(PortNumber{}), 70000U);
  EXPECT_NE(mConsole.find("LoadBrelIniSettings - UpperDriverPortNumber = 70000 \n"), std::string::npos);
}

TEST_F(Settings, ANumberAboveTheSignedOnesIsSignedOnTheConsoleOnly) {
  EXPECT_TRUE(load("UpperDriverPortNumber=0xFFFFFFFF\nLogToConsole=1\n"));
  EXPECT_EQ(member(PortNumber{}), 0xFFFFFFFFU);
  EXPECT_NE(mConsole.find("LoadBrelIniSettings - UpperDriverPortNumber = -1 \n"), std::string::npos);
  EXPECT_NE(LogText("Brel.logs").find("UpperDriverPortNumber = 4294967295 \n"), std::string::npos);
}

TEST_F(Settings, ATextThatIsNoNumberIsZero) {
  EXPECT_TRUE(load("LogToConsole=yes\nRxWaitTimeout=\nUpperDriverPortNumber=none\n"));
  EXPECT_EQ(values(), (Values{.RxWaitTimeout = 0, .UpperDriverPortNumber = 0}));
}

TEST_F(Settings, TheCustomaryTaskTableChangesNothing) {
  const char* const before = member(TUIsFilePath{});
  EXPECT_TRUE(load("TUIsFilePath=KEL_ALLTASKS.csv\n"));
  EXPECT_EQ(static_cast<const void*>(member(TUIsFilePath{})), before);
  EXPECT_STREQ(member(TUIsFilePath{}), "KEL_ALLTASKS.csv");
}

TEST_F(Settings, AnEmptyTaskTablePathReplacesTheDefault) {
  EXPECT_TRUE(load("TUIsFilePath=\n"));
  EXPECT_STREQ(member(TUIsFilePath{}), "");
}

TEST_F(Settings, AnEmptyAddressKeepsTheDefault) {
  const char* const before = member(IpAddress{});
  EXPECT_TRUE(load("UpperDriverIpAddress=\n"));
  EXPECT_EQ(static_cast<const void*>(member(IpAddress{})), before);
  EXPECT_STREQ(member(IpAddress{}), "127.0.0.1");
  EXPECT_NE(LogText("Brel.logs").find("UpperDriverIpAddress =  \n"), std::string::npos);
}

TEST_F(Settings, AMissingAddressIsReplacedByAnEqualText) {
  const char* const before = member(IpAddress{});
  EXPECT_TRUE(load("LogToConsole=0\n"));
  EXPECT_NE(static_cast<const void*>(member(IpAddress{})), before);
  EXPECT_STREQ(member(IpAddress{}), "127.0.0.1");
}

TEST_F(Settings, EmptyDumpNamesChangeNothing) {
  const void* const before[] = {member(RequestDump{}), member(RequestPayloadDump{}), member(ResponseDump{}),
                                member(ResponsePayloadDump{})};
  EXPECT_TRUE(load("RequestStructDumpFilename=\nResponseStructPayloadDumpFilename=\"\"\n"));
  const void* const after[] = {member(RequestDump{}), member(RequestPayloadDump{}), member(ResponseDump{}),
                               member(ResponsePayloadDump{})};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(after[i], before[i]) << i;
}

TEST_F(Settings, TextsAreCutAt1023CharactersAndMayHoldAnything) {
  EXPECT_TRUE(
      load("TUIsFilePath=" + std::string(2000, 'p') + "\nRequestStructDumpFilename=100%s \xE4%n\nLogToConsole=1\n"));
  EXPECT_EQ(std::string(member(TUIsFilePath{})), std::string(1023, 'p'));
  EXPECT_STREQ(member(RequestDump{}), "100%s \xE4%n");
  EXPECT_NE(mConsole.find("LoadBrelIniSettings - RequestStructDumpFilename = 100%s \xE4%n \n"), std::string::npos);
}

// ---------------------------------------------------------------------------------------------------------------------
// ReleaseBlocks
// ---------------------------------------------------------------------------------------------------------------------

class ReleaseBlocks : public Settings {
 protected:
  /// In the engine and in all its parts alike.
  bool released() {
    const bool result = member(Kept{}).released();
    EXPECT_EQ(member(Sequencer{}).mKeptBlocks.released(), result);
    EXPECT_EQ(member(Alerts{}).mKeptBlocks.released(), result);
    EXPECT_EQ(member(Broadcasts{}).mKeptBlocks.released(), result);
    EXPECT_EQ(member(Async{}).mKeptBlocks.released(), result);
    EXPECT_EQ(member(Tasks{}).mKeptBlocks.released(), result);
    return result;
  }

  static constexpr const char* kVariable = "KELHANDLER_RELEASE_BLOCKS";
};

TEST_F(ReleaseBlocks, IsOffByDefault) {
  EXPECT_FALSE(released());
  EXPECT_FALSE(load());
  EXPECT_FALSE(released());
  EXPECT_TRUE(load("RxWaitTimeout=20\n"));
  EXPECT_FALSE(released());
}

TEST_F(ReleaseBlocks, IsReadFromTheFileAndNothingIsSaid) {
  EXPECT_TRUE(load("ReleaseBlocks=1\n"));
  EXPECT_TRUE(released());
  expectLogged(kDefaultLines);
  EXPECT_EQ(mConsole, "");
}

TEST_F(ReleaseBlocks, IsNotReadFromAFileThatDoesNotClose) {
  mDirectory.writeSettings("ReleaseBlocks=1\n");
  const FailingClose doesNotClose;
  EXPECT_FALSE((*mEngine.*memberOf(LoadSettings{}))());
  EXPECT_FALSE(released());
}

TEST_F(ReleaseBlocks, IsTakenFromTheEnvironmentWithoutAFile) {
  const EnvironmentVariable variable(kVariable, "1");
  EXPECT_FALSE(load());
  EXPECT_TRUE(released());
  EXPECT_EQ(LogText("Brel.logs"), "");
}

TEST_F(ReleaseBlocks, IsTakenFromTheEnvironmentAheadOfTheFile) {
  {
    const EnvironmentVariable variable(kVariable, "0");
    EXPECT_TRUE(load("ReleaseBlocks=1\n"));
    EXPECT_FALSE(released());
  }
  const EnvironmentVariable variable(kVariable, "1");
  EXPECT_TRUE(load("ReleaseBlocks=0\n"));
  EXPECT_TRUE(released());
}

TEST_F(ReleaseBlocks, IsTakenFromTheFileWhereTheEnvironmentHasNoNumber) {
  const EnvironmentVariable variable(kVariable, "yes");
  EXPECT_TRUE(load("ReleaseBlocks=1\n"));
  EXPECT_TRUE(released());
}

// ---------------------------------------------------------------------------------------------------------------------
// In a running engine
// ---------------------------------------------------------------------------------------------------------------------

class SettingsOfAConnection : public testing::Test {
 protected:
  SettingsOfAConnection() {
    for (const char* name : {"DEFAULT", "INI", "ARGUMENT"}) {
      const std::string file = name == std::string("DEFAULT") ? "KEL_ALLTASKS.csv" : std::string(name) + ".csv";
      mDirectory.write(file, std::string(name) + ",  0, 0, KEL_TRACE, 1, VAL, 77, 0x4d\n");
    }
  }

  /// Connects and names the table that its tasks come from.
  std::string tableOf(const char* TUIsFilePath) {
    std::uint32_t handle = 0;
    EXPECT_EQ(BrelInit(&handle, TUIsFilePath, 0, nullptr, nullptr, nullptr), 2U);
    std::string table = "none";
    for (const char* name : {"DEFAULT", "INI", "ARGUMENT", "TASK_ID_TRACE_ADAPTER"}) {
      std::uint32_t tui = 0;
      EXPECT_EQ(BrelFindTuiByName(handle, name, &tui), 2U);
      if (tui != 0) table = name;
    }
    EXPECT_EQ(BrelFinalize(handle), 2U);
    return table;
  }

  CoreProcess mProcess;
  ScratchDirectory mDirectory;
  RegistrySettings mRegistry;
};

TEST_F(SettingsOfAConnection, TheArgumentGoesBeforeTheFileAndTheFileBeforeTheDefault) {
  EXPECT_EQ(tableOf(nullptr), "DEFAULT");
  mDirectory.writeSettings("TUIsFilePath=INI.csv\n");
  EXPECT_EQ(tableOf(nullptr), "INI");
  EXPECT_EQ(tableOf("ARGUMENT.csv"), "ARGUMENT");
}

TEST_F(SettingsOfAConnection, FoldersInThePlaceOfAllItsFilesMeanTheDefaults) {
  mRegistry.switchLogsOn();
  mRegistry.set("Software\\Brel", "BrelDllsPath", "dlls");
  std::filesystem::create_directories("dlls/Brel.ini");
  std::filesystem::create_directory("Brel.ini");
  std::filesystem::create_directory("table.csv");
  EXPECT_EQ(tableOf("table.csv"), "TASK_ID_TRACE_ADAPTER");
  EXPECT_TRUE(
      LogText("Brel.logs")
          .starts_with(LogEntry("info", "BrelEngine", "init", "Start \n") +
                       LogEntry("info", "BrelEngine", "init", "No Brel.ini file was found. Using defaults. \n") +
                       LogEntry("info", "BrelEngine", "ReadTUIs",
                                "The KEL_ALLTASKS.csv TUIs file could NOT be opened. Using defaults. \n") +
                       LogEntry("info", "BrelEngine", "init", "loaded TUIs \n")))
      << LogText("Brel.logs");
}

TEST_F(SettingsOfAConnection, AnEmptyPathMeansTheBuiltInTable) {
  mDirectory.writeSettings("TUIsFilePath=\n");
  EXPECT_EQ(tableOf(nullptr), "TASK_ID_TRACE_ADAPTER");
}

TEST_F(SettingsOfAConnection, APortBeyond16BitsConnectsAllTheSame) {
  mDirectory.writeSettings("UpperDriverPortNumber=70000\n");
  EXPECT_EQ(tableOf("ARGUMENT.csv"), "ARGUMENT");
}

// Behind a capital X the number reads as 0. Were it read as it stands, the wait would last more than 24 days, and the
// test would run into its own time-out.
TEST_F(SettingsOfAConnection, ATimeoutWithACapitalXEndsEveryWaitAtOnce) {
  mDirectory.writeSettings("TUIsFilePath=\nRxWaitTimeout=0X7FFFFFFF\n");
  SluiceHubSimRule silence{};
  silence.flags = SLUICEHUBSIM_DROP;
  SluiceHubSim_AddRule(&silence);
  std::uint32_t handle = 0;
  ASSERT_EQ(BrelInit(&handle, nullptr, 0, nullptr, nullptr, nullptr), 2U);
  void* answer = nullptr;
  std::uint32_t size = 0;
  EXPECT_EQ(BrelInvokeTask(handle, "TASK_ID_APPLICATION_DEBUG_VAL", 0, nullptr, 0, 0, 1, nullptr, &answer, &size,
                           nullptr, nullptr),
            1U);
  EXPECT_EQ(answer, nullptr);
  EXPECT_EQ(BrelFinalize(handle), 2U);
}

}  // namespace
}  // namespace kel::test
