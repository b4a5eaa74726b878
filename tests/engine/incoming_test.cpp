// SPDX-License-Identifier: MIT
// The way in: how a record that comes from the adapter finds a sequence, a listener or nobody.
#include <future>
#include <thread>

#include "adapter/Dorv.h"
#include "engine/IncomingData.h"
#include "engine/engine_test.h"

namespace kel::test {
namespace {

void Ignore(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
}

class IncomingTest : public EngineTest {
 protected:
  static std::uint32_t come(const std::vector<std::uint8_t>& record, std::uint32_t dorvHandle = 0) {
    return BrelEngineCallback(dorvHandle, record.data(), static_cast<std::uint32_t>(record.size()));
  }
  /// The line about a record for sequence 0 of each class of the sequence byte.
  static Log& tellClass(Log& log, std::uint32_t seqClass) {
    log.info("BrelEngineCallback", "callback - callback received \n");
    switch (seqClass) {
      case 0:
        return log.info("BrelEngineCallback", "Got callback with ACK for sequence number 0 \n");
      case 1:
        return log.info("BrelEngineCallback", "Got callback with Stream_MESSAGE for sequence number 0 \n");
      case 2:
        return log.info("BrelEngineCallback", "Got callback with Stream_END for sequence number 0 \n");
      default:
        return log.error("BrelEngineCallback",
                         "Got callback with unknown sequence number type for sequence number 0 \n");
    }
  }
};

TEST_F(IncomingTest, AnUnknownAdapterHandleIsTurnedAwayInSilence) {
  start();
  engineLog.fresh();
  for (const std::uint32_t dorvHandle : {1u, 15u, 16u, 255u}) {
    EXPECT_EQ(come(Record(kDebugValTui, 0, 0, ""), dorvHandle), 0u);
    EXPECT_EQ(BrelEngineCallback(dorvHandle, nullptr, 0), 0u);
    EXPECT_EQ(BrelEngineAlertsCallback(dorvHandle, 4), 0u);
  }
  EXPECT_EQ(engineLog.fresh(), "");
}

TEST_F(IncomingTest, ABufferWithoutARecordIsInvalid) {
  start();
  engineLog.fresh();
  const auto record = Record(kDebugValTui, 0, 0, "payload");
  const std::string line =
      EngineLog().error("BrelEngineCallback", "callback - error - invalid buffer received \n").text();
  EXPECT_EQ(BrelEngineCallback(0, nullptr, 0), 0u);
  EXPECT_EQ(engineLog.fresh(), line);
  EXPECT_EQ(BrelEngineCallback(0, nullptr, 100), 0u);
  EXPECT_EQ(engineLog.fresh(), line);
  EXPECT_EQ(BrelEngineCallback(0, record.data(), 0), 0u);
  EXPECT_EQ(engineLog.fresh(), line);
}

TEST_F(IncomingTest, ARecordThatIsShorterThanItTellsIsNeverReadBeyondItsEnd) {
  start(&Ignore);
  for (std::uint32_t size = 1; size < 23; ++size) {
    // Exactly as large as told, so that a sanitizer sees a read behind it.
    for (const std::uint32_t word : {kDebugValTui, 5u << 12}) {
      auto record = Record(word, 0, 0, "payload");
      record.resize(size);
      record.shrink_to_fit();
      EXPECT_EQ(come(record), 0u) << size;
    }
  }
  auto endless = Record(kDebugValTui, 0, 0, "");
  std::memset(endless.data() + 12, 0xFF, 4);
  EXPECT_EQ(come(endless), 0u);
}

TEST_F(IncomingTest, ABroadcastIsNeverLookedUpAmongTheSequences) {
  start();
  LogFile sequencerLog("Brel_Tasks_Sequencer.logs");
  engineLog.fresh();
  for (const std::uint32_t sequenceByte : {0u, 5u, 64u, 128u, 0xC5u, 255u}) {
    EXPECT_EQ(come(Record(0x5000 | sequenceByte << 24, 0, 0, "")), 1u);
    EXPECT_EQ(engineLog.fresh(),
              EngineLog()
                  .info("BrelEngineCallback", "callback - callback received \n")
                  .info("BrelEngineCallback", "callback - Broadcast arrived but no broadcast callback exists \n")
                  .text());
  }
  EXPECT_EQ(sequencerLog.fresh(), "");
}

TEST_F(IncomingTest, ARecordForANumberThatIsNotOpenIsDropped) {
  start();
  engineLog.fresh();
  for (const std::uint32_t seqClass : {0u, 1u, 2u, 3u}) {
    EXPECT_EQ(come(Record(kDebugValTui | seqClass << 30, 0, 0, "")), 0u);
    Log log = EngineLog();
    EXPECT_EQ(engineLog.fresh(),
              tellClass(log, seqClass)
                  .error("BrelEngineCallback", "could not retrieve sequence type info for sequence number 0 \n")
                  .text());
  }
}

class SequenceClassTest : public IncomingTest, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(SequenceClassTest, OfAnyKindIsFiledForTheClientThatWaitsWithoutAStream) {
  const std::uint32_t handle = start();
  SluiceHubSimRule rule = RuleFor(0, SLUICEHUBSIM_CLASS | SLUICEHUBSIM_BEFORE_REPLY);
  rule.seqClass = GetParam();
  AddRule(rule);
  engineLog.fresh();
  EXPECT_EQ(InvokeVal(handle, {1, 2, 3}).payload, Bytes({1, 2, 3}));
  Log log = EngineLog();
  EXPECT_THAT(engineLog.fresh(),
              ::testing::HasSubstr(tellClass(log, GetParam())
                                       .info("BrelEngineCallback", "callback - Sequence buffer copied & event set \n")
                                       .text()));
}

INSTANTIATE_TEST_SUITE_P(Classes, SequenceClassTest, ::testing::Values(0u, 1u, 2u, 3u));

TEST_F(IncomingTest, TheConsoleNamesTheWayInAheadOfEachLine) {
  folder.writeSettings("LogToConsole=1\n");
  start();
  ::testing::internal::CaptureStdout();
  come({});
  come(Record(kDebugValTui | 0xC5u << 24, 0, 0, ""));
  come(Record(kDebugValTui | 69u << 24, 0, 0, ""));
  come(Record(kDebugValTui | 133u << 24, 0, 0, ""));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "BrelEngineCallback - callback - error - invalid buffer received \n"
            "BrelEngineCallback - callback - callback received \n"
            "BrelEngineCallback - Got callback with unknown sequence number type for sequence number 5 \n"
            "BrelEngineCallback - could not retrieve sequence type info for sequence number 5 \n"
            "BrelEngineCallback - callback - callback received \n"
            "BrelEngineCallback - Got callback with Stream_MESSAGE for sequence number 5 \n"
            "BrelEngineCallback - could not retrieve sequence type info for sequence number 5 \n"
            "BrelEngineCallback - callback - callback received \n"
            "BrelEngineCallback - Got callback with Stream_END for sequence number 5 \n"
            "BrelEngineCallback - could not retrieve sequence type info for sequence number 5 \n");
}

TEST_F(IncomingTest, ARecordReachesTheEngineOfItsAdapterRowAlone) {
  folder.writeSettings("RxWaitTimeout=0\n");
  const std::uint32_t first = start();
  start();
  DropRequests(kDebugValTui);
  EXPECT_EQ(InvokeVal(first, {}).status, 1u);  // opens number 0 of the first engine
  EXPECT_EQ(come(Record(kDebugValTui, 0, 0, ""), 0), 1u);
  EXPECT_EQ(come(Record(kDebugValTui, 0, 0, ""), 1), 0u);
}

TEST_F(IncomingTest, WhatIsKeptIsACopy) {
  folder.writeSettings("RxWaitTimeout=30000\n");
  const std::uint32_t handle = start();
  DropRequests(kDebugRefTui);
  auto task = std::async(std::launch::async, [&] { return Invoke(handle, kDebugRef, nullptr, 0); });
  ASSERT_EQ(SluiceHubSim_WaitForRequests(1, kLong), 1u);
  auto record = Record(kDebugRefTui, 0, 0, "first");
  EXPECT_EQ(come(record), 1u);
  std::fill(record.begin(), record.end(), std::uint8_t{0xEE});
  EXPECT_EQ(task.get().payload, "first");
}

// ---------------------------------------------------------------------------------------------------------------------
// Asynchronous sequences: the way is asynchronous whatever the class
// ---------------------------------------------------------------------------------------------------------------------

// One class in a process: the listener refuses it, logs that on its own thread, and keeps the engine's lock for good.
class PlainSequenceTest : public IncomingTest, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(PlainSequenceTest, OfAnAsynchronousTaskAnyClassGoesToTheListener) {
  const std::uint32_t handle = start();
  DropRequests(kDebugValTui);
  LogFile sequencerLog("Brel_Tasks_Sequencer.logs");
  std::uint32_t seqNum = 0;
  ASSERT_EQ(BrelInvokeAsyncTask(handle, kDebugVal, 1, nullptr, 0, 0, 1, &seqNum, nullptr, nullptr), kStatusOk);
  EXPECT_EQ(come(Record(kDebugValTui | seqNum << 24 | GetParam() << 30, 0, 0, "")), 1u);
  EXPECT_THAT(sequencerLog.fresh(),
              ::testing::HasSubstr("InsertAsyncDataBySeqNum - inserted async data for sequence number 0"));
  leavesEngines = true;
}

INSTANTIATE_TEST_SUITE_P(Classes, PlainSequenceTest, ::testing::Values(1u, 2u, 3u));

}  // namespace
}  // namespace kel::test
