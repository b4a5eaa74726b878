// SPDX-License-Identifier: MIT
// What `kelctl tasks check` finds, against what the library does with the same table.
#include "table_check.h"

#include <gmock/gmock.h>

#include "catalogue/BrelTUIsList.h"
#include "support/scratch_directory.h"

namespace kelctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kEcho[] = "ECHO,  0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240\n";
constexpr char kPath[] = "PATH,  0, 6, KEL_TRACE, 1, VAL, 90304, 0x160c0\n";

std::string Row(const std::string& name, const std::string& columns) { return name + ",  " + columns + '\n'; }

/// "2: text" of each fault.
std::vector<std::string> FaultsOf(const std::string& text) {
  std::vector<std::string> faults;
  for (const TableFault& fault : checkTable(text).faults)
    faults.push_back(std::to_string(fault.line) + ": " + fault.text);
  return faults;
}

/// Whether a connect with this table passes.
bool IsReadThrough(const std::string& text) {
  const kel::test::ScratchDirectory folder;
  folder.write("table.csv", text);
  kel::BrelTUIsList list;
  list.SetTUIsFile(nullptr, "table.csv");
  return list.ReadTUIs();
}

std::uint32_t TuiInLibrary(const std::string& text, const std::string& name) {
  const kel::test::ScratchDirectory folder;
  folder.write("table.csv", text);
  kel::BrelTUIsList list;
  list.SetTUIsFile(nullptr, "table.csv");
  list.ReadTUIs();
  std::uint32_t tui = 0;
  list.FindTuiByName("test", name, &tui);
  return tui;
}

TEST(TableCheck, AGoodTableHasNoFaults) {
  const TableFindings findings = checkTable(std::string(kEcho) + kPath);
  EXPECT_EQ(findings.rows, 2u);
  EXPECT_THAT(findings.faults, IsEmpty());
}

TEST(TableCheck, LinesMayEndAsOnWindowsAndTheLastNeedNot) {
  EXPECT_THAT(FaultsOf("ECHO,  0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240\r\n"
                       "PATH,  0, 6, KEL_TRACE, 1, VAL, 90304, 0x160c0"),
              IsEmpty());
}

TEST(TableCheck, AnEmptyFileFailsTheConnect) {
  EXPECT_THAT(FaultsOf(""), ElementsAre(HasSubstr("the file is empty")));
  EXPECT_FALSE(IsReadThrough(""));
}

TEST(TableCheck, ATableWithoutATaskIsTold) {
  EXPECT_THAT(FaultsOf("\n"), ElementsAre(HasSubstr("there is no task")));
  EXPECT_TRUE(IsReadThrough("\n"));
}

TEST(TableCheck, ColumnsThatContradictTheTuiAreTold) {
  EXPECT_THAT(FaultsOf(kEcho + Row("PATH", "1, 6, KEL_TRACE, 1, VAL, 90304, 0x160c0")),
              ElementsAre("2: INDEX to TYPE make the TUI 0x160c1, the decimal TUI is 0x160c0, and that counts"));
  EXPECT_THAT(FaultsOf(Row("PATH", "0, 6, KEL_TRACE, 1, REF, 90304, 0x160c0")), ElementsAre(HasSubstr("0x960c0")));
}

TEST(TableCheck, AHexTuiThatSaysAnotherNumberIsTold) {
  EXPECT_THAT(FaultsOf(Row("PATH", "0, 6, KEL_TRACE, 1, VAL, 90304, 0x160c1")),
              ElementsAre("1: the hex TUI says \"0x160c1\", the decimal TUI is 0x160c0"));
  EXPECT_THAT(FaultsOf(Row("PATH", "0, 6, KEL_TRACE, 1, VAL, 90304, 160c0")), ElementsAre(HasSubstr("\"160c0\"")));
}

TEST(TableCheck, ADoubledNameIsToldWithItsFirstLine) {
  const std::string table = kEcho + Row("ECHO", "1, 18, KEL_UPPER_DSPS, 3, REF, 754241, 0xb8241");
  EXPECT_THAT(FaultsOf(table), ElementsAre("2: the name ECHO stands in line 1 as well: the last one counts"));
  EXPECT_EQ(TuiInLibrary(table, "ECHO"), 754241u);
}

TEST(TableCheck, ADoubledNumberIsToldWithItsFirstLine) {
  EXPECT_THAT(FaultsOf(std::string(kEcho) + kPath + Row("AGAIN", "0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240")),
              ElementsAre(HasSubstr("3: the TUI 0x38240 stands in line 1 as well")));
}

TEST(TableCheck, ABlankLineEndsTheTable) {
  const std::string table = std::string(kEcho) + "  \n" + kPath;
  EXPECT_THAT(FaultsOf(table), ElementsAre(HasSubstr("2: a blank line ends the table")));
  EXPECT_EQ(checkTable(table).rows, 1u);
  EXPECT_EQ(TuiInLibrary(table, "PATH"), 0u);
  EXPECT_THAT(FaultsOf(std::string(kEcho) + "\n"), IsEmpty()) << "nothing is lost behind the last one";
}

TEST(TableCheck, ALineThatIsReadInPiecesIsTold) {
  const std::string table =
      Row("ECHO", "0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240" + std::string(250, ' ')) + kPath;
  EXPECT_THAT(FaultsOf(table), ElementsAre(HasSubstr("1: the line has 304 bytes: it is read in pieces of 254"),
                                           HasSubstr("1: a piece without a name ends the table")));
  EXPECT_EQ(TuiInLibrary(table, "PATH"), 0u);
}

TEST(TableCheck, ALineFitsIfItHas254BytesWithItsLineFeed) {
  std::string line = "ECHO,  0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240";
  line.resize(253, ' ');
  EXPECT_THAT(FaultsOf(line + '\n' + kPath), IsEmpty());
  EXPECT_EQ(TuiInLibrary(line + '\n' + kPath, "PATH"), 90304u);
  EXPECT_THAT(FaultsOf(line + " \n" + kPath), ElementsAre(HasSubstr("255 bytes"), HasSubstr("ends the table")));
  EXPECT_EQ(TuiInLibrary(line + " \n" + kPath, "PATH"), 0u);
}

TEST(TableCheck, ANumberThatIsNoneFailsTheConnect) {
  const std::string table = Row("PATH", "0, 6, KEL_TRACE, 1, VAL, many, 0x160c0") + kEcho;
  EXPECT_THAT(FaultsOf(table), ElementsAre(HasSubstr("1: the decimal TUI is a number up to 4294967295, not \"many\""),
                                           HasSubstr("1: the library cannot read this")));
  EXPECT_FALSE(IsReadThrough(table));
}

TEST(TableCheck, ANumberThatDoesNotFitIsToldWithWhatBecomesOfIt) {
  const std::string table = Row("PATH", "0, 6, KEL_TRACE, 1, VAL, 4295057600, 0x160c0");
  EXPECT_THAT(FaultsOf(table), ElementsAre(HasSubstr("not \"4295057600\": it is read as 90304")));
  EXPECT_EQ(TuiInLibrary(table, "PATH"), 90304u);
}

TEST(TableCheck, ATypeThatIsNoneFailsTheConnect) {
  const std::string table = Row("PATH", "0, 6, KEL_TRACE, 1, WORD, 90304, 0x160c0");
  EXPECT_THAT(FaultsOf(table), ElementsAre("1: TYPE is REF or VAL, not \"WORD\"", HasSubstr("cannot read this")));
  EXPECT_FALSE(IsReadThrough(table));
}

TEST(TableCheck, ColumnsThatTheLibraryPassesOverAreJudgedAllTheSame) {
  EXPECT_THAT(FaultsOf(Row("PATH", "32, six, KEL_TRACES, 8, VAL, 90304, 0x160c0")),
              ElementsAre("1: INDEX is a number up to 31, not \"32\"", "1: ZONE is a number up to 127, not \"six\"",
                          HasSubstr("1: TARGET is one of"), "1: PRIORITY is a number up to 7, not \"8\""));
}

TEST(TableCheck, ARowHasEightColumns) {
  EXPECT_THAT(FaultsOf("ECHO\n"),
              ElementsAre(HasSubstr("1: a row has 8 columns, not 1"), HasSubstr("cannot read this")));
  EXPECT_FALSE(IsReadThrough("ECHO\n"));
  EXPECT_THAT(FaultsOf(Row("ECHO", "0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240, new")),
              ElementsAre(HasSubstr("not 9")));
}

TEST(TableCheck, ANameIsToldAsTheLibraryReadsIt) {
  EXPECT_THAT(FaultsOf(Row("MY ECHO", "0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240")),
              ElementsAre(HasSubstr("not \"MY ECHO\": it is read as \"MY\"")));
  EXPECT_THAT(FaultsOf("\xEF\xBB\xBF" + std::string(kEcho)), ElementsAre(HasSubstr("1: a name has letters")));
  EXPECT_THAT(FaultsOf(Row("", "0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240")), ElementsAre(HasSubstr("not \"\"")));
}

TEST(TableCheck, BytesThatEndTheTextAreTold) {
  using namespace std::string_literals;
  EXPECT_THAT(FaultsOf("ECHO,  0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240\0\n"s),
              testing::Contains(HasSubstr("a zero byte")));
  EXPECT_THAT(FaultsOf("ECHO\xFF,  0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240\n"),
              testing::Contains(HasSubstr("a byte 0xFF")));
}

}  // namespace
}  // namespace kelctl
