// SPDX-License-Identifier: MIT
// Tasks as constants, and what a TUI says by itself.
#include "kel/task.hpp"

#include <gtest/gtest.h>

#include <iterator>
#include <string_view>
#include <type_traits>

#include "catalogue/shipped_rows.h"
#include "kel/tasks.hpp"

namespace kel::test {
namespace {

static_assert(std::is_same_v<decltype(tasks::TASK_ID_APPLICATION_DEBUG_VAL), const ValTask>);
static_assert(tasks::TASK_ID_APPLICATION_DEBUG_VAL.tui == 0x38240);
static_assert(tasks::TASK_ID_APPLICATION_DEBUG_VAL.target == Target::upperDsps);
static_assert(std::string_view(tasks::TASK_ID_APPLICATION_DEBUG_VAL.name) == "TASK_ID_APPLICATION_DEBUG_VAL");
static_assert(std::is_same_v<decltype(tasks::TASK_ID_TRACE_ADAPTER), const RefTask>);
static_assert(ValTask::form == Form::val && RefTask::form == Form::ref);

template <Form kForm>
constexpr bool SaysWhatItsTuiSays(const TypedTask<kForm>& task) {
  return formOf(task.tui) == kForm && targetOf(task.tui) == task.target;
}
static_assert(SaysWhatItsTuiSays(tasks::TASK_ID_VERSIONS_GET));
static_assert(SaysWhatItsTuiSays(tasks::TASK_ID_HDI_UT_REF_TEST_RESPOND));
static_assert(SaysWhatItsTuiSays(tasks::TASK_ID_TRACE_UTIL_PATH_SET));
static_assert(SaysWhatItsTuiSays(tasks::TASK_ID_UMAC_INIT));

TEST(Tasks, AreThoseOfTheShippedTableInItsOrder) {
  ASSERT_EQ(std::size(tasks::kBuiltInTable), std::size(kShippedRows));
  for (std::size_t row = 0; row < std::size(kShippedRows); ++row) {
    EXPECT_EQ(tasks::kBuiltInTable[row].name, kShippedRows[row].name);
    EXPECT_EQ(tasks::kBuiltInTable[row].tui, kShippedRows[row].decimalTUI) << kShippedRows[row].name;
  }
}

TEST(Tui, SaysItsFormAndItsTargetAsItsRowDoes) {
  for (const TableRow& row : kShippedRows) {
    EXPECT_EQ(formOf(row.decimalTUI), row.type == "REF" ? Form::ref : Form::val) << row.name;
    EXPECT_EQ(targetOf(row.decimalTUI), Target{TargetNumber(row.target)}) << row.name;
  }
}

TEST(Tui, SaysThemWhateverItsOtherBitsAre) {
  EXPECT_EQ(formOf(0xFFE7FFFF), Form::val);
  EXPECT_EQ(formOf(0x00080000), Form::ref);
  EXPECT_EQ(formOf(0x00100000), Form::ref) << "what comes with it has no VAL form";
  EXPECT_EQ(targetOf(0xFFFF5FFF), Target::broadcast);
  EXPECT_EQ(targetOf(0x00000FFF), Target{0});
}

}  // namespace
}  // namespace kel::test
