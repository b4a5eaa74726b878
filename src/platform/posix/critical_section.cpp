// SPDX-License-Identifier: MIT
// Critical sections as a futex lock with an owner and a count.
#include "platform/platform.h"
#include "platform/posix/kernel_objects.h"

namespace kel::platform {
namespace {

// The system's thread numbers come round again, and the newcomer would walk into a section that an ended thread has
// left taken. So would the next one on a thread of the system's, if the number were that one's.
std::uint64_t ownNumber() {
  static constinit std::atomic<std::uint64_t> last = 0;
  posix::Thread& self = posix::currentThread();
  if (self.number == 0) self.number = last.fetch_add(1, std::memory_order_relaxed) + 1;
  return self.number;
}

}  // namespace

// In both, relaxed will do for the owner: the one value that matters, this thread's number, is written by this thread
// alone. The lock orders everything else.

void CriticalSection::enter() NO_THREAD_SAFETY_ANALYSIS {
  const std::uint64_t self = ownNumber();
  if (mOwner.load(std::memory_order_relaxed) != self) {
    posix::lockWord(mLock[0]);
    mOwner.store(self, std::memory_order_relaxed);
  }
  ++mEntries;
}

void CriticalSection::leave() NO_THREAD_SAFETY_ANALYSIS {
  if (mOwner.load(std::memory_order_relaxed) != ownNumber() || --mEntries != 0) return;
  mOwner.store(0, std::memory_order_relaxed);
  posix::unlockWord(mLock[0]);
}

}  // namespace kel::platform
