/* SPDX-License-Identifier: MIT */
// What an engine keeps to itself of its asynchronous side.
#pragma once

#include <map>

#include "engine/BrelEngine.h"

namespace kel::test {

/// A look behind the engine's walls, for states that no client can bring about and for tests that must keep a thread of
/// the engine waiting for a while.
class EngineInside {
 public:
  explicit EngineInside(BrelEngine& engine) : mEngine(engine) {}

  bool activate();
  bool generate(std::uint32_t seqNum, platform::Handle dataEvent, platform::Handle stopEvent, bool isStream);
  bool dispose(std::uint32_t seqNum);
  bool shutdown();
  bool freeElementOnly(std::uint32_t seqNum);

  /// Threads that are counted as running.
  std::int32_t threads();
  bool listenerActive();
  platform::Handle generalStopEvent();
  platform::CriticalSection& initLock();
  std::atomic<bool>& initialized();

  BrelTasksSequencer& sequencer();
  platform::Handle sequencerMutex();
  /// From now on nobody can look at the sequences. A null handle is none on every system; the value of a closed one may
  /// soon be another object's.
  void closeSequencerMutex();
  /// The element of an open sequence. Nobody else may be at work on it.
  sequence_element& element(std::uint32_t seqNum);

 private:
  BrelEngine& mEngine;
};

/// Holds an engine's table of sequences. This thread may go on using it; all others wait.
class HeldSequences {
 public:
  explicit HeldSequences(EngineInside inside) : mMutex(inside.sequencerMutex()) {
    platform::waitForOne(mMutex, platform::kInfinite);
  }
  ~HeldSequences() { platform::releaseMutex(mMutex); }
  HeldSequences(const HeldSequences&) = delete;
  HeldSequences& operator=(const HeldSequences&) = delete;

 private:
  const platform::Handle mMutex;
};

/// While it lives this thread may handle answers in the place of a sequence's own, which then frees nothing before it
/// is done. The locks are taken in the engine's order.
class InPlaceOfThread {
 public:
  explicit InPlaceOfThread(EngineInside inside) : mInLock(inside.initLock()), mHeld(inside) {}

 private:
  const platform::InSection mInLock;
  const HeldSequences mHeld;
};

}  // namespace kel::test
