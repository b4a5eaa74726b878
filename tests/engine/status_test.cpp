// SPDX-License-Identifier: MIT
// The texts of the engine status and of the callback status, word for word.
#include <iterator>

#include "engine/engine_test.h"

namespace kel::test {
namespace {

constexpr const char* kTexts[] = {
    "Brel - Error - Brel has encountered an unknown error.",
    "Brel - Error - The current operation has failed.",
    "Brel - Success - The current operation was completed successfully.",
    "Brel - Error - Failed to populate the Brel's internal TUI's list (from either the internal resource or external KEL_ALLTASKS.csv file).",
    "Brel - Success - Successfully populated Brel's internal TUI's list (from either the internal resource or external KEL_ALLTASKS.csv file).",
    "Brel - Error - DorvDll.dll - Loading of the DorvDll.dll library has failed.",
    "Brel - Success - DorvDll.dll - Successfully loaded the DorvDll.dll library.",
    "Brel - Error - DorvDll.dll - Initialization of the DorvDll.dll library has failed.",
    "Brel - Success - DorvDll.dll - Successfully initialized the DorvDll.dll library.",
    "Brel - Error - DorvDll.dll - Finalization of the DorvDll.dll library has failed.",
    "Brel - Success - DorvDll.dll - Successfully finalized the DorvDll.dll library.",
    "Brel - Error - DorvDll.dll - The DorvDll.dll has failed to establish a connection with the Upper (UserMode) Driver.",
    "Brel - Success - DorvDll.dll - The DorvDll.dll successfully established a connection with the Upper (UserMode) Driver.",
    "Brel - Error - DorvDll.dll - The size of the input parameters buffer is larger than the maximum task payload size allowed (>8KB).",
    "Brel - Error - DorvDll.dll - The DorvDll.dll failed to send the data to the Upper (UserMode) Driver.",
    "Brel - Success - DorvDll.dll - The DorvDll.dll has successfully sent the data to the Upper (UserMode) Driver.",
    "Brel - Error - DorvDll.dll - The DorvDll.dll has encountered a TIMEOUT error while trying to send the data to the Upper (UserMode) Driver.",
    "Brel - Error - DorvDll.dll - The DorvDll.dll failed to send the data to the Upper (UserMode) Driver because they are disconnected.",
    "Brel - Error - DorvDll.dll - The DorvDll.dll's connection to the Upper (UserMode) Driver was severed.",
    "Brel - Error - Brel has received a response of a TYPE (REF/VAL) not expected for this request.",
    "Brel - Error - Brel failed to extract the filename from the file path it was given.",
    "Brel - Error - Version Control (RTV) - Initialization of Brel's Version Control support has failed.",
    "Brel - Error - Version Control (RTV) - Brel's Version Control has not been activated during Brel initialization. Version Control services are not available.",
    "Brel - Error - Version Control (RTV) - A null VersionsVector files path was specified to ValidateVersion. This is not allowed if Brel's Version Control has not been activated during Brel initialization.",
    "Brel - Error - Version Control (RTV) - Brel failed to retrieve the Version Control UIDs array from the driver.",
    "Brel - Error - Version Control (RTV) - The file specified did not pass its version validation check.",
    "Brel - Error - Version Control (RTV) - None of the VersionsVector files contains a UID matching the ones received from the Upper (UserMode) Driver.",
    "Brel - Error - Version Control (RTV) - The file specified could not be found in any of the VersionsVector files which contain a UID matching one of those received from the Upper (UserMode) Driver.",
    "Brel - Error - Version Control (RTV) - The RTV library was given NULL UID array.",
    "Brel - Error - Version Control (RTV) - The file name (of the file specified for version validation) is not valid.",
    "Brel - Error - Version Control (RTV) - The file buffer (of the file specified for version validation) is not valid.",
    "Brel - Error - Version Control (RTV) - A NULL pointer was specified in the userVersion argument of the ValidateVersion() API call.",
    "Brel - Error - Version Control (RTV) - The path specified to the VersionsVector files isn't NULL but there are no *VersionsVector.txt files in the folder.",
    "Brel - Error - Version Control (RTV) - Both the VersionsVector files path and Brel's internal VersionsVector resources buffer are NULL (we need to have one of them).",
};

constexpr const char* kCallbackTexts[] = {
    "Brel - Callback - Success - The current operation was completed successfully.",
    "Brel - Callback - Error - The callback was triggered due to an unknown error encountered while waiting for data to arrive from the Upper (UserMode) Driver.",
    "Brel - Callback - Error - The callback was triggered due to a TIMEOUT expiration error encountered while waiting for data to arrive from the Upper (UserMode) Driver.",
};

/// A text that a front function gave out; it was the caller's.
template <class Function>
std::string TextFrom(Function function, std::uint32_t handle, std::uint32_t code) {
  char* text = nullptr;
  EXPECT_EQ(function(handle, code, &text), 2u) << code;
  std::string result = text != nullptr ? text : "null";
  std::free(text);
  return result;
}

using StatusTest = EngineTest;

TEST_F(StatusTest, EachStatusFromZeroToThirtyThreeHasItsText) {
  ASSERT_EQ(std::size(kTexts), 34u);
  const std::uint32_t handle = start();
  for (std::uint32_t code = 0; code < std::size(kTexts); ++code) {
    EXPECT_EQ(TextFrom(BrelGetStatusString, handle, code), kTexts[code]);
  }
}

TEST_F(StatusTest, EachCallbackStatusFromZeroToTwoHasItsText) {
  const std::uint32_t handle = start();
  for (std::uint32_t code = 0; code < std::size(kCallbackTexts); ++code) {
    EXPECT_EQ(TextFrom(BrelGetCallbackStatusString, handle, code), kCallbackTexts[code]);
  }
}

TEST_F(StatusTest, AnyOtherNumberHasNoneAndLeavesTheOutputAlone) {
  const std::uint32_t handle = start();
  char untouched[] = "untouched";
  char* text = untouched;
  for (const std::uint32_t code : {34u, 35u, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(BrelGetStatusString(handle, code, &text), 1u) << code;
  }
  for (const std::uint32_t code : {3u, 33u, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(BrelGetCallbackStatusString(handle, code, &text), 1u) << code;
  }
  EXPECT_EQ(text, untouched);
}

TEST_F(StatusTest, EachCallGivesABlockOfItsOwn) {
  const std::uint32_t handle = start();
  char* first = nullptr;
  char* second = nullptr;
  EXPECT_EQ(BrelGetStatusString(handle, 2, &first), 2u);
  EXPECT_EQ(BrelGetStatusString(handle, 2, &second), 2u);
  EXPECT_NE(first, second);
  first[0] = 'X';
  EXPECT_STREQ(second, kTexts[2]);
  std::free(first);
  std::free(second);
}

TEST_F(StatusTest, AskingWritesNoLine) {
  const std::uint32_t handle = start();
  engineLog.fresh();
  TextFrom(BrelGetStatusString, handle, 33);
  char* text = nullptr;
  BrelGetStatusString(handle, 34, &text);
  EXPECT_EQ(engineLog.fresh(), "");
}

TEST_F(StatusTest, AdapterCodesTurnIntoStatuses) {
  EXPECT_EQ(TranslateDorvStatus(0), 15u);
  EXPECT_EQ(TranslateDorvStatus(1), 14u);
  EXPECT_EQ(TranslateDorvStatus(2), 16u);
  EXPECT_EQ(TranslateDorvStatus(3), 17u);
  EXPECT_EQ(TranslateDorvStatus(4), 18u);
  for (const std::uint32_t code : {5u, 255u, 256u, 260u, 0xFFFFFFFFu}) EXPECT_EQ(TranslateDorvStatus(code), 0u) << code;
}

}  // namespace
}  // namespace kel::test
