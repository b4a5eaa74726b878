// SPDX-License-Identifier: MIT
// Lines of `kelctl shell`: their words, and how they are completed.
#include <gtest/gtest.h>

#include <CLI/App.hpp>

#include "command_line.h"
#include "options.h"
#include "shell_line.h"

namespace kelctl {
namespace {

using Words = std::vector<std::string>;

TEST(ShellWords, ArePartedByBlanks) {
  EXPECT_EQ(wordsOf(""), Words());
  EXPECT_EQ(wordsOf("  \t "), Words());
  EXPECT_EQ(wordsOf(" send  TASK\t--val 1\r"), (Words{"send", "TASK", "--val", "1"}));
}

TEST(ShellWords, MayHaveBlanksInQuotes) {
  EXPECT_EQ(wordsOf("send T --text 'a b'"), (Words{"send", "T", "--text", "a b"}));
  EXPECT_EQ(wordsOf("\"it's\" 'say \"x\"'"), (Words{"it's", "say \"x\""}));
  EXPECT_EQ(wordsOf("a'b c'd"), (Words{"ab cd"}));
  EXPECT_EQ(wordsOf("'' \"\""), (Words{"", ""}));
}

TEST(ShellWords, MayHaveCharactersBehindBackslashes) {
  EXPECT_EQ(wordsOf("a\\ b \\# \"\\\"\" '\\'"), (Words{"a b", "#", "\"", "\\"}));
  EXPECT_EQ(wordsOf("a\\"), Words{"a\\"});
}

TEST(ShellWords, EndAtAComment) {
  EXPECT_EQ(wordsOf("# nothing"), Words());
  EXPECT_EQ(wordsOf("ping # once"), Words{"ping"});
  EXPECT_EQ(wordsOf("a#b '#'"), (Words{"a#b", "#"}));
}

TEST(ShellWords, AreNoneIfAQuotationHasNoEnd) {
  EXPECT_EQ(wordsOf("send 'T"), std::nullopt);
  EXPECT_EQ(wordsOf("send \"T"), std::nullopt);
}

class ShellCompletion : public testing::Test {
 protected:
  ShellCompletion() { addVerbs(app, plan); }
  Words of(const std::string& line) const { return candidates(app, line, {"TASK_ONE", "TASK_TWO", "OTHER"}); }

  Plan plan;
  CLI::App app{"", "kelctl"};
};

TEST_F(ShellCompletion, OfAFirstWordIsAVerb) {
  EXPECT_EQ(of("sen"), Words{"send"});
  EXPECT_EQ(of("str"), Words{"stream"});
  EXPECT_TRUE(of("nothing").empty());
}

TEST_F(ShellCompletion, OfAVerbsVerbIsOneOfThose) { EXPECT_EQ(of("tasks f"), Words{"find"}); }

TEST_F(ShellCompletion, OfATaskIsItsName) {
  EXPECT_EQ(of("send TASK"), (Words{"TASK_ONE", "TASK_TWO"}));
  EXPECT_EQ(of("stream O"), Words{"OTHER"});
}

TEST_F(ShellCompletion, OfAnOptionIsItsLongName) {
  EXPECT_EQ(of("send TASK_ONE --va"), Words{"--val"});
  EXPECT_EQ(of("listen --tri"), Words{"--trigger"});
}

TEST_F(ShellCompletion, KnowsWhatAnOptionTakes) {
  EXPECT_EQ(of("monitor --stream TASK_T"), Words{"TASK_TWO"});
  EXPECT_TRUE(of("send --in T").empty());
}

TEST_F(ShellCompletion, BehindABlankIsAllThatMayFollow) {
  const Words all = of("tasks ");
  EXPECT_NE(std::find(all.begin(), all.end(), "find"), all.end());
  EXPECT_NE(std::find(all.begin(), all.end(), "--table"), all.end());
}

}  // namespace
}  // namespace kelctl
