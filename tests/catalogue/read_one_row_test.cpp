// SPDX-License-Identifier: MIT
// The reader of one row.
#include <gtest/gtest.h>

#include <memory>

#include "catalogue/shipped_rows.h"
#include "catalogue/task_list_test.h"

namespace kel::test {
namespace {

constexpr const char* kSampleRow = "TASK_ID_TRACE_ADAPTER,  0, 0, KEL_TRACE, 1, REF, 614400, 0x96000";

/// What one call gives out.
struct Row {
  std::int32_t result = 7;
  std::size_t taken = 0;  ///< how far the position moved
  std::string name = "before";
  std::uint8_t index = 201, zone = 202, target = 203, priority = 204, type = 205;
  std::uint32_t decimalTUI = 206, hexTUI = 207, oneTUIlineLength = 208;
};

class RowReader : public TaskList {
 protected:
  Row read(const std::string& text) {
    Row row;
    // A block of just the text's size: a look behind its end is seen by AddressSanitizer.
    const auto block = std::make_unique<char[]>(text.size() + 1);
    text.copy(block.get(), text.size());
    const char* position = block.get();
    row.result = printed([&] {
      return mList.ReadOneTUI(&position, &row.name, &row.index, &row.zone, &row.target, &row.priority, &row.type,
                              &row.decimalTUI, &row.hexTUI, &row.oneTUIlineLength);
    });
    row.taken = static_cast<std::size_t>(position - block.get());
    return row;
  }

  /// The row fails at `field`, with one line on each outlet, and the position stays.
  void expectFailure(const std::string& text, const std::string& field, const std::string& verb = "read") {
    std::filesystem::remove(LogPath("Tasks.logs"));
    mConsole.clear();
    const Row row = read(text);
    SCOPED_TRACE(text);
    EXPECT_EQ(row.result, 0);
    EXPECT_EQ(row.taken, 0U);
    expectReported({{"error", "ReadOneTUI", "could not " + verb + " " + field + " field. \n"}});
  }
};

TEST_F(RowReader, KeepsNameTypeAndDecimalTUIAndStandsBehindTheRow) {
  const std::string line = std::string(kSampleRow) + "\r\n";
  const Row row = read(line + "NEXT");
  EXPECT_EQ(row.result, 1);
  EXPECT_EQ(row.taken, line.size());
  EXPECT_EQ(row.name, "TASK_ID_TRACE_ADAPTER");
  EXPECT_EQ(row.type, 1);
  EXPECT_EQ(row.decimalTUI, 614400U);
  EXPECT_EQ(row.oneTUIlineLength, line.size());
  expectReported({});
}

TEST_F(RowReader, TakesTheBlankBehindTheCommaForTheOneCharacterColumns) {
  const Row row = read(kSampleRow);
  EXPECT_EQ(row.result, 1);
  EXPECT_EQ(row.index, ' ');
  EXPECT_EQ(row.zone, ' ');
  EXPECT_EQ(row.priority, ' ');
  EXPECT_EQ(row.target, 0);
  EXPECT_EQ(row.hexTUI, 0U);
}

TEST_F(RowReader, TakesTheirFirstDigitWhereThereAreNoBlanks) {
  const Row row = read("TIGHT,31,2,KEL_TRACE,3,VAL,1234,0x4d2\n");
  EXPECT_EQ(row.result, 1);
  EXPECT_EQ(row.name, "TIGHT");
  EXPECT_EQ(row.index, '3');
  EXPECT_EQ(row.zone, '2');
  EXPECT_EQ(row.priority, '3');
  EXPECT_EQ(row.type, 0);
  EXPECT_EQ(row.decimalTUI, 1234U);
}

TEST_F(RowReader, ReadsEveryShippedRow) {
  for (const TableRow& shipped : kShippedRows) {
    const Row row = read(RowText(shipped) + "\r\n");
    EXPECT_EQ(row.result, 1);
    EXPECT_EQ(row.name, shipped.name);
    EXPECT_EQ(row.type, shipped.type == "REF" ? 1 : 0);
    EXPECT_EQ(row.decimalTUI, shipped.decimalTUI);
  }
}

TEST_F(RowReader, FindsNoFurtherRowInWhiteSpace) {
  for (const char* text : {"", " ", "\n", "\r\n", " \t\r\n \n"}) {
    const Row row = read(text);
    EXPECT_EQ(row.result, -1);
    EXPECT_EQ(row.taken, 0U);
  }
  expectReported({});
}

TEST_F(RowReader, PassesOverBlankLinesAheadOfARow) {
  const std::string text = "\r\n  \t\n" + std::string(kSampleRow) + "\n";
  const Row row = read(text);
  EXPECT_EQ(row.result, 1);
  EXPECT_EQ(row.name, "TASK_ID_TRACE_ADAPTER");
  EXPECT_EQ(row.decimalTUI, 614400U);
  EXPECT_EQ(row.taken, text.size());
}

TEST_F(RowReader, CountsTheLineToItsEndMark) {
  const std::string sample = kSampleRow;
  EXPECT_EQ(read(sample + "\nNEXT").oneTUIlineLength, sample.size() + 1);
  EXPECT_EQ(read(sample + "\xFFmore").oneTUIlineLength, sample.size() + 1);
  EXPECT_EQ(read("AB\xFF\n").oneTUIlineLength, 4U);
  EXPECT_EQ(read(sample).oneTUIlineLength, 0U);
}

TEST_F(RowReader, EndsTheNameAtItsCommaOrBlank) {
  EXPECT_EQ(read("MY TASK,  0, 0, KEL_TRACE, 1, REF, 1, 0x1\n").name, "MY");
  EXPECT_EQ(read("MINE ,  0, 0, KEL_TRACE, 1, REF, 1, 0x1\n").name, "MINE");
  EXPECT_EQ(read(",  0, 0, KEL_TRACE, 1, REF, 1, 0x1\n").name, "");
  EXPECT_EQ(read(",  0, 0, KEL_TRACE, 1, REF, 1, 0x1\n").result, 1);
}

TEST_F(RowReader, GoesByTheFirstThreeLettersOfTheType) {
  EXPECT_EQ(read("A,  0, 0, KEL_TRACE, 1, REFERENCE, 1, 0x1\n").type, 1);
  EXPECT_EQ(read("A,  0, 0, KEL_TRACE, 1, VALUE, 1, 0x1\n").type, 0);
  EXPECT_EQ(read("A,  0, 0, KEL_TRACE, 1, REF , 1, 0x1\n").type, 1);
  for (const char* type : {"ref", "Ref", "RE", "XREF", "REv", "", "V", "\"REF\""}) {
    expectFailure("A,  0, 0, KEL_TRACE, 1, " + std::string(type) + ", 1, 0x1\n", "TYPE", "resolve");
  }
}

TEST_F(RowReader, LeavesTheTypeAloneIfItIsNone) {
  std::uint8_t type = 9;
  EXPECT_FALSE(BrelTUIsList::ResolveType("ref", &type));
  EXPECT_FALSE(BrelTUIsList::ResolveType("REFS", &type));
  EXPECT_FALSE(BrelTUIsList::ResolveType("", &type));
  EXPECT_EQ(type, 9);
  EXPECT_TRUE(BrelTUIsList::ResolveType("REF", &type));
  EXPECT_EQ(type, 1);
  EXPECT_TRUE(BrelTUIsList::ResolveType("VAL", &type));
  EXPECT_EQ(type, 0);
}

TEST_F(RowReader, RefusesANameOf100Bytes) {
  const std::string rest = "  0, 0, KEL_TRACE, 1, REF, 1, 0x1\n";
  // The comma belongs to what is read as one word.
  EXPECT_EQ(read(std::string(98, 'N') + "," + rest).name, std::string(98, 'N'));
  expectReported({});
  EXPECT_EQ(read(std::string(99, 'N') + "," + rest).result, 0);
  expectReported({{"error", "ReadOneTUI", "could not read NAME field. \n", "could not read TUI NAME field. \n"}});
}

TEST(RowReaderOfAFreshList, HasNoLogYetAndTellsOnTheConsole) {
  BrelTUIsList list;
  list.mLogToConsole = 1;
  const std::string text(100, 'N');
  const char* position = text.c_str();
  Row row;
  testing::internal::CaptureStdout();
  EXPECT_EQ(list.ReadOneTUI(&position, &row.name, &row.index, &row.zone, &row.target, &row.priority, &row.type,
                            &row.decimalTUI, &row.hexTUI, &row.oneTUIlineLength),
            0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "ReadOneTUI - could not read TUI NAME field. \n");
}

TEST_F(RowReader, RefusesOtherWordsOf100Bytes) {
  const std::string most(98, 'W');
  const std::string tooLong(99, 'W');
  EXPECT_EQ(read("A,  0, 0, " + most + ", 1, REF, 1, 0x1\n").result, 1);
  expectFailure("A,  0, 0, " + tooLong + ", 1, REF, 1, 0x1\n", "TARGET");
  EXPECT_EQ(read("A,  0, 0, KEL_TRACE, 1, REF" + most.substr(3) + ", 1, 0x1\n").result, 1);
  expectFailure("A,  0, 0, KEL_TRACE, 1, REF" + tooLong.substr(3) + ", 1, 0x1\n", "TYPE");
  EXPECT_EQ(read("A,  0, 0, KEL_TRACE, 1, REF, 1, " + most + "W\n").result, 1);
  expectFailure("A,  0, 0, KEL_TRACE, 1, REF, 1, " + tooLong + "W\n", "hex TUI");
}

TEST_F(RowReader, RefusesADecimalTUIThatIsNoNumber) {
  for (const char* number : {"x", "", "-", "+", "--1", "#1", ":"}) {
    expectFailure("A,  0, 0, KEL_TRACE, 1, REF, " + std::string(number) + ", 0x1\n", "decimal TUI");
  }
  expectFailure("A,  0, 0, KEL_TRACE, 1, REF, -", "decimal TUI");
}

TEST_F(RowReader, ReadsTheDecimalTUIAsFarAsItIsANumber) {
  EXPECT_EQ(read("A,  0, 0, KEL_TRACE, 1, REF, 12x, 0x1\n").decimalTUI, 12U);
  EXPECT_EQ(read("A,  0, 0, KEL_TRACE, 1, REF, 0x12, 0x1\n").decimalTUI, 0U);
  EXPECT_EQ(read("A,  0, 0, KEL_TRACE, 1, REF,\t 0012, 0x1\n").decimalTUI, 12U);
  EXPECT_EQ(read("A,  0, 0, KEL_TRACE, 1, REF, +12, 0x1\n").decimalTUI, 12U);
  EXPECT_EQ(read("A,  0, 0, KEL_TRACE, 1, REF, -12, 0x1\n").decimalTUI, 0xFFFFFFF4U);
}

TEST_F(RowReader, RefusesARowWithTooFewCommasAtTheFieldThatIsMissing) {
  const struct {
    const char* text;
    const char* field;
  } kCut[] = {
      {"A", "INDEX"},
      {"A,  0", "ZONE"},
      {"A,  0, 0", "TARGET"},
      {"A,  0, 0, KEL_TRACE", "PRIORITY"},
      {"A,  0, 0, KEL_TRACE, 1", "TYPE"},
      {"A,  0, 0, KEL_TRACE, 1, REF", "decimal TUI"},
      {"A,  0, 0, KEL_TRACE, 1, REF, 614400", "hex TUI"},
  };
  // Alone, and with a whole row behind it whose commas are none of its own.
  for (const auto& cut : kCut) {
    for (const std::string& behind : {std::string(), std::string("\r\n") + kSampleRow + "\r\n"}) {
      expectFailure(cut.text + behind, cut.field);
    }
  }
}

TEST_F(RowReader, TakesNoCutRowForAWholeOne) {
  const std::string sample = kSampleRow;
  const std::size_t lastComma = sample.rfind(',');
  for (std::size_t length = 1; length <= lastComma; ++length) {
    EXPECT_EQ(read(sample.substr(0, length)).result, 0) << length;
    EXPECT_EQ(read(sample.substr(0, length) + "\n" + sample + "\n").result, 0) << length;
  }
  EXPECT_EQ(read(sample.substr(0, sample.size() - 1)).result, 1);
}

}  // namespace
}  // namespace kel::test
