// SPDX-License-Identifier: MIT
// The table's mutex: left behind by a thread that ended, held by another one, and impossible to release.
#include <functional>
#include <thread>

#include "sequencer/sequencer_test.h"
#include "support/log_file.h"
#include "support/platform_calls.h"
#include "support/private_member.h"

namespace kel::test {

struct TableMutexOf {
  friend auto memberOf(TableMutexOf);
};
template struct OpenMember<TableMutexOf, &BrelTasksSequencer::mMutex>;

namespace {

class SequencerMutex : public Sequencer {
 protected:
  platform::Handle& mutex() { return ((*sequencer).*memberOf(TableMutexOf{})).handle; }

  void abandon() {
    std::thread([this] { ASSERT_EQ(platform::waitForOne(mutex(), 0), platform::kWaitObject); }).join();
  }

  /// Puts another object in the place of the mutex while `work` runs.
  void with(platform::Handle other, const std::function<void()>& work) {
    const platform::Handle own = mutex();
    mutex() = other;
    work();
    mutex() = own;
  }
};

TEST_F(SequencerMutex, CountsAsAcquiredIfItsOwnerEndedWithIt) {
  const Opened opened = assign();
  const std::function<void()> operations[] = {
      [&] { EXPECT_EQ(assign().status, SEQ_ASSIGN_OK); },
      [&] { EXPECT_EQ(insertData(opened.seqNum, "filed").status, SEQ_INSERT_OK); },
      [&] { EXPECT_EQ(insertAsyncData(opened.seqNum, "queued").status, SEQ_INSERT_OK); },
      [&] { EXPECT_EQ(sequencer->InsertAckBySeqNum(opened.seqNum), SEQ_INSERT_OK); },
      [&] { EXPECT_EQ(sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, nullptr, kListener), SEQ_INSERT_OK); },
      [&] { EXPECT_EQ(retrieveData(opened.seqNum).status, SEQ_RETRIEVE_OK); },
      // Its first step takes the mutex as found, its second then cleanly.
      [&] { EXPECT_EQ(retrieveNext(opened.seqNum).status, SEQ_RETRIEVE_OK); },
      [&] { EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK); },
  };
  for (const auto& operation : operations) {
    abandon();
    operation();
    // And it was given back.
    std::thread([this] {
      EXPECT_EQ(platform::waitForOne(mutex(), 0), platform::kWaitObject);
      EXPECT_TRUE(platform::releaseMutex(mutex()));
    }).join();
  }
}

TEST_F(SequencerMutex, KeepsTheDestructorFromFreeingAnythingIfItsOwnerEndedWithIt) {
  const Opened opened = assign();
  abandon();
  sequencer.reset();
  for (platform::Handle event : {opened.syncDataEvent, opened.aSyncDataEvent, opened.stopEvent}) {
    EXPECT_TRUE(platform::setEvent(event));
  }
}

// To be refused is not to be spared: the wait has made its thread the owner, which has nothing to give back for.
TEST_F(SequencerMutex, StaysWithAThreadThatRefusesItAsAbandoned) {
  const Opened opened = assign();
  insertAsyncData(opened.seqNum, "queued");
  std::thread([&] {
    const AfterReleaseMutex betweenTheTwoSteps([this] { abandon(); });
    EXPECT_EQ(retrieveNext(opened.seqNum).status, SEQ_RETRIEVE_FAILED);
    std::thread([this] { EXPECT_EQ(platform::waitForOne(mutex(), 0), platform::kWaitTimeout); }).join();
    EXPECT_TRUE(platform::releaseMutex(mutex()));
    EXPECT_FALSE(platform::releaseMutex(mutex()));  // once
  }).join();
  EXPECT_EQ(retrieveNext(opened.seqNum).text(), "queued");

  abandon();
  const platform::Handle handle = mutex();
  sequencer.reset();
  std::thread([&] { EXPECT_EQ(platform::waitForOne(handle, 0), platform::kWaitTimeout); }).join();
  EXPECT_TRUE(platform::releaseMutex(handle));
}

TEST_F(SequencerMutex, FailsEachOperationInItsOwnWayIfItIsNotToBeHad) {
  const Opened opened = assign();
  insertAsyncData(opened.seqNum, "queued");
  LogFile log("Brel_Tasks_Sequencer.logs");
  log.fresh();
  sequencer->mLogToConsole = 1;
  testing::internal::CaptureStdout();
  with(nullptr, [&] {
    const Opened refused = assign();
    EXPECT_EQ(refused.status, SEQ_ASSIGN_FAILED);
    EXPECT_EQ(refused.seqNum, 999u);
    EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_FAILED);
    EXPECT_EQ(insertData(opened.seqNum, "x").status, SEQ_INSERT_FAILED);
    EXPECT_EQ(insertAsyncData(opened.seqNum, "x").status, SEQ_INSERT_FAILED);
    EXPECT_EQ(sequencer->InsertAckBySeqNum(opened.seqNum), SEQ_INSERT_FAILED);
    EXPECT_EQ(sequencer->InsertAsyncListenerInfoBySeqNum(opened.seqNum, nullptr, kListener), SEQ_INSERT_FAILED);
    EXPECT_EQ(retrieveData(opened.seqNum).status, SEQ_RETRIEVE_FAILED);
    EXPECT_EQ(retrieveNext(opened.seqNum).status, SEQ_RETRIEVE_FAILED);
  });
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(log.fresh(), "");

  const sequence_snapshot snapshot = retrieve(opened.seqNum);
  EXPECT_FALSE(snapshot.ackArrived);
  EXPECT_EQ(snapshot.bufferSize, 0u);
  EXPECT_EQ(snapshot.asyncListenerInstance, nullptr);
  EXPECT_EQ(retrieveNext(opened.seqNum).text(), "queued");
  EXPECT_EQ(assign().seqNum, 1u);
}

// An event can be waited for but not given back.
TEST_F(SequencerMutex, FailsAnOperationWhoseWorkIsDoneIfItCannotBeGivenBack) {
  const platform::Handle unreleasable = platform::createEvent(true, true);
  with(unreleasable, [&] {
    EXPECT_EQ(assign().status, SEQ_ASSIGN_FAILED);
    EXPECT_EQ(insertData(0, "filed").status, SEQ_INSERT_FAILED);
    EXPECT_EQ(insertAsyncData(0, "queued").status, SEQ_INSERT_FAILED);
    EXPECT_EQ(sequencer->InsertAckBySeqNum(0), SEQ_INSERT_FAILED);
    const Taken taken = retrieveData(0);
    EXPECT_EQ(taken.status, SEQ_RETRIEVE_FAILED);
    EXPECT_EQ(taken.buffer, nullptr);
    EXPECT_EQ(taken.size, 0u);
    // Of a lookup of everything it is the caller's.
    sequence_snapshot snapshot;
    EXPECT_EQ(sequencer->RetrieveBySeqNum(0, &snapshot), SEQ_RETRIEVE_FAILED);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(snapshot.buffer), snapshot.bufferSize), "filed");
    std::free(snapshot.buffer);
  });
  EXPECT_TRUE(retrieve(0).ackArrived);
  EXPECT_EQ(retrieveData(0).text(), "filed");
  EXPECT_EQ(retrieveNext(0).text(), "queued");

  with(unreleasable, [&] {
    EXPECT_EQ(retrieveNext(0).status, SEQ_RETRIEVE_FAILED);
    EXPECT_EQ(sequencer->FreeSequence(0), SEQ_FREE_FAILED);
  });
  EXPECT_FALSE(isOpen(0));
  platform::closeHandle(unreleasable);
}

TEST_F(SequencerMutex, IsWaitedForAMinuteAndForTheNextBufferFiveSeconds) {
  const auto waitsOf = [](const std::function<void()>& operation) {
    const NotedTimes times;
    operation();
    return times.waits;
  };
  const std::vector<std::uint32_t> aMinute{60000};
  EXPECT_EQ(waitsOf([] { BrelTasksSequencer(); }).front(), 60000u);
  EXPECT_EQ(waitsOf([&] { assign(); }), aMinute);
  EXPECT_EQ(waitsOf([&] { insertData(0, "filed"); }), aMinute);
  EXPECT_EQ(waitsOf([&] { insertAsyncData(0, "queued"); }), aMinute);
  EXPECT_EQ(waitsOf([&] { sequencer->InsertAckBySeqNum(0); }), aMinute);
  EXPECT_EQ(waitsOf([&] { sequencer->InsertAsyncListenerInfoBySeqNum(0, nullptr, kListener); }), aMinute);
  EXPECT_EQ(waitsOf([&] { retrieve(0); }), aMinute);
  EXPECT_EQ(waitsOf([&] { retrieveNext(0); }), (std::vector<std::uint32_t>{60000, 5000}));
  EXPECT_EQ(waitsOf([&] { sequencer->FreeSequence(0); }), aMinute);
  EXPECT_EQ(waitsOf([&] { sequencer.reset(); }), std::vector<std::uint32_t>(1 + kSequenceNumbers, 60000));
}

TEST_F(SequencerMutex, MayBeTakenAgainByItsOwner) {
  ASSERT_EQ(platform::waitForOne(mutex(), 0), platform::kWaitObject);
  const Opened opened = assign();
  EXPECT_EQ(opened.status, SEQ_ASSIGN_OK);
  EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK);
  EXPECT_TRUE(platform::releaseMutex(mutex()));
}

TEST_F(SequencerMutex, HoldsOtherThreadsUpWhileItIsTaken) {
  ASSERT_EQ(platform::waitForOne(mutex(), 0), platform::kWaitObject);
  std::atomic<bool> assigned{false};
  const platform::Handle begun = platform::createEvent(false, false);
  std::thread other([&] {
    platform::setEvent(begun);
    EXPECT_EQ(assign().status, SEQ_ASSIGN_OK);
    assigned = true;
  });
  platform::waitForOne(begun, platform::kInfinite);
  EXPECT_FALSE(assigned);
  EXPECT_TRUE(platform::releaseMutex(mutex()));
  other.join();
  EXPECT_TRUE(assigned);
  platform::closeHandle(begun);
}

}  // namespace
}  // namespace kel::test
