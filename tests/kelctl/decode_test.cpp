// SPDX-License-Identifier: MIT
// `kelctl decode` of files that the library itself wrote, and of files that it did not.
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

#include "kelctl/kelctl_test.h"

namespace kelctl {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kVal[] = "TASK_ID_APPLICATION_DEBUG_VAL";
constexpr char kRef[] = "TASK_ID_APPLICATION_DEBUG_REF";

class DecodeTest : public KelctlTest {
 protected:
  /// Has the library dump a task on its way out and its answer on the way in.
  void dump(const std::vector<std::string>& words) {
    mFolder.writeSettings(
        "RequestStructDumpFilename=out.record\nRequestStructPayloadDumpFilename=out.payload\n"
        "ResponseStructDumpFilename=in.record\nResponseStructPayloadDumpFilename=in.payload\n");
    kelctl(words);
    ASSERT_EQ(mStatus, 0) << mErrors;
  }

  std::string decoded(const std::string& content, const std::vector<std::string>& more = {}) {
    mFolder.write("dump", content);
    std::vector<std::string> words{"decode", "dump"};
    words.insert(words.end(), more.begin(), more.end());
    return kelctl(words);
  }

  static std::string Bytes() {
    std::ifstream file("bytes", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
};

TEST_F(DecodeTest, ARequestsRecordIsTakenApart) {
  dump({"send", kVal, "--val", "7", "8", "4294967295"});
  EXPECT_EQ(kelctl({"decode", "out.record"}),
            "name      TASK_ID_APPLICATION_DEBUG_VAL\n"
            "TUI       0x38240  229952\n"
            "target    upper DSPs\n"
            "zone      18\n"
            "index     0\n"
            "priority  3\n"
            "type      VAL\n"
            "word 2    1  (in a request: 1 if a response is expected; in a response: its error)\n"
            "seqTUI    0x38240\n"
            "payload   VAL     12 bytes  7 8 4294967295\n");
  EXPECT_EQ(mStatus, 0);
}

TEST_F(DecodeTest, AnAnswersRecordIsTakenApart) {
  dump({"send", kRef, "--text", "a\nb"});
  const std::string text = kelctl({"decode", "in.record"});
  EXPECT_THAT(text, StartsWith("name      TASK_ID_APPLICATION_DEBUG_REF\n"));
  EXPECT_THAT(
      text,
      EndsWith("payload   REF      4 bytes\n00000000  61 0a 62 00                                       |a.b.|\n"));
}

TEST_F(DecodeTest, PayloadsAreToldInTheirForm) {
  dump({"send", kVal, "--val", "7", "8", "4294967295"});
  EXPECT_EQ(kelctl({"decode", "out.payload"}), "VAL     12 bytes  7 8 4294967295\n");
  EXPECT_EQ(kelctl({"decode", "in.payload"}), "VAL     12 bytes  7 8 4294967295\n");
  dump({"send", kRef, "--hex", "0d 0a"});
  EXPECT_THAT(kelctl({"decode", "out.payload"}), StartsWith("REF      2 bytes\n00000000  0d 0a "));
  dump({"send", kRef});
  EXPECT_EQ(kelctl({"decode", "out.payload"}), "REF      0 bytes\n");
}

TEST_F(DecodeTest, ThePayloadOfAnyDumpGoesToAFile) {
  dump({"send", kRef, "--hex", "0a 0d 0a 1a 00 ff"});
  for (const char* name : {"out.record", "out.payload", "in.record", "in.payload"}) {
    EXPECT_EQ(kelctl({"decode", name, "--out", "bytes"}), "");
    EXPECT_EQ(Bytes(), std::string("\x0a\x0d\x0a\x1a\x00\xff", 6)) << name;
  }
}

// Windows writes each line feed as two bytes, in the payload too.
TEST_F(DecodeTest, ADumpOfWindowsIsReadAnywhere) {
  EXPECT_EQ(decoded("VAL\r\n1\r\n2\r\n-1\r\n"), "VAL     12 bytes  1 2 4294967295\n");
  EXPECT_EQ(decoded("REF\r\n4\r\na\r\n\r\r\n", {"--out", "bytes"}), "");
  EXPECT_EQ(Bytes(), "a\n\r\n");
  EXPECT_EQ(mStatus, 0);
}

// If each line end taken back moved all the bytes behind it, this would take half an hour.
TEST_F(DecodeTest, ALargeDumpOfWindowsIsReadAtOnce) {
  constexpr std::size_t kLines = 4'000'000;
  std::string content = "REF\r\n" + std::to_string(kLines) + "\r\n";
  for (std::size_t i = 0; i < kLines; ++i) content += "\r\n";
  EXPECT_EQ(decoded(content, {"--out", "bytes"}), "");
  EXPECT_EQ(mStatus, 0) << mErrors;
  EXPECT_TRUE(Bytes() == std::string(kLines, '\n'));  // no text for either if they differ
}

TEST_F(DecodeTest, AnEmptyFileIsADumpAsWell) {
  EXPECT_THAT(decoded(""), StartsWith("an empty file"));
  EXPECT_EQ(mStatus, 0);
}

TEST_F(DecodeTest, WhatIsMissingIsToldAndTheRestShown) {
  EXPECT_THAT(decoded("REF\n5\nabc"), HasSubstr("61 62 63"));
  EXPECT_EQ(mStatus, 1);
  EXPECT_EQ(mErrors, "kelctl: dump: the last 2 bytes of the payload are missing\n");
}

TEST_F(DecodeTest, WhatIsNoDumpIsRefused) {
  for (const char* content : {"hello\n", "REF\nmany\n", "VAL\n1\n2\n", "28\nshort", "\n", "12"}) {
    EXPECT_EQ(decoded(content), "") << content;
    EXPECT_THAT(mErrors, StartsWith("kelctl: dump: this is no dump file.")) << content;
    EXPECT_EQ(mStatus, 1);
  }
}

TEST_F(DecodeTest, ASizeBeyondAnyFileIsOnlyMissing) {
  EXPECT_EQ(decoded("REF\n-1\n"), "REF      0 bytes\n");
  EXPECT_EQ(mErrors, "kelctl: dump: the last 4294967295 bytes of the payload are missing\n");
}

}  // namespace
}  // namespace kelctl
