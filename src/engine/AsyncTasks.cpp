// Asynchronous tasks and streams. The library does not offer them yet: requests are refused before anything is sent.
#include "engine/BrelEngine.h"

namespace kel {

Status BrelEngine::InvokeAsyncTask(const char*, std::uint32_t, const void*, std::uint32_t, std::uint32_t, std::uint8_t,
                                   std::uint32_t*, OpaqueCallback, OpaqueCallback) {
  return kStatusFailed;
}

Status BrelEngine::IssueAsyncCommand(std::uint32_t, task*, std::uint32_t*, OpaqueCallback, OpaqueCallback) {
  return kStatusFailed;
}

bool BrelEngine::ActivateAsyncThread() {
  mAsyncListenerActive = true;
  return true;
}

bool BrelEngine::ShutdownAsyncThread() {
  if (!mAsyncListenerActive) {
    report(kInfo, "ShutdownAsyncThread", "async listener not active - stop not required \n");
    return true;
  }
  report(kInfo, "ShutdownAsyncThread", "all async listener threads already stopped \n");
  mAsyncListenerActive = false;
  return true;
}

bool BrelEngine::GenerateAsyncThread(std::uint32_t, platform::Handle, platform::Handle, bool) { return false; }

bool BrelEngine::DisposeAsyncThread(std::uint32_t) { return true; }

bool BrelEngine::FreeSequenceElementOnly(std::uint32_t seqNum) {
  if (mTasksSequencer.FreeSequence(seqNum) == SEQ_FREE_OK) return true;
  mLogger.log(kError, "FreeSequenceElementOnly", kLogFlags) << "(" << seqNum << ") - could not free sequence number. \n";
  mDebugPrint("FreeSequenceElementOnly - could not free sequence number %d \n", static_cast<int>(seqNum));
  return false;
}

}  // namespace kel
