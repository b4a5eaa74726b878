// SPDX-License-Identifier: MIT
// Tables of any bytes whatever: nothing behind their end is read, and whatever comes of them keeps the rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "catalogue/random_tables.h"
#include "catalogue/shipped_rows.h"
#include "catalogue/task_list_test.h"

namespace kel::test {
namespace {

constexpr std::uint32_t kTables = 300;

// Without log and console, which would only take their time.
class RandomTable : public testing::Test {
 protected:
  RandomTable() { mList.SetTUIsFile(&mLogger, "table.csv"); }

  ScratchDirectory mDirectory;
  RegistrySettings mRegistry;
  ALogger mLogger;
  BrelTUIsList mList;
};

TEST_F(RandomTable, IsWalkedRowByRowWithinItsBounds) {
  for (std::uint32_t seed = 1; seed <= kTables * 10; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const std::string table = RandomTableText(seed);
    const auto block = std::make_unique<char[]>(table.size() + 1);
    table.copy(block.get(), table.size());
    const char* const end = block.get() + std::string_view(block.get()).size();

    const char* position = block.get();
    std::int32_t result = 1;
    while (result == 1) {
      const char* const before = position;
      std::string name;
      std::uint8_t index = 0, zone = 0, target = 1, priority = 0, type = 9;
      std::uint32_t decimalTUI = 0, hexTUI = 1, oneTUIlineLength = 0;
      result = mList.ReadOneTUI(&position, &name, &index, &zone, &target, &priority, &type, &decimalTUI, &hexTUI,
                                &oneTUIlineLength);
      if (result == 1) {
        ASSERT_GT(position, before);
        ASSERT_LE(position, end);
        ASSERT_LT(name.size(), 100U);
        ASSERT_EQ(name.find_first_of(", \t\r\n"), name.npos);
        ASSERT_LE(type, 1);
        ASSERT_EQ(target, 0);
        ASSERT_EQ(hexTUI, 0U);
      } else {
        ASSERT_TRUE(result == 0 || result == -1) << result;
        ASSERT_EQ(position, before);
      }
      ASSERT_LE(oneTUIlineLength, end - before);
    }
  }
}

TEST_F(RandomTable, IsReadFromAFileOrRefused) {
  for (std::uint32_t seed = 1; seed <= kTables; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const std::string table = RandomTableText(seed);
    mDirectory.write("table.csv", table);
    const bool read = mList.ReadTUIs();
    EXPECT_FALSE(read && table.empty());
    std::uint32_t tui = 0;
    mList.FindTuiByName("test", kShippedRows[seed % 50].name, &tui);
  }
}

TEST_F(RandomTable, IsRetrievedUpToItsFirst0xFF) {
  for (std::uint32_t seed = 1; seed <= kTables; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const std::string table = RandomTableText(seed);
    if (table.empty()) continue;
    mDirectory.write("table.csv", table);
    const char* name = nullptr;
    const char* buffer = nullptr;
    std::uint32_t length = 0;
    ASSERT_TRUE(mList.RetrieveRawTUIsList(&name, &buffer, &length));
    ASSERT_EQ(length, table.size());
    const std::size_t copied = std::min(table.find('\xFF'), table.size());
    ASSERT_EQ(std::string_view(buffer, copied), std::string_view(table).substr(0, copied));
    std::free(const_cast<char*>(buffer));
  }
}

}  // namespace
}  // namespace kel::test
