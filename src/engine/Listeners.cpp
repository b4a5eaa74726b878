// SPDX-License-Identifier: MIT
// Starting and stopping the broadcast listener and the alerts listener of an engine.
#include "engine/BrelEngine.h"
#include "engine/IncomingData.h"
#include "engine/Instances.h"

namespace kel {

/// What is reported of one listener: the functions' names and their lines.
struct ListenerLines {
  const char* activate;
  const char* problemInit;
  const char* okInit;
  const char* problemStarting;
  const char* started;
  const char* shutdown;
  const char* problemStopping;
  const char* stopped;
};

namespace {

constexpr ListenerLines kAlertsLines{
    .activate = "ActivateAlerterThread",
    .problemInit = "problem init alerts listener \n",
    .okInit = "OK init alerts listener \n",
    .problemStarting = "problem starting alerts listener \n",
    .started = "started alerts listener \n",
    .shutdown = "ShutdownAlerterThread",
    .problemStopping = "problem stopping alerts listener \n",
    .stopped = "stopped alerts listener \n",
};

constexpr ListenerLines kBroadcastLines{
    .activate = "ActivateBroadcastThread",
    .problemInit = "problem init broadcast listener \n",
    .okInit = "OK init broadcast listener \n",
    .problemStarting = "problem starting broadcast listener \n",
    .started = "started broadcast listener \n",
    .shutdown = "ShutdownBroadcastThread",
    .problemStopping = "problem stopping broadcast listener \n",
    .stopped = "stopped broadcast listener \n",
};

}  // namespace

template <class Listener>
bool BrelEngine::activate(Listener& listener, const ListenerLines& lines, ProcessDataFunc processDataFunc,
                          platform::Handle* dataEvent, platform::Handle* stopWaitEvent, std::atomic<bool>* active) {
  if (listener.init(mHandle, processDataFunc, dataEvent, stopWaitEvent, mGeneralStopEvent) == LISTENER_INIT_FAILED) {
    report(kError, lines.activate, lines.problemInit);
    return false;
  }
  report(kInfo, lines.activate, lines.okInit);
  if (listener.startListen(GetBrelInst(mHandle)) != LISTENER_STARTED) {
    report(kError, lines.activate, lines.problemStarting);
    return false;
  }
  report(kInfo, lines.activate, lines.started);
  *active = true;
  return true;
}

template <class Listener>
bool BrelEngine::deactivate(Listener& listener, const ListenerLines& lines, std::atomic<bool>* active) {
  *active = false;  // ahead of the stop: from here on nothing is queued
  if (listener.stopListen() != LISTENER_STOPPED) {
    report(kError, lines.shutdown, lines.problemStopping);
    return false;
  }
  report(kInfo, lines.shutdown, lines.stopped);
  return true;
}

bool BrelEngine::ActivateAlerterThread() {
  mAlertsListenerActive = false;
  return mAlertsCallback == nullptr || activate(mAlertsListener, kAlertsLines, ProcessAlertData, &mAlertsDataEvent,
                                                &mAlertsStopWaitEvent, &mAlertsListenerActive);
}

bool BrelEngine::ActivateBroadcastThread() {
  mBroadcastListenerActive = false;
  return mBroadcastCallback == nullptr || activate(mBroadcastListener, kBroadcastLines, ProcessBroadcastData,
                                                   &mBroadcastDataEvent, &mBroadcastStopWaitEvent,
                                                   &mBroadcastListenerActive);
}

bool BrelEngine::ShutdownAlerterThread() {
  mDebugPrint("inside ShutdownAlerterThread\n");
  return !mAlertsListenerActive || deactivate(mAlertsListener, kAlertsLines, &mAlertsListenerActive);
}

bool BrelEngine::ShutdownBroadcastThread() {
  // Only a listener that runs is announced on the console; the stop of the alerts listener is announced always.
  if (!mBroadcastListenerActive) return true;
  mDebugPrint("inside ShutdownBroadcastThread\n");
  return deactivate(mBroadcastListener, kBroadcastLines, &mBroadcastListenerActive);
}

}  // namespace kel
