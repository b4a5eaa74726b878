// Critical sections as a futex lock with an owner and a count.
#include "platform/platform.h"
#include "platform/posix/futex.h"

namespace kel::platform {
namespace {

// A number that no other thread of the process ever has. The system's thread numbers come round again, and the newcomer
// would walk into a section that an ended thread has left taken.
std::uint64_t ownNumber() {
  static constinit std::atomic<std::uint64_t> last = 0;
  thread_local constinit std::uint64_t number = 0;
  if (number == 0) number = last.fetch_add(1, std::memory_order_relaxed) + 1;
  return number;
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
