// Brel.ini: what it may replace of an engine's defaults.
#include <cstdio>
#include <cstring>

#include "engine/BrelEngine.h"
#include "logging/Registry.h"

namespace kel {
namespace {

constexpr const char* kSection = "Common";
constexpr const char* kLoad = "LoadBrelIniSettings";

/// The key of a setting, by the text that opens its line in the log.
std::string KeyOf(const char* line) { return std::string(line, std::strcspn(line, " ")); }

}  // namespace

bool BrelEngine::LoadBrelIniSettings() {
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

  const std::uint32_t logToConsole = readNumber("LogToConsole = ", &mLogToConsole);
  mTasksSequencer.mLogToConsole = logToConsole;
  mAlertsListener.mLogToConsole = logToConsole;
  mBroadcastListener.mLogToConsole = logToConsole;
  mAsyncListener.mLogToConsole = logToConsole;
  mTUIsList.mLogToConsole = logToConsole;
  mAsyncListener.mWaitTimeout = readNumber("RxWaitTimeout = ", &mRxWaitTimeout);
  readText("TUIsFilePath = ", "KEL_ALLTASKS.csv", "KEL_ALLTASKS.csv", &mTUIsFilePath);
  // Compared with the empty text, not with its default: an empty value keeps what the constructor set.
  readText("UpperDriverIpAddress = ", "127.0.0.1", "", &mUpperDriverIpAddress);
  readNumber("UpperDriverPortNumber = ", &mUpperDriverPortNumber);
  readText("RequestStructDumpFilename = ", "", "", &mRequestStructDumpFilename);
  readText("RequestStructPayloadDumpFilename = ", "", "", &mRequestStructPayloadDumpFilename);
  readText("ResponseStructDumpFilename = ", "", "", &mResponseStructDumpFilename);
  readText("ResponseStructPayloadDumpFilename = ", "", "", &mResponseStructPayloadDumpFilename);
  return true;
}

std::uint32_t BrelEngine::readNumber(const char* line, std::atomic<std::uint32_t>* setting) {
  const std::uint32_t number = mIniReader.ReadIntValue(kSection, KeyOf(line).c_str(), *setting);
  *setting = number;
  report(kInfo, kLoad, line, number, " \n");
  return number;
}

/// A text that is `unchanged` leaves the setting as it is; its own block is one of the leaks that are kept.
void BrelEngine::readText(const char* line, const char* defaultText, const char* unchanged, char** setting) {
  char* text = mIniReader.ReadStringValue(kSection, KeyOf(line).c_str(), defaultText);
  report(kInfo, kLoad, line, static_cast<const char*>(text), " \n");
  if (std::strcmp(text, unchanged) == 0) return;
  std::free(*setting);
  *setting = text;
}

}  // namespace kel
