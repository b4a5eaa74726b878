// SPDX-License-Identifier: MIT
// Reading a table from a file.
#include <gtest/gtest.h>

#include <new>

#include "catalogue/task_list_test.h"
#include "engine/BrelEngine.h"
#include "support/failing_files.h"
#include "support/failing_heap.h"

namespace kel::test {
namespace {

const std::string kOne = "ONE,  0, 0, KEL_TRACE, 1, REF, 1001, 0x3e9";
const std::string kTwo = "TWO,  1, 0, KEL_TRACE, 1, VAL, 1002, 0x3ea";
const std::string kThree = "THREE,  2, 0, KEL_TRACE, 1, VAL, 1003, 0x3eb";

const ReportedLine kFileOpened{"info", "ReadTUIs", kOpened};
const ReportedLine kFileEnded{"error", "ReadTUIs", kEndedUnexpectedly};
const ReportedLine kFileNotClosed{"error", "ReadTUIs", kNotClosed};
const ReportedLine kTypeNotResolved{"error", "ReadOneTUI", "could not resolve TYPE field. \n"};

TEST_F(TaskList, IsReplacedWholeByAFile) {
  ASSERT_TRUE(readTable(kOne + "\n" + kTwo + "\n"));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 1002U);
  EXPECT_EQ(tuiOf("TASK_ID_TRACE_ADAPTER"), 0U);
  EXPECT_EQ(nameOf(614400), "UNKNOWN_TASK");
}

TEST_F(TaskList, FailsWithAnEmptyFileThoughThereIsABuiltInTable) {
  EXPECT_FALSE(readTable(""));
  expectReported({kFileOpened, kFileEnded});
  EXPECT_EQ(tuiOf("TASK_ID_TRACE_ADAPTER"), 0U);
}

TEST_F(TaskList, AnEmptyFileFailsTheEnginesStartWithAStatusOfItsOwn) {
  mDirectory.write("empty.csv", "");
  BrelEngine engine;
  EXPECT_EQ(engine.init("empty.csv", false, nullptr), 3U);
}

TEST_F(TaskList, EndsAtABlankLineOfAFile) {
  for (const char* blank : {"\n", "\r\n", "  \t \n", " \r\n"}) {
    mConsole.clear();
    EXPECT_TRUE(readTable(kOne + "\n" + blank + kTwo + "\n"));
    EXPECT_EQ(mConsole, "ReadTUIs - " + kOpened);
    EXPECT_EQ(tuiOf("ONE"), 1001U);
    EXPECT_EQ(tuiOf("TWO"), 0U);
  }
}

TEST_F(TaskList, IsEmptyIfTheFileOpensWithABlankLine) {
  EXPECT_TRUE(readTable("\n" + kOne + "\n"));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("ONE"), 0U);
}

TEST_F(TaskList, NeedsNoLineEndBehindAFilesLastRow) {
  EXPECT_TRUE(readTable(kOne + "\n" + kTwo));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("TWO"), 1002U);
}

TEST_F(TaskList, ReadsBothLineEndsAlike) {
  EXPECT_TRUE(readTable(kOne + "\r\n" + kTwo + "\n" + kThree + "\r\n"));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 1002U);
  EXPECT_EQ(tuiOf("THREE"), 1003U);
}

TEST_F(TaskList, ReadsALongLineInPiecesOf254EachARowOfItsOwn) {
  const std::string first = kOne + std::string(254 - kOne.size(), ' ');
  const std::string second = kTwo + std::string(254 - kTwo.size(), ' ');
  EXPECT_TRUE(readTable(first + second + kThree + "\n"));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 1002U);
  EXPECT_EQ(tuiOf("THREE"), 1003U);
}

TEST_F(TaskList, CountsALineEndOfTwoBytesAsOne) {
  const std::string longest = kOne + std::string(253 - kOne.size(), ' ');
  EXPECT_TRUE(readTable(longest + "\r\n" + kTwo + "\r\n"));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 1002U);
}

// The line end is a piece of its own then, and so a blank line.
TEST_F(TaskList, EndsBehindALineOf254Characters) {
  const std::string piece = kOne + std::string(254 - kOne.size(), ' ');
  for (const char* lineEnd : {"\n", "\r\n"}) {
    mConsole.clear();
    EXPECT_TRUE(readTable(piece + lineEnd + kTwo + lineEnd));
    EXPECT_EQ(mConsole, "ReadTUIs - " + kOpened);
    EXPECT_EQ(tuiOf("ONE"), 1001U);
    EXPECT_EQ(tuiOf("TWO"), 0U);
  }
}

TEST_F(TaskList, NeedsNoLineEndBehindALastRowOf254Characters) {
  EXPECT_TRUE(readTable(kOne + std::string(254 - kOne.size(), ' ')));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
}

TEST_F(TaskList, TakesACarriageReturnAloneForABlank) {
  EXPECT_TRUE(readTable("ONE\rX,\r 0, 0,\rKEL_TRACE, 1, REF,\r1001, 0x3e9\r\r\n" + kTwo + "\r"));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 1002U);
}

TEST_F(TaskList, EndsAtTheOldEndOfFileMark) {
  EXPECT_TRUE(readTable(kOne + "\r\n\x1A" + kTwo + "\r\n"));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(nameOf(1002), "UNKNOWN_TASK");
}

TEST_F(TaskList, EndsAtAnEndOfFileMarkBehindItsLastRow) {
  EXPECT_TRUE(readTable(kOne + "\x1A" + kTwo + "\r\n"));
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 0U);
}

TEST_F(TaskList, NeedsNothingInTheLastColumn) {
  EXPECT_TRUE(readTable("ONE,  0, 0, KEL_TRACE, 1, REF, 1001,\r\n" + kTwo + "\n"));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 1002U);
}

// The end of the row is no failure of a scan: it is met where the next comma is looked for.
TEST_F(TaskList, FailsIfARowIsCutBehindItsType) {
  EXPECT_FALSE(readTable(kOne + "\nTWO,  1, 0, KEL_TRACE, 1, VAL,\n" + kThree + "\n"));
  expectReported({kFileOpened, {"error", "ReadOneTUI", "could not read hex TUI field. \n"}, kFileEnded});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 0U);
}

TEST_F(TaskList, IsTheBuiltInOneIfTheFileIsAFolder) {
  std::filesystem::create_directory("table.csv");
  EXPECT_TRUE(readTUIs());
  expectReported({{"info", "ReadTUIs", kNotOpened}});
  EXPECT_EQ(tuiOf("TASK_ID_TRACE_ADAPTER"), 614400U);
}

// Reads a table from a file that fails after so many bytes.
class UnreadableTaskList : public TaskList {
 protected:
  bool readUnreadable(const std::string& content, std::size_t readable) {
    mDirectory.write("table.csv", content);
    return printed([this, readable] {
      const FailingRead fails(readable);
      return mList.ReadTUIs();
    });
  }
};

TEST_F(UnreadableTaskList, EndsAheadOfTheFirstLineThatCannotBeRead) {
  EXPECT_TRUE(readUnreadable(kOne + "\n" + kTwo + "\n", kOne.size() + 1 + kTwo.size()));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 0U);
}

TEST_F(UnreadableTaskList, FailsIfThatIsTheFirstOfAll) {
  EXPECT_FALSE(readUnreadable(kOne + "\n", kOne.size()));
  expectReported({kFileOpened, kFileEnded});
}

TEST_F(TaskList, FailsIfAPieceOfALongLineIsNoRow) {
  EXPECT_FALSE(readTable(kOne + std::string(300 - kOne.size(), ' ') + "0x3e9\n"));
  expectReported({kFileOpened, {"error", "ReadOneTUI", "could not read INDEX field. \n"}, kFileEnded});
}

TEST_F(TaskList, FailsWithALowerCaseType) {
  EXPECT_FALSE(readTable("ONE,  0, 0, KEL_TRACE, 1, ref, 1001, 0x3e9\n"));
  expectReported({kFileOpened, kTypeNotResolved, kFileEnded});
}

TEST_F(TaskList, KeepsTheRowsThatStandAheadOfAFault) {
  EXPECT_FALSE(readTable(kOne + "\nTWO,  1, 0, KEL_TRACE, 1, XXX, 1002, 0x3ea\n" + kThree + "\n"));
  expectReported({kFileOpened, kTypeNotResolved, kFileEnded});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("TWO"), 0U);
  EXPECT_EQ(tuiOf("THREE"), 0U);
}

TEST_F(TaskList, LoadsWhatContradictsItselfOrIsUnheardOf) {
  EXPECT_TRUE(
      readTable("LONG_TYPE,  0, 0, KEL_TRACE, 1, REFERENCE, 1, 0x1\n"
                "OTHER_HEX,  0, 0, KEL_TRACE, 1, REF, 2, 0xffff\n"
                "NO_HEX,  0, 0, KEL_TRACE, 1, REF, 3, seven\n"
                "OTHER_TARGET,  0, 0, KEL_MOON, 1, VAL, 4, 0x4\n"
                "OTHER_COLUMNS,  31, 127, KEL_TRACE, 7, VAL, 614400, 0x5\n"));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("LONG_TYPE"), 1U);
  EXPECT_EQ(tuiOf("OTHER_HEX"), 2U);
  EXPECT_EQ(tuiOf("NO_HEX"), 3U);
  EXPECT_EQ(tuiOf("OTHER_TARGET"), 4U);
  EXPECT_EQ(tuiOf("OTHER_COLUMNS"), 614400U);
}

TEST_F(TaskList, TakesTheLow32BitsOfANumberThatDoesNotFit) {
  EXPECT_TRUE(
      readTable("MOST,  0, 0, KEL_TRACE, 1, REF, 4294967295, 0x0\n"
                "MORE,  0, 0, KEL_TRACE, 1, REF, 4294967303, 0x0\n"));
  EXPECT_EQ(tuiOf("MOST"), 0xFFFFFFFFU);
  EXPECT_EQ(tuiOf("MORE"), 7U);
  EXPECT_EQ(nameOf(7), "MORE");
}

TEST_F(TaskList, TheSecondOfTwoRowsWithOneNameGivesItsTUI) {
  EXPECT_TRUE(readTable(kOne + "\nONE,  1, 0, KEL_TRACE, 1, VAL, 1002, 0x3ea\n"));
  EXPECT_EQ(tuiOf("ONE"), 1002U);
  EXPECT_EQ(nameOf(1001), "ONE");
  EXPECT_EQ(nameOf(1002), "ONE");
}

TEST_F(TaskList, TheSecondOfTwoRowsWithOneTUIGivesItsName) {
  EXPECT_TRUE(readTable(kOne + "\nUNO,  0, 0, KEL_TRACE, 1, REF, 1001, 0x3e9\n"));
  EXPECT_EQ(nameOf(1001), "UNO");
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("UNO"), 1001U);
}

TEST_F(TaskList, KeepsNamesOfBytesBeyondASCII) {
  EXPECT_TRUE(
      readTable("T\xC3\x84SK,  0, 0, KEL_TRACE, 1, REF, 1, 0x1\n"
                "T\xFFSK,  0, 0, KEL_\xFF, 1, REF, 2, 0x2\n"));
  expectReported({kFileOpened});
  EXPECT_EQ(tuiOf("T\xC3\x84SK"), 1U);
  EXPECT_EQ(tuiOf("T\xFFSK"), 2U);
  EXPECT_EQ(nameOf(2), "T\xFFSK");
}

TEST_F(TaskList, EndsAtALineThatOpensWithAZeroByte) {
  EXPECT_TRUE(readTable(kOne + "\n" + '\0' + kTwo + "\n" + kThree + "\n"));
  EXPECT_EQ(tuiOf("ONE"), 1001U);
  EXPECT_EQ(tuiOf("THREE"), 0U);
}

TEST_F(TaskList, ReadAgainForgetsTheOldNamesButNotTheOldTUIs) {
  ASSERT_TRUE(readTable(kOne + "\n"));
  ASSERT_TRUE(readTable(kTwo + "\n"));
  EXPECT_EQ(tuiOf("ONE"), 0U);
  EXPECT_EQ(tuiOf("TWO"), 1002U);
  EXPECT_EQ(nameOf(1001), "ONE");
  EXPECT_EQ(nameOf(1002), "TWO");
}

TEST_F(TaskList, LooksForTheCustomaryFileUnlessToldAnother) {
  mDirectory.write("KEL_ALLTASKS.csv", kThree + "\n");
  BrelTUIsList list;
  list.SetTUIsFile(&mLogger, nullptr);
  ASSERT_TRUE(list.ReadTUIs());
  std::uint32_t tui = 0;
  EXPECT_TRUE(list.FindTuiByName("test", "THREE", &tui));
  EXPECT_EQ(tui, 1003U);
}

TEST_F(TaskList, CopiesTheFilesName) {
  mDirectory.write("mine.csv", kThree + "\n");
  std::string name = "mine.csv";
  mList.SetTUIsFile(&mLogger, name.c_str());
  name.assign("xxxxxxxx");
  ASSERT_TRUE(readTUIs());
  EXPECT_EQ(tuiOf("THREE"), 1003U);
}

TEST_F(TaskList, KeepsItsFilesNameIfThereIsNoMemoryForAnother) {
  {
    const FailingHeap heap(0);
    EXPECT_THROW(mList.SetTUIsFile(&mLogger, "other.csv"), std::bad_alloc);
  }
  ASSERT_TRUE(readTable(kThree + "\n"));
  EXPECT_EQ(tuiOf("THREE"), 1003U);
}

TEST_F(TaskList, ANullNameLeavesTheOldOneInPlace) {
  mList.SetTUIsFile(&mLogger, nullptr);
  ASSERT_TRUE(readTable(kThree + "\n"));
  EXPECT_EQ(tuiOf("THREE"), 1003U);
}

TEST_F(TaskList, PrintsNothingUnlessToldTo) {
  mList.mLogToConsole = 0;
  EXPECT_FALSE(readTable("ONE\n"));
  EXPECT_EQ(tuiOf("ONE"), 0U);
  EXPECT_EQ(mConsole, "");
}

// A stream without a position is one of something that is no file.
TEST_F(TaskList, TakesTheBuiltInTableIfTheFileHasNoPosition) {
  mDirectory.write("table.csv", kOne + "\n");
  ASSERT_TRUE(printed([this] {
    const FailingTell noPosition;
    return mList.ReadTUIs();
  }));
  expectReported({kFileOpened, {"error", "ReadTUIs", "The KEL_ALLTASKS.csv TUIs file is EMPTY. Using defaults. \n"}});
  EXPECT_EQ(tuiOf("TASK_ID_TRACE_ADAPTER"), 614400U);
  EXPECT_EQ(tuiOf("ONE"), 0U);
}

TEST_F(TaskList, FailsIfAFileWithoutAPositionDoesNotClose) {
  mDirectory.write("table.csv", kOne + "\n");
  EXPECT_FALSE(printed([this] {
    const FailingTell noPosition;
    const FailingClose doesNotClose;
    return mList.ReadTUIs();
  }));
  expectReported({kFileOpened,
                  {"error", "ReadTUIs", "The KEL_ALLTASKS.csv TUIs file is EMPTY. Using defaults. \n"},
                  kFileNotClosed});
}

// Reads a table from a file that does not close.
class UnclosableTaskList : public TaskList {
 protected:
  bool readUnclosable(const std::string& content) {
    mDirectory.write("table.csv", content);
    return printed([this] {
      const FailingClose doesNotClose;
      return mList.ReadTUIs();
    });
  }
};

TEST_F(UnclosableTaskList, IsReadIfTheFileHadItsNormalEnd) {
  EXPECT_TRUE(readUnclosable(kOne + "\n"));
  expectReported({kFileOpened, kFileNotClosed});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
}

TEST_F(UnclosableTaskList, FailsIfTheFileEndedAtABlankLine) {
  EXPECT_FALSE(readUnclosable(kOne + "\n\n" + kTwo + "\n"));
  expectReported({kFileOpened, kFileNotClosed});
  EXPECT_EQ(tuiOf("ONE"), 1001U);
}

TEST_F(UnclosableTaskList, FailsForItsOwnReasonFirst) {
  EXPECT_FALSE(readUnclosable(""));
  expectReported({kFileOpened, kFileEnded, kFileNotClosed});
}

}  // namespace
}  // namespace kel::test
