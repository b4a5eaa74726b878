// SPDX-License-Identifier: MIT
// Bringing an engine up and taking it down.
#include <utility>

#include "adapter/Dorv.h"
#include "engine/BrelEngine.h"
#include "engine/DorvBinding.h"
#include "engine/IncomingData.h"
#include "engine/Instances.h"
#include "platform/memory.h"

namespace kel {

DorvBinding gDorv;

namespace {

/// Puts a copy of a path in the place of an owned text.
void ReplaceText(char** owned, const char* path) { std::free(std::exchange(*owned, CopyText(path))); }

/// Holds a lock to the end of its scope, or until it is left before that.
class SCOPED_CAPABILITY HeldLock {
 public:
  explicit HeldLock(platform::CriticalSection& lock) ACQUIRE(lock) : mLock(&lock) { lock.enter(); }
  ~HeldLock() RELEASE() { leave(); }
  HeldLock(const HeldLock&) = delete;
  HeldLock& operator=(const HeldLock&) = delete;
  void leave() RELEASE() NO_THREAD_SAFETY_ANALYSIS {
    if (platform::CriticalSection* const lock = std::exchange(mLock, nullptr)) lock->leave();
  }

 private:
  platform::CriticalSection* mLock;
};

}  // namespace

BrelEngine::BrelEngine()
    : mRequestStructDumpFilename(CopyText("")),
      mRequestStructPayloadDumpFilename(CopyText("")),
      mResponseStructDumpFilename(CopyText("")),
      mResponseStructPayloadDumpFilename(CopyText("")),
      mTUIsFilePath(CopyText("KEL_ALLTASKS.csv")),
      mUpperDriverIpAddress(CopyText("127.0.0.1")) {
  mLogger.setRegistryKey(kLoggerRegistryKey);
  mLogger.setFileName("Brel.logs");
  mLogger.setModuleName("BrelEngine");
  mLifecycleLock.init();
  mInitLock.init();
}

/// Of the texts only the path of the task table is left, unless Finalize() did not come to its end.
BrelEngine::~BrelEngine() {
  mInitLock.destroy();
  mLifecycleLock.destroy();
  for (char* text : {mTUIsFilePath, mUpperDriverIpAddress, mRequestStructDumpFilename, mRequestStructPayloadDumpFilename,
                     mResponseStructDumpFilename, mResponseStructPayloadDumpFilename, mVersionsVectorsPath}) {
    mKeptBlocks.leave(text);
  }
  mKeptBlocks.leave(mVersionsVectorBuffers);
  mKeptBlocks.leave(mVersionsVectorSizes);
  mKeptBlocks.leave(mVerGenUIDs);
}

// ---------------------------------------------------------------------------------------------------------------------
// init
// ---------------------------------------------------------------------------------------------------------------------

/// After an exception nothing is taken down, which is the one way in which a failure leaves threads behind: see
/// stopThreads().
Status BrelEngine::init(const char* TUIsFilePath, bool activateVersionControl, const char* versionsVectorsPath) try {
  return initSteps(TUIsFilePath, activateVersionControl, versionsVectorsPath);
} catch (const std::exception&) {
  report(kError, "init", "failed - exception caught! \n");
  return kStatusFailed;
}

Status BrelEngine::initSteps(const char* TUIsFilePath, bool activateVersionControl, const char* versionsVectorsPath) {
  const auto done = [this](const char* text) { report(kInfo, "init", text); };

  done("Start \n");
  HeldLock lifecycle(mLifecycleLock);
  const auto undo = [&](Status status, const char* problem) NO_THREAD_SAFETY_ANALYSIS {
    report(kError, "init", problem);
    lifecycle.leave();
    Finalize();
    return status;
  };
  mSendLock.init();
  mAsyncThreadsCountLock.init();
  mGeneralStopEvent = platform::createEvent(true, false);
  if (mGeneralStopEvent == nullptr) return undo(kStatusFailed, "could not create mGeneralStopEvent \n");

  mIniReader.SetDefaultIniFileName();
  done(LoadBrelIniSettings() ? "Brel.ini file found. Replacing defaults. \n"
                             : "No Brel.ini file was found. Using defaults. \n");
  if (TUIsFilePath != nullptr) ReplaceText(&mTUIsFilePath, TUIsFilePath);
  mTUIsList.SetTUIsFile(&mLogger, mTUIsFilePath);
  if (!mTUIsList.ReadTUIs()) return undo(kStatusNoTaskTable, "could not read TUIs \n");
  done("loaded TUIs \n");

  if (!ActivateAlerterThread()) return undo(kStatusFailed, "could not activate alerter thread \n");
  if (!ActivateBroadcastThread()) return undo(kStatusFailed, "could not activate broadcast thread \n");
  if (!ActivateAsyncThread()) return undo(kStatusFailed, "could not activate async thread \n");

  gDorv.Init = Dorv_Init;
  gDorv.Finalize = Dorv_Finalize;
  gDorv.Connect = Dorv_Connect;
  gDorv.Disconnect = Dorv_Disconnect;
  gDorv.Send = Dorv_Send;
  done("Dorv.dll loaded \n");

  const std::uint32_t dorvHandle = gDorv.Init(BrelEngineCallback, BrelEngineAlertsCallback);
  if (dorvHandle == kNoDorvHandle) {
    return undo(kStatusAdapterNotInitialised, "error initializing Dorv.dll \n");
  }
  SetDorvHandle(mHandle, dorvHandle);
  done("Dorv.dll initialized \n");
  mDebugPrint("BBBBBBBBB\n");
  mDebugPrint("BrelInit - current handle = %d, DorvHandle = %d\n", static_cast<int>(mHandle),
              static_cast<int>(dorvHandle));
  mDebugPrint("BBBBBBBBB\n");

  // From here on data may come in; mInitialized says what the handlers take of it before the last step.
  if (gDorv.Connect(dorvHandle, mUpperDriverIpAddress, static_cast<std::uint16_t>(mUpperDriverPortNumber)) != DORV_OK) {
    return undo(kStatusNotConnected, "error connecting Dorv.dll to Upper Driver \n");
  }
  done("Dorv.dll connected to Upper Driver \n");

  if (activateVersionControl) {
    if (versionsVectorsPath != nullptr) ReplaceText(&mVersionsVectorsPath, versionsVectorsPath);
    if (!InitVersioningSupport()) {
      return undo(kStatusNoVersionControl, "Failed to initialize Versioning support \n");
    }
    done("Versioning support initialized \n");
  }

  setInitialized(true);
  lifecycle.leave();
  done("End \n");
  return kStatusOk;
}

void BrelEngine::setInitialized(bool initialized) {
  const platform::InSection inLock(mInitLock);
  mInitialized = initialized;
}

// ---------------------------------------------------------------------------------------------------------------------
// Finalize
// ---------------------------------------------------------------------------------------------------------------------

Status BrelEngine::Finalize() try {
  return finalizeSteps();
} catch (const std::exception&) {
  report(kError, "Finalize", "failed - exception caught! \n");
  return kStatusFailed;
}

Status BrelEngine::finalizeSteps() {
  report(kInfo, "Finalize", "Start \n");
  HeldLock lifecycle(mLifecycleLock);
  setInitialized(false);

  // New data is refused, then the link is cut, then the listeners stop, then the locks go.
  Status status = disconnectAdapter() ? kStatusOk : kStatusFailed;
  ShutdownAlerterThread();
  ShutdownBroadcastThread();
  ShutdownAsyncThread();
  mSendLock.destroy();
  mAsyncThreadsCountLock.destroy();

  // The stale handle is kept: closing it again fails, so a second Finalize() ends here with 1. On Windows, though, its
  // value may be another object's by then, which the second one would close.
  if (mGeneralStopEvent != nullptr && !platform::closeHandle(mGeneralStopEvent)) {
    report(kError, "Finalize", "could not close mGeneralStopEvent handle \n");
    return kStatusFailed;
  }
  for (char** text : {&mUpperDriverIpAddress, &mRequestStructDumpFilename, &mRequestStructPayloadDumpFilename,
                      &mResponseStructDumpFilename, &mResponseStructPayloadDumpFilename}) {
    std::free(*text);
    *text = nullptr;
  }
  lifecycle.leave();
  report(kInfo, "Finalize", "End \n");
  return status;
}

void BrelEngine::stopThreads() {
  mAlertsListener.tellToStop();
  mBroadcastListener.tellToStop();
}

/// Closes the link and gives the adapter row back, if init() came so far as to have one.
bool BrelEngine::disconnectAdapter() {
  std::uint32_t thisDorvHandle = kNoDorvHandle;
  GetDorvHandle(mHandle, &thisDorvHandle);
  if (thisDorvHandle == kNoDorvHandle) return true;
  if (gDorv.Disconnect(thisDorvHandle) != DORV_OK) {
    report(kError, "Finalize", "error disconnecting Dorv.dll from Upper Driver \n");
    return false;
  }
  report(kInfo, "Finalize", "Dorv.dll disconnected from Upper Driver \n");
  if (gDorv.Finalize(thisDorvHandle) != DORV_OK) {
    report(kError, "Finalize", "error finalizing Dorv.dll \n");
    return false;
  }
  report(kInfo, "Finalize", "Dorv.dll finalized \n");
  return true;
}

}  // namespace kel
