// SPDX-License-Identifier: MIT
// Many asynchronous tasks and long streams in one process.
#include "async/async_test.h"
#include "support/process_resources.h"
#include "support/room.h"

namespace kel::test {
namespace {

constexpr std::uint32_t kTasks = KEL_SOAK_TASKS;
constexpr std::uint32_t kMessages = KEL_SOAK_MESSAGES;
constexpr std::uint32_t kThreads = 4;
constexpr std::size_t kSlack = 64 * 1024;  // what the heap may differ by for reasons of its own

class AsyncSoakTest : public AsyncTest {
 protected:
  AsyncSoakTest() {
    for (const char* level : {"Info", "Warn", "Err"}) registry.set("Software\\Brel\\ALogger", level, 0);
    startEngine();
  }

  /// Waits for the rest of the threads that have counted themselves off.
  static void waitUntilLiving(std::size_t threads) {
    for (int look = 0; LivingThreads() > threads && look < 1000; ++look) platform::sleepFor(10);
    EXPECT_EQ(LivingThreads(), threads);
  }
};

// ---------------------------------------------------------------------------------------------------------------------
// Tasks
// ---------------------------------------------------------------------------------------------------------------------

std::vector<std::atomic<std::uint8_t>> gAnswers(kTasks);
std::atomic<std::uint32_t> gWrong{0};
Room gRoom(48);  // not all 64: a number is free again some time after its callback

void OnAnswer(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t, std::uint32_t, void* data,
              std::uint32_t size, std::uint32_t) {
  if (errorCode != 0 || size != sizeof(Values) || *static_cast<std::uint32_t*>(data) != commandID) ++gWrong;
  ++gAnswers[commandID];
  gRoom.release();
}

void AskFor(std::uint32_t handle, std::uint32_t commandID) {
  const Values payload = {commandID, 0, 0};
  std::uint32_t seqNum = 0;
  gRoom.acquire();
  while (BrelInvokeAsyncTask(handle, kDebugVal, commandID, payload.data(), sizeof payload, 0, 1, &seqNum, OnAnswer,
                             nullptr) != kStatusOk) {
    std::this_thread::yield();  // its number is not free yet
  }
}

TEST_F(AsyncSoakTest, EachTaskOfFourThreadsIsAnsweredOnceAndLeavesNothing) {
  SluiceHubSim_ClearRules();
  const auto handles = OpenHandles();
  const std::size_t threads = LivingThreads();
  const auto descriptors = OpenDescriptors();
  std::vector<std::thread> clients;
  for (std::uint32_t t = 0; t < kThreads; ++t) {
    clients.emplace_back([this, t] {
      for (std::uint32_t i = t; i < kTasks; i += kThreads) AskFor(handle, i);
    });
  }
  for (std::thread& client : clients) client.join();
  waitForThreads();
  EXPECT_EQ(inside().threads(), 0);
  EXPECT_EQ(gWrong, 0u);
  std::uint32_t once = 0;
  for (const auto& count : gAnswers) once += count == 1;
  EXPECT_EQ(once, kTasks);
  waitUntilLiving(threads);
  EXPECT_EQ(OpenHandles(), handles);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

// ---------------------------------------------------------------------------------------------------------------------
// Streams
// ---------------------------------------------------------------------------------------------------------------------

std::atomic<std::uint32_t> gNext{0};
std::atomic<std::uint32_t> gOutOfOrder{0};
std::atomic<bool> gHeldUp{false};

void OnMessage(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void* data, std::uint32_t,
               std::uint32_t) {
  while (gHeldUp) std::this_thread::yield();
  std::uint32_t index = 0;
  std::memcpy(&index, data, sizeof index);
  if (index != gNext) ++gOutOfOrder;
  ++gNext;
}

class StreamSoakTest : public AsyncSoakTest {
 protected:
  StreamSoakTest() : mRecord(Record(kDebugRefTui | kStreamClass << 24, 0, 0, std::string(kPayload, 'x'))) {
    EXPECT_EQ(InvokeAsync(handle, kDebugRef, nullptr, OnMessage).seqNum, 0u);
  }

  void send(std::uint32_t index) {
    std::memcpy(mRecord.data() + sizeof(task), &index, sizeof index);
    ASSERT_EQ(BrelEngineCallback(BrelGetDorvHandle(handle), mRecord.data(), static_cast<std::uint32_t>(mRecord.size())),
              1u);
  }
  /// Sends messages no faster than they are read.
  void sendSteadily(std::uint32_t from, std::uint32_t to) {
    constexpr std::uint32_t kWindow = 256;
    for (std::uint32_t i = from; i < to && !HasFailure(); ++i) {
      send(i);
      while (i % kWindow == 0 && gNext < i) std::this_thread::yield();
    }
    waitForMessages(to);
  }
  void waitForMessages(std::uint32_t count) {
    while (gNext < count) std::this_thread::yield();
    const platform::InSection done(inside().initLock());
  }

  static constexpr std::uint32_t kPayload = 1000;

 private:
  std::vector<std::uint8_t> mRecord;
};

TEST_F(StreamSoakTest, ALongStreamComesWholeAndInOrderAndKeepsNoMemory) {
  constexpr std::uint32_t kParts = 10;
  sendSteadily(0, 1000);  // until everything has its size
  const auto heap = HeapBytes();
  for (std::uint32_t part = 0; part < kParts && !HasFailure(); ++part) {
    const std::uint32_t from = 1000 + part * (kMessages / kParts);
    sendSteadily(from, from + kMessages / kParts);
    if (heap) {
      EXPECT_LE(*HeapBytes(), *heap + kSlack);
    }
  }
  EXPECT_EQ(gNext, 1000 + kMessages / kParts * kParts);
  EXPECT_EQ(gOutOfOrder, 0u);
}

TEST_F(StreamSoakTest, ForASlowClientTheQueueHoldsWhatItHasNotRead) {
  constexpr std::uint32_t kQueued = 5000;
  sendSteadily(0, 1000);
  const auto before = HeapBytes();
  gHeldUp = true;
  for (std::uint32_t i = 1000; i < 1000 + kQueued; ++i) send(i);
  const auto full = HeapBytes();
  gHeldUp = false;
  waitForMessages(1000 + kQueued);
  EXPECT_EQ(gOutOfOrder, 0u);
  if (!before) return;
  constexpr std::size_t kRecord = sizeof(task) + kPayload;
  EXPECT_GE(*full + kSlack, *before + kQueued * kRecord);
  EXPECT_LE(*full, *before + kQueued * (kRecord + 100) + kSlack);  // what the heap and the queue add to each
  // The last is freed behind its callback.
  for (int look = 0; *HeapBytes() > *before + kSlack && look < 1000; ++look) platform::sleepFor(10);
  EXPECT_LE(*HeapBytes(), *before + kSlack);
}

}  // namespace
}  // namespace kel::test
