// SPDX-License-Identifier: MIT
// Bringing an engine up with version control.
#include "engine/Instances.h"
#include "versioning/versioning_test.h"

namespace kel::test {

// clang-format off
struct TaskListOf { friend auto memberOf(TaskListOf); };
struct LogToConsoleOf { friend auto memberOf(LogToConsoleOf); };
struct ValidateTable { friend auto memberOf(ValidateTable); };
struct LoadVectors { friend auto memberOf(LoadVectors); };
struct VectorCountOf { friend auto memberOf(VectorCountOf); };
// clang-format on
template struct OpenMember<TaskListOf, &BrelEngine::mTUIsList>;
template struct OpenMember<LogToConsoleOf, &BrelEngine::mLogToConsole>;
template struct OpenMember<ValidateTable, &BrelEngine::VersionValidateKelAllTasksFile>;
template struct OpenMember<LoadVectors, &BrelEngine::LoadVersionsVectorsResources>;
template struct OpenMember<VectorCountOf, &BrelEngine::mVersionsVectorCount>;

namespace {

const std::vector<std::string> kMissingSides = {"KernelMode Driver", "Firmware", "UpperDSPS"};

class ActivationTest : public VersioningTest {
 protected:
  ActivationTest() {
    tellAll();
    ReportUids({kBuiltInUID, 0, 0, 0});
  }

  /// An activation that fails: the front function tells no more than that, and leaves no engine behind.
  Transcript saidByFailing(const char* TUIsFilePath = nullptr) {
    const Transcript said = recorder.of([&] {
      std::uint32_t handle = kNoBrelHandle;
      EXPECT_EQ(activate(&handle, nullptr, TUIsFilePath), kStatusFailed);
      EXPECT_EQ(handle, 0u);
    });
    EXPECT_EQ(GetBrelInst(0), nullptr);
    EXPECT_EQ(OpenConnections(), 0u);
    return said;
  }

  /// The engine's own word on the same failure.
  static Status statusOfInit(const char* TUIsFilePath = nullptr) {
    std::uint32_t handle = kNoBrelHandle;
    const Status status = AddBrelInst(&handle)->init(TUIsFilePath, true, nullptr);
    RemoveBrelInst(handle);
    return status;
  }
};

TEST_F(ActivationTest, WithTheBuiltInVectorsTellsOfThoseThatAreMissing) {
  const Transcript said = recorder.of([&] {
    std::uint32_t handle = kNoBrelHandle;
    EXPECT_EQ(activate(&handle), kStatusOk);
  });
  EXPECT_EQ(said, connected() + fetched() + vectorsMissing(kMissingSides) + builtInTableRetrieved() + activated());
  EXPECT_EQ(Requests(), 1u);
}

TEST_F(ActivationTest, TheBuiltInVectorsAreCountedAnewEachTime) {
  BrelEngine engine;
  for (int i = 0; i < 6; ++i) {
    (engine.*memberOf(LoadVectors{}))();
    EXPECT_EQ(engine.*memberOf(VectorCountOf{}), 1u);
  }
}

TEST_F(ActivationTest, WithAPathLooksForNoBuiltInVectors) {
  const Transcript said = recorder.of([&] {
    std::uint32_t handle = kNoBrelHandle;
    EXPECT_EQ(activate(&handle, "vectors"), kStatusOk);
  });
  EXPECT_EQ(said, connected() + fetched() + builtInTableRetrieved() + activated());
}

TEST_F(ActivationTest, ChecksAnExternalTableIfThereIsOne) {
  folder.write("tasks.csv", "TASK_ID_VERSIONS_GET_UIDS,  0, 8, KEL_UPPER_DSPS, 1, VAL, 98560, 0x18100\n");
  const Transcript said = recorder.of([&] {
    std::uint32_t handle = kNoBrelHandle;
    EXPECT_EQ(activate(&handle, nullptr, "./tasks.csv"), kStatusOk);
  });
  EXPECT_EQ(said, connected(true) + fetched() + vectorsMissing(kMissingSides) + activated());
}

TEST_F(ActivationTest, TakesAnyByteThatIsNotZeroForYes) {
  std::uint32_t handle = kNoBrelHandle;
  EXPECT_EQ(BrelInit(&handle, nullptr, 0x80, nullptr, nullptr, nullptr), kStatusOk);
  EXPECT_EQ(Requests(), 1u);
}

// ---------------------------------------------------------------------------------------------------------------------
// Failures
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ActivationTest, FailsIfTheUidsAreRefused) {
  RefuseUids();
  EXPECT_EQ(saidByFailing(),
            connected() + notFetched(asked().refused("IssueCommandBase").freed(0)) + tornDown() + removed());
  EXPECT_EQ(statusOfInit(), 21u);
}

TEST_F(ActivationTest, FailsIfTheUidsDoNotComeInTime) {
  tellAll(10);
  SluiceHubSim_ClearRules();
  DropRequests(kUidsTui);
  EXPECT_EQ(saidByFailing(), connected() +
                                 notFetched(asked()
                                                .sent("IssueCommandBase")
                                                .waited("error", "IssueCommandBase",
                                                        "WAIT_TIMEOUT exceeded while waiting for Rx from Dorv. \n")) +
                                 tornDown() + removed().freed(0));  // by the engine's end
  EXPECT_EQ(statusOfInit(), 21u);
}

TEST_F(ActivationTest, FailsIfThereAreNoUids) {
  ReportUids({0, 0, 0, 0});
  EXPECT_EQ(saidByFailing(), connected() + fetchedNone(fetched()) + tornDown() + removed());
  EXPECT_EQ(statusOfInit(), 21u);
}

TEST_F(ActivationTest, FailsIfTheTableHasNoTaskForTheUids) {
  folder.write("KEL_ALLTASKS.csv", "ANOTHER_TASK,  0, 0, KEL_TRACE, 1, REF, 614400, 0x96000\n");
  EXPECT_EQ(saidByFailing(), connected(true) + notFetched(Transcript().error("InvokeTask", "could not find TUI \n")) +
                                 tornDown() + removed());
  EXPECT_EQ(statusOfInit(), 21u);
}

TEST_F(ActivationTest, FailsIfTheTablesNameEndsInASeparatorWhichIsCutOff) {
  EXPECT_EQ(saidByFailing("no such folder/"),
            connected() + fetched() + vectorsMissing(kMissingSides) + builtInTableRetrieved() +
                Transcript()
                    .error("VersionValidateKelAllTasksFile", "BrelValidateVersion() of KEL_ALLTASKS.csv failed. \n")
                    .error("InitVersioningSupport", "Version validation of KELALLTASKS.csv file failed! \n") +
                tornDown() + removed());
  EXPECT_EQ(statusOfInit("no such folder/"), 21u);

  std::uint32_t handle = kNoBrelHandle;
  const std::shared_ptr<BrelEngine> engine = AddBrelInst(&handle);
  EXPECT_EQ(engine->init("no such folder/", true, nullptr), 21u);
  const char* name = nullptr;
  const char* table = nullptr;
  std::uint32_t size = 0;
  EXPECT_TRUE(((*engine).*memberOf(TaskListOf{})).RetrieveRawTUIsList(&name, &table, &size));
  EXPECT_STREQ(name, "no such folder");
  // Version control is off again.
  ClientFile file;
  EXPECT_EQ(engine->ValidateVersion(file.name.data(), nullptr, 0, nullptr, nullptr), 23u);
  RemoveBrelInst(handle);
}

/// An engine that never came up: its task list is empty.
class TableCheckTest : public VersioningTest {
 protected:
  TableCheckTest() { (engine.*memberOf(LogToConsoleOf{})) = 1; }
  ~TableCheckTest() override { engine.Finalize(); }

  Transcript saidByChecking() {
    return recorder.of([&] { EXPECT_FALSE((engine.*memberOf(ValidateTable{}))()); });
  }

  BrelEngine engine;
};

TEST_F(TableCheckTest, FailsIfThereIsNeitherABuiltInTableNorAFile) {
  EXPECT_EQ(saidByChecking(), Transcript().error("VersionValidateKelAllTasksFile",
                                                 "KEL_ALLTASKS.csv retrieval attempt returned NULL name or buffer. "
                                                 "\n"));
}

TEST_F(TableCheckTest, FailsIfTheTableCannotBeRetrieved) {
  folder.write("KEL_ALLTASKS.csv", "");
  EXPECT_EQ(saidByChecking(),
            Transcript().error("VersionValidateKelAllTasksFile", "KEL_ALLTASKS.csv retrieval failed. \n"));
}

}  // namespace
}  // namespace kel::test
