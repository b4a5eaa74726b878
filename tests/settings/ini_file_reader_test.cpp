// SPDX-License-Identifier: MIT
// The reader of one ini file. The form of such files is the platform's (tests/platform/ini_cases.h).
#include "engine/IniFileReader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "platform/platform.h"
#include "support/failing_heap.h"
#include "support/scratch_directory.h"

namespace kel::test {
namespace {

class Reader : public testing::Test {
 protected:
  void read(const std::string& lines) {
    mDirectory.write("mine.ini", "[Section]\n" + lines);
    mReader.SetIniFileName(inDirectory("mine.ini").c_str());
  }

  static std::string inDirectory(const std::string& name) { return std::string(".") + platform::kPathSeparator + name; }

  /// The number that a value reads as; the default is not one of those below.
  std::uint32_t numberOf(const std::string& value) {
    read("Key=" + value + "\n");
    return mReader.ReadIntValue("Section", "Key", 4321);
  }

  std::string textOf(const char* key, const char* defaultText = "default") {
    char* block = mReader.ReadStringValue("Section", key, defaultText);
    const std::string text = block;
    std::free(block);
    return text;
  }

  ScratchDirectory mDirectory;
  IniFileReader mReader;
};

TEST_F(Reader, KeepsItsFileIfThereIsNoMemoryForAnother) {
  read("Key=20\n");
  {
    const FailingHeap heap(0);
    EXPECT_THROW(mReader.SetIniFileName("other.ini"), std::bad_alloc);
  }
  EXPECT_EQ(mReader.ReadIntValue("Section", "Key", 0), 20U);
}

// Whether a file takes memory to read is the platform's affair.
TEST_F(Reader, KeepsNoBlockOfATextThatThereIsNoMemoryToRead) {
  read("Key=" + std::string(500, 'k') + "\n");
  const FailingHeap heap(1);  // behind the block itself
  try {
    std::free(mReader.ReadStringValue("Section", "Key", "default"));
  } catch (const std::bad_alloc&) {
  }
}

TEST_F(Reader, ReadsDecimalNumbers) {
  EXPECT_EQ(numberOf("0"), 0U);
  EXPECT_EQ(numberOf("20"), 20U);
  EXPECT_EQ(numberOf("0020"), 20U);
  EXPECT_EQ(numberOf("  70000  "), 70000U);
  EXPECT_EQ(numberOf("\"30\""), 30U);
  EXPECT_EQ(numberOf("2147483647"), 0x7FFFFFFFU);
  EXPECT_EQ(numberOf("-1"), 0xFFFFFFFFU);
  EXPECT_EQ(numberOf("+7"), 7U);
}

TEST_F(Reader, ReadsANumberAsFarAsItIsOne) {
  EXPECT_EQ(numberOf("20ms"), 20U);
  EXPECT_EQ(numberOf("1.9"), 1U);
  EXPECT_EQ(numberOf("00x10"), 0U);
}

TEST_F(Reader, ReadsWhatIsNoNumberAsZero) {
  EXPECT_EQ(numberOf("many"), 0U);
  EXPECT_EQ(numberOf(""), 0U);
  EXPECT_EQ(numberOf("x10"), 0U);
  EXPECT_EQ(numberOf("ten 10"), 0U);
}

TEST_F(Reader, ReadsHexadecimalNumbersBehindASmallX) {
  EXPECT_EQ(numberOf("0x2710"), 10000U);
  EXPECT_EQ(numberOf("0xaBcD"), 0xABCDU);
  EXPECT_EQ(numberOf("0xFFFFFFFF"), 0xFFFFFFFFU);
  EXPECT_EQ(numberOf("0x10 and more"), 16U);
  EXPECT_EQ(numberOf("0x"), 0U);
  EXPECT_EQ(numberOf("0xyz"), 0U);
}

TEST_F(Reader, ReadsZeroBehindACapitalX) {
  EXPECT_EQ(numberOf("0X2710"), 0U);
  EXPECT_EQ(numberOf("0X1"), 0U);
}

TEST_F(Reader, GivesTheDefaultNumberForWhatIsMissing) {
  read("Key=1\n");
  EXPECT_EQ(mReader.ReadIntValue("Section", "Other", 20), 20U);
  EXPECT_EQ(mReader.ReadIntValue("Other", "Key", 20), 20U);
  EXPECT_EQ(mReader.ReadIntValue("Section", "Other", 0), 0U);
  EXPECT_EQ(mReader.ReadIntValue("Section", "Other", 0xFFFFFFFF), 0xFFFFFFFFU);
  mReader.SetIniFileName(inDirectory("missing.ini").c_str());
  EXPECT_EQ(mReader.ReadIntValue("Section", "Key", 20), 20U);
}

TEST_F(Reader, GivesTextsAndTheirDefaults) {
  read("Key=some text\nEmpty=\n");
  EXPECT_EQ(textOf("Key"), "some text");
  EXPECT_EQ(textOf("Empty"), "");
  EXPECT_EQ(textOf("Missing"), "default");
  EXPECT_EQ(textOf("Missing", ""), "");
}

TEST_F(Reader, CutsTextsAt1023Characters) {
  read("Longest=" + std::string(1023, 'a') + "\nLonger=" + std::string(1024, 'b') + "\nHuge=" + std::string(5000, 'c') +
       "\n");
  EXPECT_EQ(textOf("Longest"), std::string(1023, 'a'));
  EXPECT_EQ(textOf("Longer"), std::string(1023, 'b'));
  EXPECT_EQ(textOf("Huge"), std::string(1023, 'c'));
}

TEST_F(Reader, GivesEachTextInABlockOf1024BytesOfItsOwn) {
  read("Key=short\n");
  char* one = mReader.ReadStringValue("Section", "Key", "");
  char* other = mReader.ReadStringValue("Section", "Key", "");
  EXPECT_NE(one, other);
  std::memset(one, 'x', 1024);
  EXPECT_STREQ(other, "short");
  std::free(one);
  std::free(other);
}

TEST_F(Reader, CopiesTheNameOfItsFile) {
  mDirectory.write("mine.ini", "[Section]\nKey=1\n");
  std::string name = inDirectory("mine.ini");
  mReader.SetIniFileName(name.c_str());
  name.assign(name.size(), 'x');
  EXPECT_EQ(mReader.ReadIntValue("Section", "Key", 0), 1U);
}

TEST_F(Reader, ReadsTheFileThatItWasToldLast) {
  mDirectory.write("demo.ini", "[Section]\nKey=from demo.ini\n");
  mDirectory.write("mine.ini", "[Section]\nKey=from mine.ini\n");
  mDirectory.write("yours.ini", "[Section]\nKey=from yours.ini\n");
  mReader.SetDefaultIniFileName();
  EXPECT_EQ(textOf("Key"), "from demo.ini");
  mReader.SetIniFileName(inDirectory("mine.ini").c_str());
  EXPECT_EQ(textOf("Key"), "from mine.ini");
  mReader.SetIniFileName(inDirectory("yours.ini").c_str());
  EXPECT_EQ(textOf("Key"), "from yours.ini");
}

TEST_F(Reader, ReadsTheFileAnewForEachKey) {
  read("Key=1\n");
  EXPECT_EQ(mReader.ReadIntValue("Section", "Key", 0), 1U);
  mDirectory.write("mine.ini", "[Section]\nKey=2\n");
  EXPECT_EQ(mReader.ReadIntValue("Section", "Key", 0), 2U);
}

}  // namespace
}  // namespace kel::test
