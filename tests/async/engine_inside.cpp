// SPDX-License-Identifier: MIT
#include "async/engine_inside.h"

#include <utility>

#include "support/private_member.h"

namespace kel::test {

#define OPEN_MEMBER(Tag, member) \
  struct Tag {                   \
    friend auto memberOf(Tag);   \
  };                             \
  template struct OpenMember<Tag, &member>

OPEN_MEMBER(ActivateOf, BrelEngine::ActivateAsyncThread);
OPEN_MEMBER(GenerateOf, BrelEngine::GenerateAsyncThread);
OPEN_MEMBER(DisposeOf, BrelEngine::DisposeAsyncThread);
OPEN_MEMBER(ShutdownOf, BrelEngine::ShutdownAsyncThread);
OPEN_MEMBER(FreeElementOnlyOf, BrelEngine::FreeSequenceElementOnly);
OPEN_MEMBER(ThreadsCountOf, BrelEngine::asyncThreadsCount);
OPEN_MEMBER(ListenerActiveOf, BrelEngine::mAsyncListenerActive);
OPEN_MEMBER(GeneralStopEventOf, BrelEngine::mGeneralStopEvent);
OPEN_MEMBER(InitLockOf, BrelEngine::mInitLock);
OPEN_MEMBER(InitializedOf, BrelEngine::mInitialized);
OPEN_MEMBER(SequencerOf, BrelEngine::mTasksSequencer);
OPEN_MEMBER(SequencerMutexOf, BrelTasksSequencer::mMutex);
OPEN_MEMBER(SequencesOf, BrelTasksSequencer::mSequences);

#undef OPEN_MEMBER

bool EngineInside::activate() { return (mEngine.*memberOf(ActivateOf{}))(); }
bool EngineInside::generate(std::uint32_t seqNum, platform::Handle dataEvent, platform::Handle stopEvent,
                            bool isStream) {
  return (mEngine.*memberOf(GenerateOf{}))(seqNum, dataEvent, stopEvent, isStream);
}
bool EngineInside::dispose(std::uint32_t seqNum) { return (mEngine.*memberOf(DisposeOf{}))(seqNum); }
bool EngineInside::shutdown() { return (mEngine.*memberOf(ShutdownOf{}))(); }
bool EngineInside::freeElementOnly(std::uint32_t seqNum) { return (mEngine.*memberOf(FreeElementOnlyOf{}))(seqNum); }

std::int32_t EngineInside::threads() { return (mEngine.*memberOf(ThreadsCountOf{}))(); }
bool EngineInside::listenerActive() { return mEngine.*memberOf(ListenerActiveOf{}); }
platform::Handle EngineInside::generalStopEvent() { return mEngine.*memberOf(GeneralStopEventOf{}); }
platform::CriticalSection& EngineInside::initLock() { return mEngine.*memberOf(InitLockOf{}); }
std::atomic<bool>& EngineInside::initialized() { return mEngine.*memberOf(InitializedOf{}); }

BrelTasksSequencer& EngineInside::sequencer() { return mEngine.*memberOf(SequencerOf{}); }
platform::Handle EngineInside::sequencerMutex() { return (sequencer().*memberOf(SequencerMutexOf{})).handle; }
void EngineInside::closeSequencerMutex() {
  platform::closeHandle(std::exchange((sequencer().*memberOf(SequencerMutexOf{})).handle, nullptr));
}
sequence_element& EngineInside::element(std::uint32_t seqNum) {
  const HeldSequences held(*this);
  return *(sequencer().*memberOf(SequencesOf{})).at(seqNum);
}

}  // namespace kel::test
