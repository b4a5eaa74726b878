// SPDX-License-Identifier: MIT
// The reader of scenarios: what it makes of keys, and what it says of mistakes (those of cases.txt, one by one).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "Scenario.h"
#include "Tasks.h"
#include "catalogue/shipped_rows.h"
#include "support/scratch_directory.h"

namespace kel::sim {
namespace {

using testing::ElementsAre;

struct Case {
  std::string name;
  std::string text;
  std::vector<std::string> mistakes;
};

std::vector<Case> Cases() {
  std::vector<Case> cases;
  std::ifstream file(KEL_SCENARIO_CASES, std::ios::binary);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("--- ")) {
      cases.push_back({line.substr(4), {}, {}});
    } else if (cases.empty()) {
      continue;
    } else if (line.starts_with("=> ")) {
      cases.back().mistakes.push_back(line.substr(3));
    } else {
      cases.back().text += line + '\n';
    }
  }
  return cases;
}

std::vector<std::string> Told(const Reading& reading) {
  std::vector<std::string> told;
  for (const Mistake& mistake : reading.mistakes) told.push_back(TextOf("", mistake).substr(1));
  return told;
}

Scenario Good(const std::string& text) {
  const Reading reading = ReadScenario(text, "");
  EXPECT_THAT(Told(reading), ElementsAre());
  return reading.scenario;
}

class ReadingTest : public testing::Test {
 protected:
  ReadingTest() { mFolder.write("payload.bin", std::string("\0\r\n\x1a\xff", 5)); }

  kel::test::ScratchDirectory mFolder;
};

TEST_F(ReadingTest, EveryMistakeIsToldWithItsLine) {
  const std::vector<Case> cases = Cases();
  ASSERT_GT(cases.size(), 30u);
  for (const Case& one : cases) EXPECT_EQ(Told(ReadScenario(one.text, "")), one.mistakes) << one.name;
}

TEST_F(ReadingTest, NothingSaidMeansTheDeviceAsItIs) {
  const Scenario scenario = Good("{}");
  EXPECT_EQ(scenario.seed, 1u);
  EXPECT_EQ(scenario.capture, "");
  EXPECT_TRUE(scenario.rules.empty());
}

TEST_F(ReadingTest, ARuleIsOneOfTheControlInterface) {
  const Scenario scenario = Good(R"({"rules": [{"task": "TASK_ID_APPLICATION_DEBUG_VAL", "skip": 1, "times": 2,
      "reply": {"values": [1, "0x10", 4294967295]}, "delay": 5, "jitter": 6, "drop": {"probability": 0.25}}]})");
  ASSERT_EQ(scenario.rules.size(), 1u);
  const RuleTerms& rule = scenario.rules[0];
  EXPECT_EQ(rule.what.tui, 0x38240u);
  EXPECT_EQ(rule.what.tuiMask, SLUICEHUBSIM_EXACT);
  EXPECT_EQ(rule.what.skip, 1u);
  EXPECT_EQ(rule.what.times, 2u);
  EXPECT_EQ(rule.what.flags, SLUICEHUBSIM_DATA | SLUICEHUBSIM_TYPE);
  EXPECT_EQ(rule.what.type, 0u);
  EXPECT_THAT(rule.data, ElementsAre(1, 0, 0, 0, 16, 0, 0, 0, 255, 255, 255, 255));
  EXPECT_EQ(rule.what.delayMs, 5u);
  EXPECT_EQ(rule.jitterMs, 6u);
  EXPECT_EQ(rule.dropChance, std::uint64_t{1} << 30);
}

TEST_F(ReadingTest, ARuleWithoutATaskIsForEveryTask) {
  EXPECT_EQ(Good(R"({"rules": [{}]})").rules.at(0).what.tuiMask, 0u);
}

TEST_F(ReadingTest, BytesComeFromDigitsTextsAndFiles) {
  const Scenario scenario = Good(R"({"rules": [{"reply": {"hex": "00fF 10"}}, {"reply": {"text": "Hi\u00e9"}},
                                               {"reply": {"file": "payload.bin"}}]})");
  EXPECT_THAT(scenario.rules.at(0).data, ElementsAre(0x00, 0xFF, 0x10));
  EXPECT_THAT(scenario.rules.at(1).data, ElementsAre('H', 'i', 0xC3, 0xA9, 0));
  EXPECT_THAT(scenario.rules.at(2).data, ElementsAre(0, '\r', '\n', 0x1A, 0xFF));
  for (const RuleTerms& rule : scenario.rules) EXPECT_EQ(rule.what.type, 1u);
}

TEST_F(ReadingTest, FilesAreLookedForBesideTheScenario) {
  std::filesystem::create_directory("run");
  mFolder.write("run/own.json", R"({"capture": "c.pcapng", "rules": [{"reply": {"file": "own.bin"}}]})");
  mFolder.write("run/own.bin", "x");
  const Reading reading = ReadScenarioFile("run/own.json");
  EXPECT_THAT(Told(reading), ElementsAre());
  EXPECT_EQ(reading.scenario.capture, "run/c.pcapng");
}

TEST_F(ReadingTest, NamesOfFilesAreInUtf8) {
  std::ofstream(std::filesystem::path(u8"Gr\u00fc\u00dfe")) << "x";
  EXPECT_THAT(Good(R"({"rules": [{"reply": {"file": "Gr\u00fc\u00dfe"}}]})").rules.at(0).data, ElementsAre('x'));
}

TEST_F(ReadingTest, EachTaskOfTheBuiltInTableHasItsName) {
  for (const auto& row : kel::test::kShippedRows) EXPECT_EQ(FindTask(row.name), row.decimalTUI) << row.name;
  EXPECT_EQ(FindTask("task_id_trace_adapter"), std::nullopt);
}

TEST_F(ReadingTest, AMarkOfItsEncodingAndWindowsLineEndsAreFine) {
  EXPECT_EQ(Good("\xEF\xBB\xBF{\r\n\"seed\": 5\r\n}\r\n").seed, 5u);
  EXPECT_THAT(Told(ReadScenario("{\r\n\"seed\": x\r\n}", "")), ElementsAre(testing::StartsWith("2: ")));
}

TEST_F(ReadingTest, WhatIsNoUtf8IsNoScenario) {
  for (const std::string text : {"\xFF\xFE{}", "{\"capture\": \"\xFC\"}", "{\"capture\": \"\\ud800\"}"}) {
    const auto told = Told(ReadScenario(text, ""));
    ASSERT_EQ(told.size(), 1u);
    for (const char c : told[0]) EXPECT_TRUE(c >= ' ' && c <= '~') << told[0];
  }
}

TEST_F(ReadingTest, OneThatIsNestedWithoutEndIsRefused) {
  for (const char* opening : {"[", "{\"a\":"}) {
    std::string text;
    for (int i = 0; i < 100000; ++i) text += opening;
    EXPECT_THAT(Told(ReadScenario(text, "")), ElementsAre(testing::HasSubstr("nested too deeply")));
  }
}

TEST_F(ReadingTest, OneWithMoreKeysThanItTakesIsReadThrough) {
  std::string text = "{";
  for (int i = 0; i < 20000; ++i) text += '"' + std::to_string(i) + "\":0,\n";
  const auto told = Told(ReadScenario(text + "\"seed\": 1}", ""));
  EXPECT_EQ(told.size(), 20000u);
  EXPECT_THAT(told.back(), testing::StartsWith("20000: "));
}

TEST_F(ReadingTest, FilesThatAreMissingOrTooLargeAreRefused) {
  EXPECT_THAT(TextOf("no.json", ReadScenarioFile("no.json").mistakes.at(0)),
              testing::MatchesRegex("no\\.json: cannot be opened: .*; expected a scenario"));
  mFolder.write("large", std::string(kLargestScenarioFile + 1, ' '));
  EXPECT_EQ(TextOf("large", ReadScenarioFile("large").mistakes.at(0)),
            "large: is larger than 1048576 bytes; expected a scenario");
  EXPECT_THAT(Told(ReadScenario(R"({"rules": [{"reply": {"file": "large"}}]})", "")),
              ElementsAre("1: \"file\" is \"large\"; expected a file to read, but it is larger than 1048576 bytes"));
}

}  // namespace
}  // namespace kel::sim
