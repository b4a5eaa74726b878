// SPDX-License-Identifier: MIT
// Brel.ini: what it may replace of an engine's defaults.
#include <cstdio>
#include <cstring>
#include <vector>

#include "engine/BrelEngine.h"
#include "logging/Registry.h"

namespace kel {
namespace {

constexpr const char* kSection = "Common";
constexpr const char* kLoad = "LoadBrelIniSettings";

/// The key of a setting, by the text that opens its line in the log.
std::string KeyOf(const char* line) { return std::string(line, std::strcspn(line, " ")); }

}  // namespace

bool BrelEngine::findBrelIni() {
  const std::string relativeName = std::string(".") + platform::kPathSeparator + "Brel.ini";
  std::string BrelIniFullFilename;
  std::string dllsPath;
  if (ReadRegistryString(platform::RegistryRoot::localMachine, "Software\\Brel", "BrelDllsPath", &dllsPath) &&
      !dllsPath.empty()) {
    mBrelDllsPath = dllsPath;
    BrelIniFullFilename = dllsPath + platform::kPathSeparator;
  }
  BrelIniFullFilename += relativeName;
  mIniReader.SetIniFileName(BrelIniFullFilename.c_str());

  // The file in the working directory says whether settings are read, the full name says where from. Installations with
  // a folder in the registry rely on that.
  std::FILE* file = platform::openToRead(relativeName.c_str());
  mIniFileFound = file != nullptr;
  if (!mIniFileFound) return false;
  if (std::fclose(file) != 0) {
    report(kError, kLoad, "The Brel.ini file was not closed. \n");
    return false;
  }
  return true;
}

bool BrelEngine::LoadBrelIniSettings() {
  if (!findBrelIni()) {
    setReleaseBlocks(0);
    return false;
  }
  const std::uint32_t logToConsole = readNumber("LogToConsole = ", &mLogToConsole);
  mTasksSequencer.mLogToConsole = logToConsole;
  mAlertsListener.mLogToConsole = logToConsole;
  mBroadcastListener.mLogToConsole = logToConsole;
  mAsyncListener.mLogToConsole = logToConsole;
  mTUIsList.mLogToConsole = logToConsole;
  mAsyncListener.mWaitTimeout = readNumber("RxWaitTimeout = ", &mRxWaitTimeout);
  std::vector<KeptBlocks::Held<char>> unchanged;  // to the end of this function, when it is known what becomes of them
  const auto read = [&](const char* line, const char* defaultText, const char* unchangedText, char** setting) {
    unchanged.push_back(readText(line, defaultText, unchangedText, setting));
  };
  read("TUIsFilePath = ", "KEL_ALLTASKS.csv", "KEL_ALLTASKS.csv", &mTUIsFilePath);
  // Compared with the empty text, not with its default: an empty value keeps what the constructor set.
  read("UpperDriverIpAddress = ", "127.0.0.1", "", &mUpperDriverIpAddress);
  readNumber("UpperDriverPortNumber = ", &mUpperDriverPortNumber);
  read("RequestStructDumpFilename = ", "", "", &mRequestStructDumpFilename);
  read("RequestStructPayloadDumpFilename = ", "", "", &mRequestStructPayloadDumpFilename);
  read("ResponseStructDumpFilename = ", "", "", &mResponseStructDumpFilename);
  read("ResponseStructPayloadDumpFilename = ", "", "", &mResponseStructPayloadDumpFilename);
  setReleaseBlocks(mIniReader.ReadIntValue(kSection, "ReleaseBlocks", 0));
  return true;
}

std::uint32_t BrelEngine::readNumber(const char* line, std::atomic<std::uint32_t>* setting) {
  const std::uint32_t number = mIniReader.ReadIntValue(kSection, KeyOf(line).c_str(), *setting);
  *setting = number;
  report(kInfo, kLoad, line, number, " \n");
  return number;
}

/// A text that is `unchanged` leaves the setting as it is, and its block is a kept one.
KeptBlocks::Held<char> BrelEngine::readText(const char* line, const char* defaultText, const char* unchanged,
                                            char** setting) {
  auto text = mKeptBlocks.hold(mIniReader.ReadStringValue(kSection, KeyOf(line).c_str(), defaultText));
  report(kInfo, kLoad, line, static_cast<const char*>(text.get()), " \n");
  if (std::strcmp(text.get(), unchanged) == 0) return text;
  std::free(*setting);
  *setting = text.release();
  return text;
}

/// The environment wins over the file, also where there is none. Neither adds a line to log or console, whose readers
/// know what a connect says.
void BrelEngine::setReleaseBlocks(std::uint32_t inFile) {
  std::uint32_t setting = inFile;
  platform::environmentNumber("KELHANDLER_RELEASE_BLOCKS", &setting);
  for (KeptBlocks* keptBlocks :
       {&mKeptBlocks, &mTasksSequencer.mKeptBlocks, &mAlertsListener.mKeptBlocks, &mBroadcastListener.mKeptBlocks,
        &mAsyncListener.mKeptBlocks, &mTUIsList.mKeptBlocks}) {
    keptBlocks->setReleased(setting != 0);
  }
}

}  // namespace kel
