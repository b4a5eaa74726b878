// SPDX-License-Identifier: MIT
// The table of engines.
#include <atomic>
#include <thread>
#include <vector>

#include "adapter/Dorv.h"
#include "engine/engine_test.h"

namespace kel::test {
namespace {

using InstancesTest = EngineTest;

TEST_F(InstancesTest, WithoutAnEngineNoRowHasOne) {
  for (std::uint32_t handle = 0; handle < 20; ++handle) EXPECT_EQ(GetBrelInst(handle), nullptr);
  EXPECT_EQ(GetBrelInst(kNoBrelHandle), nullptr);
  EXPECT_EQ(GetBrelInstByDorvHandle(0), nullptr);
  EXPECT_EQ(GetBrelInstByDorvHandle(kNoDorvHandle), nullptr);
}

TEST_F(InstancesTest, RowsAreTakenFromTheLowestFreeOneOn) {
  std::uint32_t handles[3];
  for (std::uint32_t& handle : handles) ASSERT_NE(AddBrelInst(&handle), nullptr);
  EXPECT_THAT(handles, ::testing::ElementsAre(0, 1, 2));
  RemoveBrelInst(1);
  EXPECT_EQ(GetBrelInst(1), nullptr);
  std::uint32_t handle = 4711;
  const auto engine = AddBrelInst(&handle);
  EXPECT_EQ(handle, 1u);
  EXPECT_EQ(GetBrelInst(1), engine);
  EXPECT_NE(GetBrelInst(0), GetBrelInst(2));
  for (const std::uint32_t row : {0u, 1u, 2u}) RemoveBrelInst(row);
}

TEST_F(InstancesTest, FifteenEnginesLiveAtOnceAndASixteenthIsRefusedThoughARowIsFree) {
  for (std::uint32_t i = 0; i < 15; ++i) EXPECT_EQ(start(), i);
  std::uint32_t handle = 4711;
  EXPECT_EQ(BrelInit(&handle, nullptr, 0, nullptr, nullptr, nullptr), kStatusFailed);
  EXPECT_EQ(handle, 0xFFFFFFFF);
  EXPECT_EQ(GetBrelInst(15), nullptr);
  EXPECT_EQ(OpenConnections(), 15u);

  EXPECT_EQ(BrelFinalize(6), kStatusOk);
  EXPECT_EQ(BrelFinalize(4), kStatusOk);
  EXPECT_EQ(start(), 4u);
  EXPECT_EQ(start(), 6u);
}

TEST_F(InstancesTest, TheTableStartsAfreshAfterTheLastEngine) {
  start();
  start();
  EXPECT_EQ(BrelFinalize(0), kStatusOk);
  EXPECT_EQ(BrelFinalize(1), kStatusOk);
  EXPECT_TRUE(SetDorvHandle(9, 9));
  EXPECT_EQ(start(), 0u);
  EXPECT_EQ(BrelGetDorvHandle(9), kNoDorvHandle);
}

// A pipe library that is not waited for looks engines up at any time, also as the last one goes and the first one
// comes.
TEST_F(InstancesTest, TheTableStaysWholeForThoseWhoLookUpWhileItStartsAfresh) {
  std::atomic<bool> done{false};
  std::vector<std::thread> lookers;
  for (int i = 0; i < 3; ++i) {
    lookers.emplace_back([&] {
      while (!done) GetBrelInstByDorvHandle(kNoDorvHandle);
    });
  }
  for (int i = 0; i < 300; ++i) {
    std::uint32_t handle = 4711;
    EXPECT_NE(AddBrelInst(&handle), nullptr);
    EXPECT_EQ(handle, 0u);
    RemoveBrelInst(handle);
  }
  done = true;
  for (std::thread& looker : lookers) looker.join();
  EXPECT_EQ(GetBrelInst(0), nullptr);
}

TEST_F(InstancesTest, AnEngineHasNoAdapterHandleUntilItsInitHasOne) {
  std::uint32_t handle = 0, dorvHandle = 0;
  const auto engine = AddBrelInst(&handle);
  EXPECT_TRUE(GetDorvHandle(handle, &dorvHandle));
  EXPECT_EQ(dorvHandle, kNoDorvHandle);
  EXPECT_EQ(engine->init(nullptr, false, nullptr), kStatusOk);
  EXPECT_TRUE(GetDorvHandle(handle, &dorvHandle));
  EXPECT_EQ(dorvHandle, 0u);
  EXPECT_EQ(BrelGetDorvHandle(handle), 0u);
  EXPECT_EQ(GetBrelInstByDorvHandle(0), engine);
}

TEST_F(InstancesTest, AnAdapterHandleFindsItsEngineWhateverTheRow) {
  std::uint32_t first = 0, second = 0;
  AddBrelInst(&first);
  const auto engine = AddBrelInst(&second);
  EXPECT_TRUE(SetDorvHandle(second, 12));
  EXPECT_EQ(GetBrelInstByDorvHandle(12), engine);
  EXPECT_EQ(GetBrelInstByDorvHandle(second), nullptr);
  // Two rows with one adapter handle: the first wins.
  EXPECT_TRUE(SetDorvHandle(first, 12));
  EXPECT_EQ(GetBrelInstByDorvHandle(12), GetBrelInst(first));
  for (const std::uint32_t row : {first, second}) {
    SetDorvHandle(row, kNoDorvHandle);
    RemoveBrelInst(row);
  }
}

TEST_F(InstancesTest, NoAdapterHandleMatchesTheFirstRowWithoutOne) {
  start();
  // Row 1 is free.
  EXPECT_EQ(GetBrelInstByDorvHandle(kNoDorvHandle), nullptr);
  std::uint32_t handle = 0;
  const auto building = AddBrelInst(&handle);
  EXPECT_EQ(GetBrelInstByDorvHandle(kNoDorvHandle), building);
  RemoveBrelInst(handle);
}

TEST_F(InstancesTest, HandlesOfSixteenAndMoreAreRefused) {
  start();
  for (const std::uint32_t handle : {16u, 17u, 0xFFFFu, kNoBrelHandle}) {
    std::uint32_t dorvHandle = 4711;
    EXPECT_FALSE(GetDorvHandle(handle, &dorvHandle));
    EXPECT_EQ(dorvHandle, 0xFFFFFFFF);
    EXPECT_FALSE(SetDorvHandle(handle, 1));
    RemoveBrelInst(handle);
    EXPECT_EQ(GetBrelInst(handle), nullptr);
  }
  EXPECT_NE(GetBrelInst(0), nullptr);
}

TEST_F(InstancesTest, RowFifteenHasAnAdapterHandleLikeAnyOther) {
  start();
  std::uint32_t dorvHandle = 0;
  EXPECT_TRUE(SetDorvHandle(15, 3));
  EXPECT_TRUE(GetDorvHandle(15, &dorvHandle));
  EXPECT_EQ(dorvHandle, 3u);
}

TEST_F(InstancesTest, RemovingARowGivesUpItsAdapterHandle) {
  start();
  const std::uint32_t handle = start();
  EXPECT_EQ(BrelGetDorvHandle(handle), 1u);
  EXPECT_EQ(BrelFinalize(handle), kStatusOk);
  EXPECT_EQ(BrelGetDorvHandle(handle), kNoDorvHandle);
  RemoveBrelInst(handle);  // of a free row: nothing
  EXPECT_EQ(start(), handle);
}

TEST_F(InstancesTest, AnEngineTellsTheConsoleThatItIsRemoved) {
  folder.writeSettings("LogToConsole=1\n");
  const std::uint32_t handle = start();
  ::testing::internal::CaptureStdout();
  BrelFinalize(handle);
  EXPECT_THAT(::testing::internal::GetCapturedStdout(),
              ::testing::EndsWith(" - RemoveBrelInst - Deleting BrelEngine instance \n"));
}

TEST_F(InstancesTest, AnInitThatFailsLeavesNoRowBehindAndKeepsTheHandleItGave) {
  start();
  folder.write("empty.csv", "");
  std::uint32_t handle = 4711;
  EXPECT_EQ(BrelInit(&handle, "empty.csv", 0, nullptr, nullptr, nullptr), kStatusFailed);
  EXPECT_EQ(handle, 1u);
  EXPECT_EQ(GetBrelInst(1), nullptr);
  EXPECT_EQ(start(), 1u);
}

}  // namespace
}  // namespace kel::test
