// Bringing an engine up and taking it down.
#include "adapter/Dorv.h"
#include "engine/BrelEngine.h"
#include "engine/DorvBinding.h"
#include "engine/IncomingData.h"
#include "engine/Instances.h"
#include "platform/memory.h"

namespace kel {

DorvBinding gDorv;

namespace {

/// Puts a copy of a path in the place of an owned text. Neither of the two that come here is ever released: meant.
void ReplaceText(char** owned, const char* path) {
  std::free(*owned);
  *owned = CopyText(path);
}

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

BrelEngine::~BrelEngine() {
  mInitLock.destroy();
  mLifecycleLock.destroy();
}

// ---------------------------------------------------------------------------------------------------------------------
// init
// ---------------------------------------------------------------------------------------------------------------------

Status BrelEngine::init(const char* TUIsFilePath, bool activateVersionControl,
                        const char* versionsVectorsPath) NO_THREAD_SAFETY_ANALYSIS {
  bool locked = false;
  try {
    return initSteps(TUIsFilePath, activateVersionControl, versionsVectorsPath, &locked);
  } catch (const std::exception&) {
    if (locked) mLifecycleLock.leave();
    report(kError, "init", "failed - exception caught! \n");
    return kStatusFailed;
  }
}

Status BrelEngine::undo(Status status, const char* problem, bool* locked) NO_THREAD_SAFETY_ANALYSIS {
  report(kError, "init", problem);
  *locked = false;
  mLifecycleLock.leave();
  Finalize();
  return status;
}

Status BrelEngine::initSteps(const char* TUIsFilePath, bool activateVersionControl, const char* versionsVectorsPath,
                             bool* locked) {
  const auto done = [this](const char* text) { report(kInfo, "init", text); };

  done("Start \n");
  mLifecycleLock.enter();
  *locked = true;
  mSendLock.init();
  mAsyncThreadsCountLock.init();
  mGeneralStopEvent = platform::createEvent(true, false);
  if (mGeneralStopEvent == nullptr) return undo(kStatusFailed, "could not create mGeneralStopEvent \n", locked);

  mIniReader.SetDefaultIniFileName();
  done(LoadBrelIniSettings() ? "Brel.ini file found. Replacing defaults. \n"
                             : "No Brel.ini file was found. Using defaults. \n");
  if (TUIsFilePath != nullptr) ReplaceText(&mTUIsFilePath, TUIsFilePath);
  mTUIsList.SetTUIsFile(&mLogger, mTUIsFilePath);
  if (!mTUIsList.ReadTUIs()) return undo(kStatusNoTaskTable, "could not read TUIs \n", locked);
  done("loaded TUIs \n");

  if (!ActivateAlerterThread()) return undo(kStatusFailed, "could not activate alerter thread \n", locked);
  if (!ActivateBroadcastThread()) return undo(kStatusFailed, "could not activate broadcast thread \n", locked);
  if (!ActivateAsyncThread()) return undo(kStatusFailed, "could not activate async thread \n", locked);

  gDorv.Init = Dorv_Init;
  gDorv.Finalize = Dorv_Finalize;
  gDorv.Connect = Dorv_Connect;
  gDorv.Disconnect = Dorv_Disconnect;
  gDorv.Send = Dorv_Send;
  done("Dorv.dll loaded \n");

  const std::uint32_t dorvHandle = gDorv.Init(BrelEngineCallback, BrelEngineAlertsCallback);
  if (dorvHandle == kNoDorvHandle) {
    return undo(kStatusAdapterNotInitialised, "error initializing Dorv.dll \n", locked);
  }
  SetDorvHandle(mHandle, dorvHandle);
  done("Dorv.dll initialized \n");
  mDebugPrint("BBBBBBBBB\n");
  mDebugPrint("BrelInit - current handle = %d, DorvHandle = %d\n", static_cast<int>(mHandle),
              static_cast<int>(dorvHandle));
  mDebugPrint("BBBBBBBBB\n");

  // From here on data may come in; what the handlers take of it before the last step is told with mInitialized.
  if (gDorv.Connect(dorvHandle, mUpperDriverIpAddress, static_cast<std::uint16_t>(mUpperDriverPortNumber)) != DORV_OK) {
    return undo(kStatusNotConnected, "error connecting Dorv.dll to Upper Driver \n", locked);
  }
  done("Dorv.dll connected to Upper Driver \n");

  if (activateVersionControl) {
    if (versionsVectorsPath != nullptr) ReplaceText(&mVersionsVectorsPath, versionsVectorsPath);
    if (!InitVersioningSupport()) {
      return undo(kStatusNoVersionControl, "Failed to initialize Versioning support \n", locked);
    }
    done("Versioning support initialized \n");
  }

  setInitialized(true);
  *locked = false;
  mLifecycleLock.leave();
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

Status BrelEngine::Finalize() NO_THREAD_SAFETY_ANALYSIS {
  bool locked = false;
  try {
    return finalizeSteps(&locked);
  } catch (const std::exception&) {
    if (locked) mLifecycleLock.leave();
    report(kError, "Finalize", "failed - exception caught! \n");
    return kStatusFailed;
  }
}

Status BrelEngine::finalizeSteps(bool* locked) {
  report(kInfo, "Finalize", "Start \n");
  mLifecycleLock.enter();
  *locked = true;
  setInitialized(false);

  // New data is refused, then the link is cut, then the listeners stop, then the locks go.
  Status status = disconnectAdapter() ? kStatusOk : kStatusFailed;
  ShutdownAlerterThread();
  ShutdownBroadcastThread();
  ShutdownAsyncThread();
  mSendLock.destroy();
  mAsyncThreadsCountLock.destroy();

  // The stale handle is kept, so that a second Finalize() ends here: meant.
  if (mGeneralStopEvent != nullptr && !platform::closeHandle(mGeneralStopEvent)) {
    report(kError, "Finalize", "could not close mGeneralStopEvent handle \n");
    *locked = false;
    mLifecycleLock.leave();
    return kStatusFailed;
  }
  for (char** text : {&mUpperDriverIpAddress, &mRequestStructDumpFilename, &mRequestStructPayloadDumpFilename,
                      &mResponseStructDumpFilename, &mResponseStructPayloadDumpFilename}) {
    std::free(*text);
    *text = nullptr;
  }
  *locked = false;
  mLifecycleLock.leave();
  report(kInfo, "Finalize", "End \n");
  return status;
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
