// SPDX-License-Identifier: MIT
// What the engine does when the heap is exhausted while it is made or comes up.
#include <functional>
#include <future>
#include <new>
#include <thread>

#include "async/engine_inside.h"
#include "engine/IncomingData.h"
#include "engine/SequenceResponses.h"
#include "engine/engine_test.h"
#include "support/failing_heap.h"
#include "support/left_thread.h"

namespace kel::test {
namespace {

class AllocationTest : public EngineTest {
 protected:
  // A line of the log that finds no memory is lost and fails nothing.
  AllocationTest() {
    for (const char* level : {"Info", "Warn", "Err"}) registry.set(kLoggerRegistryKey, level, 0);
  }
};

TEST_F(AllocationTest, AnEngineThatCannotBeBuiltStaysCountedAndTheTableLocked) {
  std::uint32_t handle = 4711;
  // The object itself can be made. What its loggers lack they do without; the next member's lack is the engine's.
  const auto built = [&](int objects) {
    const FailingHeap heap(objects);
    try {
      return AddBrelInst(&handle) != nullptr;
    } catch (const std::bad_alloc&) {
      return false;
    }
  };
  for (int objects = 1; built(objects); ++objects) RemoveBrelInst(handle);

  // Another thread is turned away where no lock is asked for, and waits for ever where one is.
  std::async(std::launch::async, [] { EXPECT_EQ(GetBrelInst(16), nullptr); }).get();
  static std::promise<void> looked;
  std::future<void> seen = looked.get_future();
  LeaveToItself([] {
    GetBrelInst(0);
    looked.set_value();
  });
  EXPECT_EQ(seen.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);

  // This thread has the lock, and room for one engine less.
  for (std::uint32_t i = 0; i < 14; ++i) EXPECT_NE(AddBrelInst(&handle), nullptr);
  EXPECT_EQ(handle, 13u);
  EXPECT_EQ(AddBrelInst(&handle), nullptr);
  EXPECT_EQ(handle, kNoBrelHandle);
  leavesEngines = true;
}

TEST_F(AllocationTest, AnInitThatRunsOutOfMemoryGivesOneWithALine) {
  registry.set(kLoggerRegistryKey, "Err", 1);
  folder.writeSettings("LogToConsole=1\n");
  std::uint32_t handle = kNoBrelHandle;
  const auto engine = AddBrelInst(&handle);
  Status status = 0;
  ::testing::internal::CaptureStdout();
  {
    const FailingHeap heap(100);
    status = engine->init(nullptr, false, nullptr);
    EXPECT_TRUE(heap.failed());
  }
  EXPECT_EQ(status, kStatusFailed);
  EXPECT_THAT(::testing::internal::GetCapturedStdout(), ::testing::EndsWith("init - failed - exception caught! \n"));
  EXPECT_EQ(LogText("Brel.logs"), EngineLog().error("init", "failed - exception caught! \n").text());

  // It was not taken down, but its lock was given back.
  auto finalizing = std::async(std::launch::async, [&] { return engine->Finalize(); });
  EXPECT_EQ(finalizing.wait_for(std::chrono::milliseconds(kLong)), std::future_status::ready);
  EXPECT_EQ(finalizing.get(), kStatusOk);
  RemoveBrelInst(handle);
}

TEST_F(AllocationTest, AnInitThatRunsOutOfMemoryAheadOfTheAdapterLeavesNothingBehind) {
  // A line of the log that finds no memory fails nothing.
  for (const char* level : {"Info", "Warn", "Err"}) registry.set("Software\\Brel\\ALogger", level, 0);
  // Each of the 50 tasks takes some objects, so that all of these failures are behind the first and ahead of the
  // adapter.
  for (int objects = 0; objects < 100; ++objects) {
    std::uint32_t handle = kNoBrelHandle;
    auto engine = AddBrelInst(&handle);
    Status status = 0;
    {
      const FailingHeap heap(objects);
      status = engine->init(nullptr, false, nullptr);
      EXPECT_TRUE(heap.failed());
    }
    EXPECT_EQ(status, kStatusFailed) << objects;
    engine.reset();
    RemoveBrelInst(handle);
    EXPECT_EQ(GetBrelInst(handle), nullptr);
  }
  EXPECT_EQ(InvokeVal(start(), {1, 2, 3}).payload, Bytes({1, 2, 3}));
}

// Its listeners' threads are not waited for: they end by themselves, and the engine with the last of them.
TEST_F(AllocationTest, AnEngineThatIsGivenUpWithItsThreadsRunningLivesUntilTheyEnd) {
  int givenUp = 0;
  bool failed = true;
  for (int objects = 50; failed; ++objects) {
    std::uint32_t handle = kNoBrelHandle;
    Status status = kStatusFailed;
    const std::weak_ptr<BrelEngine> engine = [&] {
      const auto made = AddBrelInst(&handle);
      made->mBroadcastCallback = [](auto...) {};
      made->mAlertsCallback = [](auto...) {};
      const FailingHeap heap(objects);
      status = made->init(nullptr, false, nullptr);
      failed = heap.failed();
      return made;
    }();
    if (status == kStatusOk) {
      EXPECT_EQ(BrelFinalize(handle), kStatusOk);
    } else {
      ++givenUp;
      RemoveBrelInst(handle);
    }
    while (!engine.expired()) std::this_thread::yield();
  }
  EXPECT_GT(givenUp, 50);
}

// ---------------------------------------------------------------------------------------------------------------------
// What a client sees
// ---------------------------------------------------------------------------------------------------------------------

/// Has `work` fail for want of each object that it makes, and see every time that another thread's task is answered.
/// `work` gives a status, of which 2 may also mean that nothing but a line of the log was lost.
void FailEach(std::uint32_t handle, const std::function<Status()>& work) {
  bool failed = true;
  for (int objects = 0; failed; ++objects) {
    Status status = 4711;
    {
      const FailingHeap heap(objects);
      EXPECT_NO_THROW(status = work()) << "after " << objects << " objects";
      failed = heap.failed();
    }
    EXPECT_TRUE(status == kStatusOk || (failed && status == kStatusFailed)) << status;
    auto other = std::async(std::launch::async, [&] { return InvokeVal(handle, {1, 2, 3}); });
    ASSERT_EQ(other.wait_for(std::chrono::milliseconds(kLong)), std::future_status::ready) << objects;
    EXPECT_EQ(other.get().payload, Bytes({1, 2, 3})) << "after " << objects << " objects";
  }
}

TEST_F(AllocationTest, ATaskThatFindsNoMemoryIsRefusedAndLeavesTheConnectionInOrder) {
  const std::uint32_t handle = start();
  const Values values{7, 8, 9};
  FailEach(handle, [&] {
    void* payload = nullptr;
    std::uint32_t size = 0;
    const Status status = BrelInvokeTask(handle, kDebugVal, 1, values.data(), sizeof values, 0, 1, nullptr, &payload,
                                         &size, nullptr, nullptr);
    std::free(payload);
    return status;
  });
}

TEST_F(AllocationTest, AnAsynchronousTaskThatFindsNoMemoryIsRefusedAndLeavesTheConnectionInOrder) {
  const std::uint32_t handle = start();
  const Values values{7, 8, 9};
  static Noted<std::uint32_t> answered;
  std::uint32_t sent = 0;
  FailEach(handle, [&] {
    std::uint32_t seqNum = 0;
    const Status status = BrelInvokeAsyncTask(
        handle, kDebugVal, sent, values.data(), sizeof values, 0, 1, &seqNum,
        [](std::uint32_t, std::uint32_t commandID, auto...) { answered.add(commandID); }, nullptr);
    if (status == kStatusOk) ++sent;
    return status;
  });
  EXPECT_EQ(answered.waitFor(sent).size(), sent);  // each that was taken, and no other
}

TEST_F(AllocationTest, AConnectionThatFindsNoMemoryIsRefused) {
  int objects = 0;
  bool failed = true;
  for (; failed; ++objects) {
    std::uint32_t handle = kNoBrelHandle;
    Status status = 4711;
    {
      const FailingHeap heap(objects + 40);  // the engine can be built
      EXPECT_NO_THROW(status = BrelInit(
                          &handle, nullptr, 0, nullptr, [](auto...) {}, nullptr));
      failed = heap.failed();
    }
    if (status == kStatusOk) {
      EXPECT_EQ(BrelFinalize(handle), kStatusOk);
    }
    EXPECT_TRUE(status == kStatusOk || status == kStatusFailed);
    EXPECT_EQ(GetBrelInst(0), nullptr);
  }
  EXPECT_GT(objects, 100);
  std::uint32_t handle = kNoBrelHandle;
  const FailingHeap heap(0);  // not even the engine
  EXPECT_EQ(BrelInit(&handle, nullptr, 0, nullptr, nullptr, nullptr), kStatusFailed);
  leavesEngines = true;  // of which the table counts one more than it holds
}

// Its client is then not told of the lack of an answer.
TEST_F(AllocationTest, AConnectionWhoseClientWasToldOfALackWithoutMemoryCanBeClosed) {
  static Noted<std::uint32_t> told;
  const std::uint32_t handle = start();
  DropRequests(0);
  std::uint32_t seqNum = 0;
  ASSERT_EQ(BrelInvokeAsyncTask(handle, kDebugRef, 1, nullptr, 0, 0, 1, &seqNum,
                                [](std::uint32_t errorCode, auto...) { told.add(errorCode); }, nullptr),
            kStatusOk);
  {
    const InPlaceOfThread inPlace(EngineInside(*GetBrelInst(handle)));
    const FailingHeap heap(0);
    EXPECT_EQ(ProcessSequenceData(handle, seqNum, kErrorCodeTimeout, nullptr, 0), 1u);
    EXPECT_TRUE(heap.failed());
  }
  EXPECT_THAT(told.waitFor(1), ::testing::ElementsAre(kErrorCodeTimeout));
  auto finalized = std::async(std::launch::async, [&] { return BrelFinalize(handle); });
  ASSERT_EQ(finalized.wait_for(std::chrono::milliseconds(kLong)), std::future_status::ready);
  EXPECT_EQ(finalized.get(), kStatusOk);
}

TEST_F(AllocationTest, ARecordThatFindsNoMemoryIsDropped) {
  static Noted<std::uint32_t> broadcasts;
  const std::uint32_t handle = start([](char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t seqTUI) {
    std::free(name);
    std::free(payload);
    broadcasts.add(seqTUI);
  });
  const auto come = [&](std::uint32_t word, std::uint32_t seqTUI) {
    const auto record = Record(word, 0, seqTUI, "text");
    return BrelEngineCallback(BrelGetDorvHandle(handle), record.data(), static_cast<std::uint32_t>(record.size()));
  };
  constexpr std::uint32_t kBroadcast = 5u << 12;
  {
    const std::vector<std::uint8_t> broadcast = Record(kBroadcast, 0, 1, "text");
    const std::vector<std::uint8_t> answer = Record(kDebugRefTui, 0, 1, "text");
    DropRequests(0);
    std::uint32_t seqNum = 0;
    ASSERT_EQ(BrelInvokeAsyncTask(handle, kDebugRef, 1, nullptr, 0, 0, 1, &seqNum, nullptr, nullptr), kStatusOk);
    for (const auto* record : {&broadcast, &answer}) {
      const FailingHeap heap(0);
      std::uint32_t taken = 4711;
      EXPECT_NO_THROW(taken = BrelEngineCallback(BrelGetDorvHandle(handle), record->data(),
                                                 static_cast<std::uint32_t>(record->size())));
      EXPECT_EQ(taken, 0u);
    }
  }
  EXPECT_EQ(come(kBroadcast, 2), 1u);
  EXPECT_THAT(broadcasts.waitFor(1), ::testing::ElementsAre(2u));
}

TEST_F(AllocationTest, AnAlertThatFindsNoMemoryIsRefused) {
  static Noted<Status> alerts;
  const std::uint32_t handle = start(nullptr, [](Status status) { alerts.add(status); });
  std::uint32_t taken = 4711;
  {
    const FailingHeap heap(0);
    EXPECT_NO_THROW(taken = BrelEngineAlertsCallback(BrelGetDorvHandle(handle), 1));
  }
  EXPECT_EQ(taken, 0u);
  EXPECT_EQ(BrelEngineAlertsCallback(BrelGetDorvHandle(handle), 3), 1u);
  EXPECT_THAT(alerts.waitFor(1), ::testing::ElementsAre(17u));
}

TEST_F(AllocationTest, ABroadcastThatFindsNoMemoryForTheClientsBlocksIsDropped) {
  static Noted<std::uint32_t> broadcasts;
  const std::uint32_t handle = start([](char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t seqTUI) {
    std::free(name);
    std::free(payload);
    broadcasts.add(seqTUI);
  });
  const auto come = [&](std::uint32_t seqTUI, int objects) {
    const auto record = Record(5u << 12, 0, seqTUI, "text");
    const FailingHeap heap(objects);
    EXPECT_NO_THROW(ProcessBroadcastData(handle, record.data(), static_cast<std::uint32_t>(record.size())));
    return heap.failed();
  };
  EXPECT_TRUE(come(1, 0));  // for the payload
  EXPECT_TRUE(come(2, 1));  // for the name
  EXPECT_FALSE(come(3, 1000));
  EXPECT_THAT(broadcasts.waitFor(1), ::testing::ElementsAre(3u));
}

}  // namespace
}  // namespace kel::test
