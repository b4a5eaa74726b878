// What the engine does when the heap is exhausted while it is made or comes up.
#include <cstdlib>
#include <future>
#include <new>
#include <thread>

#include "engine/engine_test.h"

namespace {

/// Objects that this thread may still make before the heap fails it, once; negative: no limit.
thread_local int tAllocationsLeft = -1;

}  // namespace

// The program's own allocator, which fails on demand.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (tAllocationsLeft >= 0 && tAllocationsLeft-- == 0) throw std::bad_alloc();
  void* block = std::malloc(size != 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace kel::test {
namespace {

class AllocationTest : public EngineTest {
 protected:
  /// Calls `action`, with the heap failing its thread after that many objects. Whether it did.
  template <class Action>
  static bool failsAfter(int objects, Action action) {
    tAllocationsLeft = objects;
    action();
    const bool failed = tAllocationsLeft < 0;
    tAllocationsLeft = -1;
    return failed;
  }
};

TEST_F(AllocationTest, AnEngineThatCannotBeBuiltStaysCountedAndTheTableLocked) {
  std::uint32_t handle = 4711;
  EXPECT_TRUE(failsAfter(1, [&] { EXPECT_THROW(AddBrelInst(&handle), std::bad_alloc); }));

  // Another thread is turned away where no lock is asked for, and waits for ever where one is.
  std::async(std::launch::async, [] { EXPECT_EQ(GetBrelInst(16), nullptr); }).get();
  static std::promise<void> looked;
  std::future<void> seen = looked.get_future();
  std::thread([] {
    GetBrelInst(0);
    looked.set_value();
  }).detach();
  EXPECT_EQ(seen.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);

  // This thread has the lock, and room for one engine less.
  for (std::uint32_t i = 0; i < 14; ++i) EXPECT_NE(AddBrelInst(&handle), nullptr);
  EXPECT_EQ(handle, 13u);
  EXPECT_EQ(AddBrelInst(&handle), nullptr);
  EXPECT_EQ(handle, kNoBrelHandle);
  leavesEngines = true;
}

TEST_F(AllocationTest, AnInitThatRunsOutOfMemoryGivesOneWithALine) {
  registry.set("Software\\Brel\\ALogger", "Info", 0);
  folder.writeSettings("LogToConsole=1\n");
  std::uint32_t handle = kNoBrelHandle;
  const auto engine = AddBrelInst(&handle);
  Status status = 0;
  ::testing::internal::CaptureStdout();
  EXPECT_TRUE(failsAfter(100, [&] { status = engine->init(nullptr, false, nullptr); }));
  EXPECT_EQ(status, kStatusFailed);
  EXPECT_THAT(::testing::internal::GetCapturedStdout(), ::testing::EndsWith("init - failed - exception caught! \n"));
  EXPECT_EQ(LogText("Brel.logs"), EngineLog().error("init", "failed - exception caught! \n").text());
  RemoveBrelInst(handle);
}

TEST_F(AllocationTest, AnInitThatRunsOutOfMemoryAheadOfTheAdapterLeavesNothingBehind) {
  // Each of the 50 tasks takes some objects, so that all of these failures are behind the first and ahead of the
  // adapter.
  for (int objects = 0; objects < 100; ++objects) {
    std::uint32_t handle = kNoBrelHandle;
    auto engine = AddBrelInst(&handle);
    Status status = 0;
    EXPECT_TRUE(failsAfter(objects, [&] { status = engine->init(nullptr, false, nullptr); }));
    EXPECT_EQ(status, kStatusFailed) << objects;
    engine.reset();
    RemoveBrelInst(handle);
    EXPECT_EQ(GetBrelInst(handle), nullptr);
  }
  EXPECT_EQ(InvokeVal(start(), {1, 2, 3}).payload, Bytes({1, 2, 3}));
}

}  // namespace
}  // namespace kel::test
