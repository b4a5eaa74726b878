// SPDX-License-Identifier: MIT
// What is said about dumps, and how they fail without consequence.
#include "dumps/dump_test.h"
#include "support/failing_files.h"

namespace kel::test {

// clang-format off
struct DumpRequest { friend auto memberOf(DumpRequest); };
struct DumpResponse { friend auto memberOf(DumpResponse); };
struct DumpWhole { friend auto memberOf(DumpWhole); };
struct DumpPayload { friend auto memberOf(DumpPayload); };
// clang-format on
template struct OpenMember<DumpRequest, &BrelEngine::DumpRequestBuffer>;
template struct OpenMember<DumpResponse, &BrelEngine::DumpResponseBuffer>;
template struct OpenMember<DumpWhole, &BrelEngine::DumpStruct>;
template struct OpenMember<DumpPayload, &BrelEngine::DumpStructPayload>;

namespace {

class DumpReport : public DumpTest {
 protected:
  /// An engine that prints what it says. Its answers come before its sends return.
  std::uint32_t startTold(const std::vector<const char*>& dumps) {
    dump(dumps, "LogToConsole=1\n");
    std::uint32_t handle = kNoBrelHandle;
    recorder.of([&] { handle = start(); });
    AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));
    return handle;
  }

  /// A task that is done, with what is said of its request's dumps and of its response's.
  static Transcript taskWith(const Transcript& requestDumps, const Transcript& responseDumps) {
    return Transcript()
               .printed("\nTUI = 229952\n")
               .assigned(0)
               .info("IssueCommandBase", "assigned sequence number 0 \n")
               .sentAndAnswered("IssueCommandBase", 0) +=
           (Transcript(requestDumps).answerTaken("IssueCommandBase", 0) += responseDumps)
               .info("IssueCommandBase", "response received from Dorv \n");
  }

  Transcript saidByTask(std::uint32_t handle) {
    return recorder.of([&] { EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).payload, Bytes({1, 2, 3})); });
  }
};

const Transcript& GotVal() {
  static const Transcript said = Transcript().info("DumpStructPayload", "DumpStructPayload got a VAL call \n");
  return said;
}

/// A dump that could not be done: why, and what the caller makes of it.
Transcript Failed(const std::string& dumper, const std::string& problem, const std::string& caller,
                  const std::string& what, const std::string& file) {
  return Transcript().error(dumper, problem).error(caller, "Error dumping to " + what + " dump file: " + file + " \n");
}

TEST_F(DumpReport, IsNothingForAWholeRecordAndALineForAPayload) {
  EXPECT_EQ(saidByTask(startTold({kRequestDump, kResponseDump})), taskWith({}, {}));
}

TEST_F(DumpReport, NamesThePayloadsForm) {
  EXPECT_EQ(saidByTask(startTold({kRequestPayloadDump, kResponsePayloadDump})), taskWith(GotVal(), GotVal()));
}

TEST_F(DumpReport, NamesAReferencesFormToo) {
  const std::uint32_t handle = startTold({kResponsePayloadDump});
  answerWith(1, "text");
  const Transcript said = recorder.of([&] { EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).payload, "text"); });
  EXPECT_EQ(said, taskWith({}, Transcript().info("DumpStructPayload", "DumpStructPayload got a REF call \n")));
}

// ---------------------------------------------------------------------------------------------------------------------
// Files that do not open
// ---------------------------------------------------------------------------------------------------------------------

/// A dump whose name is a folder's, and what is said of it.
struct Unopened {
  const char* dump;
  const char* dumper;
  const char* caller;
  const char* what;
  bool isRequest;
};

void PrintTo(const Unopened& unopened, std::ostream* out) { *out << unopened.dump; }

class UnopenedDump : public DumpReport, public ::testing::WithParamInterface<Unopened> {
 protected:
  static Transcript expected() {
    const Transcript failed =
        Failed(GetParam().dumper, std::string("Could not open ") + GetParam().dumper + " file. \n", GetParam().caller,
               GetParam().what, GetParam().dump);
    return GetParam().isRequest ? taskWith(failed, {}) : taskWith({}, failed);
  }
};

TEST_P(UnopenedDump, IsToldAndTheTaskGoesOn) {
  std::filesystem::create_directory(GetParam().dump);
  EXPECT_EQ(saidByTask(startTold({GetParam().dump})), expected());
}

TEST_P(UnopenedDump, IsTriedAgainAtTheNextRecord) {
  std::filesystem::create_directory(GetParam().dump);
  const std::uint32_t handle = startTold({GetParam().dump});
  recorder.of([&] { InvokeVal(handle, {1, 2, 3}); });
  LogFile log("Brel.logs");
  log.fresh();
  recorder.of([&] { InvokeVal(handle, {1, 2, 3}); });
  EXPECT_THAT(log.fresh(), ::testing::HasSubstr("Could not open "));
  std::filesystem::remove(GetParam().dump);
  recorder.of([&] { InvokeVal(handle, {1, 2, 3}); });
  EXPECT_THAT(log.fresh(), ::testing::Not(::testing::HasSubstr("Could not open ")));
  EXPECT_NE(RawFile(GetParam().dump), "");
}

INSTANTIATE_TEST_SUITE_P(
    Dumps, UnopenedDump,
    ::testing::Values(Unopened{kRequestDump, "DumpStruct", "DumpRequestBuffer", "RequestStruct", true},
                      // Without a word for the payload: so it is.
                      Unopened{kRequestPayloadDump, "DumpStructPayload", "DumpRequestBuffer", "RequestStruct", true},
                      Unopened{kResponseDump, "DumpStruct", "DumpResponseBuffer", "ResponseStruct", false},
                      Unopened{kResponsePayloadDump, "DumpStructPayload", "DumpResponseBuffer", "ResponseStructPayload",
                               false}));

TEST_F(DumpReport, OfOneFileThatDoesNotOpenLeavesTheOthersAlone) {
  std::filesystem::create_directory(kRequestDump);
  std::filesystem::create_directory(kResponseDump);
  const std::uint32_t handle = startTold({kRequestDump, kRequestPayloadDump, kResponseDump, kResponsePayloadDump});
  Transcript request =
      Failed("DumpStruct", "Could not open DumpStruct file. \n", "DumpRequestBuffer", "RequestStruct", kRequestDump);
  Transcript response =
      Failed("DumpStruct", "Could not open DumpStruct file. \n", "DumpResponseBuffer", "ResponseStruct", kResponseDump);
  EXPECT_EQ(saidByTask(handle), taskWith(request += GotVal(), response += GotVal()));
  EXPECT_EQ(RawFile(kRequestPayloadDump), ValDump(1, 2, 3));
  EXPECT_EQ(RawFile(kResponsePayloadDump), ValDump(1, 2, 3));
}

// ---------------------------------------------------------------------------------------------------------------------
// Files that cannot be written or closed
// ---------------------------------------------------------------------------------------------------------------------

/// Dumps records by hand.
class DumpFailure : public DumpReport {
 protected:
  DumpFailure() : engine(GetBrelInst(startTold({kRequestDump, kRequestPayloadDump}))) {}

  const task* record(std::uint32_t TUI, const std::string& payload) {
    mRecord = Record(TUI, 1, 0, payload);
    return reinterpret_cast<const task*>(mRecord.data());
  }

  template <class Tag>
  bool dumpBy(Tag tag, const task* dumped) {
    return ((*engine).*memberOf(tag))("file", dumped, 0);
  }

  std::shared_ptr<BrelEngine> engine;

 private:
  std::vector<std::uint8_t> mRecord;
};

TEST_F(DumpFailure, ASizeThatIsToldBesideTheRecordIsNotLookedAt) {
  for (const std::uint32_t size : {0u, 1u, 0xFFFFFFFFu}) {
    EXPECT_TRUE(((*engine).*memberOf(DumpRequest{}))(record(kDebugRefTui, "payload"), size));
    EXPECT_EQ(RawFile(kRequestDump), StructDump(kDebugRefTui, 1, 0, "payload"));
    EXPECT_EQ(RawFile(kRequestPayloadDump), RefDump("payload"));
  }
}

TEST_F(DumpFailure, OfAnIncompleteRecordIsToldAndItsBeginningStays) {
  const task* dumped = record(kDebugRefTui, "payload");
  const Transcript said = recorder.of([&] {
    const FailingWrite failing;
    EXPECT_FALSE(dumpBy(DumpWhole{}, dumped));
  });
  EXPECT_EQ(said, Transcript().error("DumpStruct", "Could not complete dump to DumpStruct file. \n"));
  const std::string whole = StructDump(kDebugRefTui, 1, 0, "payload");
  EXPECT_EQ(RawFile("file"), whole.substr(0, whole.size() - 1));
}

TEST_F(DumpFailure, OfAnIncompletePayloadIsToldAheadOfItsForm) {
  const task* dumped = record(kDebugRefTui, "payload");
  const Transcript said = recorder.of([&] {
    const FailingWrite failing;
    EXPECT_FALSE(dumpBy(DumpPayload{}, dumped));
  });
  EXPECT_EQ(said, Transcript()
                      .error("DumpStructPayload", "Could not complete dump to DumpStructPayload file. \n")
                      .info("DumpStructPayload", "DumpStructPayload got a REF call \n"));
  const std::string whole = RefDump("payload");
  EXPECT_EQ(RawFile("file"), whole.substr(0, whole.size() - 1));
}

TEST_F(DumpFailure, OfAFileThatDoesNotCloseIsTold) {
  const task* dumped = record(kDebugValTui, Bytes({1, 2, 3}));
  Transcript said = recorder.of([&] {
    const FailingClose failing;
    EXPECT_FALSE(dumpBy(DumpWhole{}, dumped));
  });
  EXPECT_EQ(said, Transcript().error("DumpStruct", "Could not close DumpStruct file. \n"));
  said = recorder.of([&] {
    const FailingClose failing;
    EXPECT_FALSE(dumpBy(DumpPayload{}, dumped));
  });
  EXPECT_EQ(said, Transcript(GotVal()).error("DumpStructPayload", "Could not close DumpStructPayload file. \n"));
  // An unknown type has nothing to write and a file to close.
  dumped = record(kDebugValTui | 2 << 19, "");
  said = recorder.of([&] {
    const FailingClose failing;
    EXPECT_FALSE(dumpBy(DumpPayload{}, dumped));
  });
  EXPECT_EQ(said, Transcript().error("DumpStructPayload", "Could not close DumpStructPayload file. \n"));
}

TEST_F(DumpFailure, MayBeTwofold) {
  const task* dumped = record(kDebugRefTui, "payload");
  const Transcript said = recorder.of([&] {
    const FailingWrite failing;
    const FailingClose failingToo;
    EXPECT_FALSE(dumpBy(DumpWhole{}, dumped));
    EXPECT_FALSE(dumpBy(DumpPayload{}, dumped));
  });
  EXPECT_EQ(said, Transcript()
                      .error("DumpStruct", "Could not complete dump to DumpStruct file. \n")
                      .error("DumpStruct", "Could not close DumpStruct file. \n")
                      .error("DumpStructPayload", "Could not complete dump to DumpStructPayload file. \n")
                      .info("DumpStructPayload", "DumpStructPayload got a REF call \n")
                      .error("DumpStructPayload", "Could not close DumpStructPayload file. \n"));
}

TEST_F(DumpFailure, IsNoneOfTheCallersResult) {
  const task* dumped = record(kDebugRefTui, "payload");
  recorder.of([&] {
    const FailingClose failing;
    EXPECT_TRUE(((*engine).*memberOf(DumpRequest{}))(dumped, 0));
    EXPECT_TRUE(((*engine).*memberOf(DumpResponse{}))(dumped, 0));
  });
}

}  // namespace
}  // namespace kel::test
