// SPDX-License-Identifier: MIT
// The lines of a log and the switches ahead of them.
#include <gmock/gmock.h>

#include <limits>
#include <thread>

#include "logging/Registry.h"
#include "logging/logger_test.h"

namespace kel::test {
namespace {

using platform::RegistryRoot;

const std::string kHead = "\n[0 - 0] info - Module - function - ";

TEST_F(Logger, WritesALineBehindALineBreakOfItsOwn) {
  setUp(true, true, true);
  logger.log(kInfo, "function", kLogFlags) << "(" << 0u << ") - "
                                           << "Success. \n";
  logger.log(kInfo, "other", kLogFlags) << "Start. \n";
  EXPECT_EQ(written(),
            "\n[0 - 0] info - Module - function - (0) - Success. \n"
            "\n[0 - 0] info - Module - other - Start. \n");
}

TEST_F(Logger, WritesEachPieceAtOnce) {
  setUp(true, true, true);
  logger.log(kInfo, "function", kLogFlags);
  EXPECT_EQ(written(), kHead);
  logger << "one, ";
  EXPECT_EQ(written(), kHead + "one, ");
  logger << 2;
  EXPECT_EQ(written(), kHead + "one, 2");
}

TEST_F(Logger, NamesEachLevelByItsWord) {
  setUp(true, true, true);
  for (const std::uint32_t level : {0u, 1u, 2u}) logger.log(level, "function", kLogFlags) << "text \n";
  EXPECT_EQ(written(),
            "\n[0 - 0] info - Module - function - text \n"
            "\n[0 - 0] warning - Module - function - text \n"
            "\n[0 - 0] error - Module - function - text \n");
}

TEST_F(Logger, LetsOnlyInfoThroughWithItsSwitch) {
  setUp(true, false, false);
  for (const std::uint32_t level : {0u, 1u, 2u}) logger.log(level, "function", kLogFlags) << "text \n";
  EXPECT_EQ(written(), "\n[0 - 0] info - Module - function - text \n");
}

TEST_F(Logger, LetsOnlyWarningsThroughWithTheirSwitch) {
  setUp(false, true, false);
  for (const std::uint32_t level : {0u, 1u, 2u}) logger.log(level, "function", kLogFlags) << "text \n";
  EXPECT_EQ(written(), "\n[0 - 0] warning - Module - function - text \n");
}

TEST_F(Logger, WritesNoInfoButHeadAndTextOfAnErrorWithInfo0AndErr1) {
  setUp(false, false, true);
  logger.log(kInfo, "function", kLogFlags) << "progress \n";
  EXPECT_FALSE(anyFile());
  logger.log(kError, "function", kLogFlags) << "trouble " << 7u << " \n";
  EXPECT_EQ(written(), "\n[0 - 0] error - Module - function - trouble 7 \n");
}

TEST_F(Logger, TakesEverySwitchThatIsNot0ForOn) {
  registry.set(kLoggerRegistryKey, "Info", 0x80000000u);
  setUp();
  logger.log(kInfo, "function", kLogFlags) << "text \n";
  EXPECT_EQ(written(), kHead + "text \n");
}

TEST_F(Logger, MakesNoFileWithoutSwitches) {
  setUp();
  for (const std::uint32_t level : {0u, 1u, 2u}) logger.log(level, "function", kLogFlags) << "text \n";
  EXPECT_FALSE(anyFile());
}

TEST_F(Logger, ReadsTheSwitchesOnceOnly) {
  setUp(true, false, false);
  switchLog(false, true, true);
  logger.log(kInfo, "function", kLogFlags) << "text \n";
  logger.log(kError, "function", kLogFlags) << "text \n";
  EXPECT_EQ(written(), kHead + "text \n");
}

TEST_F(Logger, ReadsAllSwitchesAnewWithEachKey) {
  setUp(true, true, true);
  logger.setRegistryKey("Software\\Brel\\NoSuchKey");
  for (const std::uint32_t level : {0u, 1u, 2u}) logger.log(level, "function", kLogFlags) << "text \n";
  EXPECT_FALSE(anyFile());
}

TEST_F(Logger, WritesNothingAtALevelAboveTwo) {
  setUp(true, true, true);
  logger.log(3, "function", kLogFlags) << "text \n";
  logger.log(std::numeric_limits<std::uint32_t>::max(), "function", kLogFlags) << "text \n";
  EXPECT_FALSE(anyFile());
}

TEST_F(Logger, SwitchesInsertionsOffWithALineThatIsOff) {
  setUp(true, false, true);
  logger.log(kInfo, "function", kLogFlags) << "one \n";
  logger.log(3, "function", kLogFlags);
  logger << "two \n";
  logger.log(kWarning, "function", kLogFlags);
  logger << "three \n";
  EXPECT_EQ(written(), kHead + "one \n");
}

TEST_F(Logger, WritesNothingAheadOfTheFirstLine) {
  setUp(true, true, true);
  logger << "text \n";
  EXPECT_FALSE(anyFile());
}

TEST_F(Logger, LeavesANullFunctionOutWithItsSeparator) {
  setUp(true, true, true);
  logger.log(kInfo, nullptr, kLogFlags) << "text \n";
  EXPECT_EQ(written(), "\n[0 - 0] info - Module - text \n");
}

TEST_F(Logger, LeavesAModuleThatWasNeverNamedOut) {
  registry.switchLogsOn();
  logger.setRegistryKey(kLoggerRegistryKey);
  logger.setFileName("test.logs");
  logger.log(kInfo, "function", kLogFlags) << "text \n";
  logger.log(kInfo, nullptr, kLogFlags) << "text \n";
  EXPECT_EQ(written(), "\n[0 - 0] info - function - text \n\n[0 - 0] info - text \n");
}

TEST_F(Logger, WritesTexts) {
  setUp(true, true, true);
  const char array[] = "array, ";
  const std::string held = "held";
  const char* pointer = held.c_str();
  logger.log(kInfo, "function", kLogFlags) << "literal, " << array << pointer << "";
  EXPECT_EQ(written(), kHead + "literal, array, held");
}

TEST_F(Logger, WritesNumbersInDecimal) {
  setUp(true, true, true);
  logger.log(kInfo, "function", kLogFlags) << std::int32_t{-5} << " " << std::numeric_limits<std::int32_t>::min() << " "
                                           << std::numeric_limits<std::uint32_t>::max() << " " << 10u;
  EXPECT_EQ(written(), kHead + "-5 -2147483648 4294967295 10");
}

TEST_F(Logger, WritesAByteAsTheCharacterThatItIs) {
  setUp(true, true, true);
  logger.log(kInfo, "function", kLogFlags) << "SocketID = " << std::uint8_t{65} << std::uint8_t{0} << std::uint8_t{254};
  EXPECT_EQ(written(), kHead + "SocketID = A" + std::string("\0\xFE", 2));
}

TEST_F(Logger, WritesHandlesInHexadecimalDigits) {
  setUp(true, true, true);
  logger.log(kInfo, "function", kLogFlags) << reinterpret_cast<const void*>(std::uintptr_t{0x1ab2c});
  EXPECT_EQ(written(), kHead + "0x1ab2c");
}

TEST_F(Logger, FormatsNumbersAsTheFlagsOfTheLineSay) {
  setUp(true, true, true);
  constexpr std::uint32_t kHexadecimal = 0x800, kUppercase = 0x4, kShowBase = 0x8, kShowSign = 0x20, kDecimal = 0x200;
  logger.log(kInfo, "function", kHexadecimal) << 255u;
  logger.log(kInfo, "function", kHexadecimal | kUppercase | kShowBase) << 255u;
  logger.log(kInfo, "function", kDecimal | kShowSign) << 7;
  EXPECT_EQ(written(), kHead + "ff" + kHead + "0XFF" + kHead + "+7");
}

TEST_F(Logger, LooksAtTheLowSixteenBitsOfTheFlagsOnly) {
  setUp(true, true, true);
  logger.log(kInfo, "function", 0xFFFF0000u | kLogFlags) << 255u;
  EXPECT_EQ(written(), kHead + "255");
}

TEST_F(Logger, LosesLinesSilentlyInAFolderThatIsMissing) {
  registry.set(kLoggerRegistryKey, "LogPath", "no_such_folder");
  setUp(true, true, true);
  logger.log(kInfo, "function", kLogFlags) << "text \n" << 5u;
  EXPECT_FALSE(directory.has("no_such_folder"));
  EXPECT_FALSE(anyFile());
}

TEST_F(Logger, GoesOnWritingWhenTheFolderComesBack) {
  registry.set(kLoggerRegistryKey, "LogPath", "folder");
  setUp(true, true, true);
  logger.log(kInfo, "function", kLogFlags) << "one \n";
  std::filesystem::create_directory("folder");
  // The line is on, although its head found no file.
  logger << "two \n";
  EXPECT_EQ(LogText("test.logs", "folder"), "two \n");
}

TEST_F(Logger, SharesAFileWithOthers) {
  setUp(true, true, true);
  ALogger other;
  other.setRegistryKey(kLoggerRegistryKey);
  other.setFileName("test.logs");
  other.setModuleName("Other");
  logger.log(kInfo, "function", kLogFlags) << "one, ";
  other.log(kInfo, "function", kLogFlags) << "two, ";
  logger << "three \n";
  EXPECT_EQ(written(), kHead + "one, \n[0 - 0] info - Other - function - two, three \n");
}

TEST_F(Logger, SharesOneReadingOfTheSwitchesWithTheOthersOfItsObject) {
  switchLog(true, false, false);
  ALogger second, third;
  const auto setUpOther = [](ALogger& other) {
    other.setRegistryKey(kLoggerRegistryKey);
    other.setFileName("test.logs");
  };
  {
    const SwitchesReadOnce forBoth;
    setUp();
    switchLog(false, true, false);
    setUpOther(second);
  }
  setUpOther(third);
  for (ALogger* each : {&logger, &second, &third}) {
    each->log(kInfo, nullptr, kLogFlags) << "i";
    each->log(kWarning, nullptr, kLogFlags) << "w";
  }
  EXPECT_EQ(written(), "\n[0 - 0] info - Module - i\n[0 - 0] info - i\n[0 - 0] warning - w");
}

TEST_F(Logger, SharesNoReadingOfAnotherKey) {
  switchLog(true, true, true);
  const SwitchesReadOnce forAll;
  ALogger other;
  other.setRegistryKey(kLoggerRegistryKey);
  other.setRegistryKey("Software\\Brel\\NoSuchKey");
  other.setFileName("test.logs");
  other.log(kError, "function", kLogFlags) << "text";
  EXPECT_FALSE(anyFile());
}

TEST_F(Logger, WithoutAKeyHasNothingToShareAndIsOff) {
  switchLog(true, true, true);
  const SwitchesReadOnce forAll;
  ALogger other;
  other.setRegistryKey(kLoggerRegistryKey);
  other.setRegistryKey(nullptr);
  other.setFileName("test.logs");
  other.log(kError, "function", kLogFlags) << "text";
  EXPECT_FALSE(anyFile());
  setUp();
  logger.log(kError, nullptr, kLogFlags) << "text";
  EXPECT_EQ(written(), "\n[0 - 0] error - Module - text");
}

TEST_F(Logger, MayBeGivenAnotherFileWhileItWrites) {
  setUp(true, true, true);
  std::thread writer([this] {
    for (int i = 0; i < 50; ++i) logger.log(kInfo, "function", kLogFlags) << "text \n";
  });
  for (int i = 0; i < 50; ++i) logger.setFileName(i % 2 == 0 ? "other.logs" : "test.logs");
  writer.join();
  const std::size_t size = written().size() + LogText("other.logs").size();
  EXPECT_EQ(size, 50 * (kHead + "text \n").size());
}

TEST(StaticLogger, WritesNothingBeforeItsSetUp) {
  const ScratchDirectory directory;
  RegistrySettings registry;
  registry.switchLogsOn();
  static constinit ALogger unset;
  unset.log(kError, "function", kLogFlags) << "text \n";
  for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
    EXPECT_EQ(entry.path().filename(), "Brel.registry");
  }
}

class RegistryReader : public Logger {};

TEST_F(RegistryReader, ReadsANumber) {
  registry.set("Software\\Brel\\Test", "Value", 4000000000u);
  std::uint32_t number = 0;
  EXPECT_TRUE(ReadRegistryDword(RegistryRoot::localMachine, "Software\\Brel\\Test", "Value", &number));
  EXPECT_EQ(number, 4000000000u);
}

TEST_F(RegistryReader, ReadsThoseOfSeveralNumbersThatAreThere) {
  registry.set("Software\\Brel\\Test", "First", 1u);
  registry.set("Software\\Brel\\Test", "Third", 3u);
  const char* const names[] = {"First", "Second", "Third"};
  std::uint32_t numbers[] = {77, 77, 77};
  EXPECT_EQ(ReadRegistryDwords(RegistryRoot::localMachine, "Software\\Brel\\Test", 3, names, numbers), 2u);
  EXPECT_THAT(numbers, testing::ElementsAre(1u, 77u, 3u));
  EXPECT_EQ(ReadRegistryDwords(RegistryRoot::localMachine, "Software\\Brel\\Missing", 3, names, numbers), 0u);
  EXPECT_EQ(ReadRegistryDwords(RegistryRoot::localMachine, nullptr, 3, names, numbers), 0u);
  EXPECT_THAT(numbers, testing::ElementsAre(1u, 77u, 3u));
}

TEST_F(RegistryReader, ReadsAText) {
  registry.set("Software\\Brel\\Test", "Value", "some text");
  std::string text;
  EXPECT_TRUE(ReadRegistryString(RegistryRoot::localMachine, "Software\\Brel\\Test", "Value", &text));
  EXPECT_EQ(text, "some text");
}

TEST_F(RegistryReader, LeavesItsOutputAloneIfThereIsNothingToRead) {
  registry.set("Software\\Brel\\Test", "Value", 5u);
  std::uint32_t number = 77;
  std::string text = "before";
  EXPECT_FALSE(ReadRegistryDword(RegistryRoot::localMachine, "Software\\Brel\\Missing", "Value", &number));
  EXPECT_FALSE(ReadRegistryDword(RegistryRoot::localMachine, "Software\\Brel\\Test", "Missing", &number));
  EXPECT_FALSE(ReadRegistryString(RegistryRoot::localMachine, "Software\\Brel\\Missing", "Value", &text));
  EXPECT_FALSE(ReadRegistryString(RegistryRoot::localMachine, "Software\\Brel\\Test", "Missing", &text));
  EXPECT_EQ(number, 77u);
  EXPECT_EQ(text, "before");
}

TEST_F(RegistryReader, RefusesNullTexts) {
  registry.set("Software\\Brel\\Test", "Value", 5u);
  std::uint32_t number = 77;
  std::string text = "before";
  EXPECT_FALSE(ReadRegistryDword(RegistryRoot::localMachine, nullptr, "Value", &number));
  EXPECT_FALSE(ReadRegistryDword(RegistryRoot::localMachine, "Software\\Brel\\Test", nullptr, &number));
  EXPECT_FALSE(ReadRegistryString(RegistryRoot::localMachine, nullptr, "Value", &text));
  EXPECT_FALSE(ReadRegistryString(RegistryRoot::localMachine, "Software\\Brel\\Test", nullptr, &text));
  EXPECT_EQ(number, 77u);
  EXPECT_EQ(text, "before");
}

}  // namespace
}  // namespace kel::test
