// SPDX-License-Identifier: MIT
// Critical sections as a slim lock with an owner and a count. The system's own section would do, were it not that one
// that is deleted under its owner can no longer be left.
#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace kel::platform {
namespace {

template <typename Words>
SRWLOCK* lockIn(Words& words) {
  static_assert(sizeof(SRWLOCK) <= sizeof words && alignof(SRWLOCK) <= 8);
  return reinterpret_cast<SRWLOCK*>(&words);
}

}  // namespace

// In both, relaxed will do for the owner: the one value that matters, this thread's number, is written by this thread
// alone. The lock orders everything else.

void CriticalSection::enter() NO_THREAD_SAFETY_ANALYSIS {
  const DWORD self = GetCurrentThreadId();
  if (mOwner.load(std::memory_order_relaxed) != self) {
    AcquireSRWLockExclusive(lockIn(mLock));
    mOwner.store(self, std::memory_order_relaxed);
  }
  ++mEntries;
}

void CriticalSection::leave() NO_THREAD_SAFETY_ANALYSIS {
  if (mOwner.load(std::memory_order_relaxed) != GetCurrentThreadId() || --mEntries != 0) return;
  mOwner.store(0, std::memory_order_relaxed);
  ReleaseSRWLockExclusive(lockIn(mLock));
}

}  // namespace kel::platform
