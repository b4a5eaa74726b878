// Starting and stopping the broadcast listener and the alerts listener of an engine.
#include "engine/BrelEngine.h"
#include "engine/IncomingData.h"

namespace kel {

/// The two starts, in the words of the one or the other.
template <class Listener>
bool BrelEngine::activate(Listener& listener, const char* function, const char* listenerName,
                          ProcessDataFunc processDataFunc, platform::Handle* dataEvent,
                          platform::Handle* stopWaitEvent, std::atomic<bool>* active) {
  if (listener.init(mHandle, processDataFunc, dataEvent, stopWaitEvent, mGeneralStopEvent) == LISTENER_INIT_FAILED) {
    report(kError, function, "problem init ", listenerName, " \n");
    return false;
  }
  report(kInfo, function, "OK init ", listenerName, " \n");
  if (listener.startListen() != LISTENER_STARTED) {
    report(kError, function, "problem starting ", listenerName, " \n");
    return false;
  }
  report(kInfo, function, "started ", listenerName, " \n");
  *active = true;
  return true;
}

/// The two stops.
template <class Listener>
bool BrelEngine::deactivate(Listener& listener, const char* function, const char* listenerName,
                            std::atomic<bool>* active) {
  *active = false;  // ahead of the stop: from here on nothing is queued
  if (listener.stopListen() != LISTENER_STOPPED) {
    report(kError, function, "problem stopping ", listenerName, " \n");
    return false;
  }
  report(kInfo, function, "stopped ", listenerName, " \n");
  return true;
}

bool BrelEngine::ActivateAlerterThread() {
  mAlertsListenerActive = false;
  return mAlertsCallback == nullptr || activate(mAlertsListener, "ActivateAlerterThread", "alerts listener",
                                                ProcessAlertData, &mAlertsDataEvent, &mAlertsStopWaitEvent,
                                                &mAlertsListenerActive);
}

bool BrelEngine::ActivateBroadcastThread() {
  mBroadcastListenerActive = false;
  return mBroadcastCallback == nullptr || activate(mBroadcastListener, "ActivateBroadcastThread", "broadcast listener",
                                                   ProcessBroadcastData, &mBroadcastDataEvent,
                                                   &mBroadcastStopWaitEvent, &mBroadcastListenerActive);
}

bool BrelEngine::ShutdownAlerterThread() {
  mDebugPrint("inside ShutdownAlerterThread\n");
  if (!mAlertsListenerActive) return true;
  return deactivate(mAlertsListener, "ShutdownAlerterThread", "alerts listener", &mAlertsListenerActive);
}

bool BrelEngine::ShutdownBroadcastThread() {
  // Tested ahead of the print, other than with the alerts.
  if (!mBroadcastListenerActive) return true;
  mDebugPrint("inside ShutdownBroadcastThread\n");
  return deactivate(mBroadcastListener, "ShutdownBroadcastThread", "broadcast listener", &mBroadcastListenerActive);
}

}  // namespace kel
