// Critical sections as a futex lock with an owner and a count.
#include <new>

#include "platform/platform.h"
#include "platform/posix/futex.h"

namespace kel::platform {
namespace {

struct Section {
  posix::FutexLock lock;
  std::uint32_t entries = 0;             // for the owner only
  std::atomic<std::uint64_t> owner = 0;  // 0: nobody
};

// A number that no other thread of the process ever has. The system's thread numbers come round again, and the newcomer
// would walk into a section that an ended thread has left taken.
std::uint64_t ownNumber() {
  static constinit std::atomic<std::uint64_t> last = 0;
  thread_local constinit std::uint64_t number = 0;
  if (number == 0) number = last.fetch_add(1, std::memory_order_relaxed) + 1;
  return number;
}

template <typename State>
Section& sectionIn(State& state) {
  static_assert(sizeof(Section) <= sizeof(state) && alignof(Section) <= 8);
  return *std::launder(reinterpret_cast<Section*>(state));
}

}  // namespace

void CriticalSection::init() {
  if (mExists.load(std::memory_order_acquire)) return;
  new (mState) Section;
  mExists.store(true, std::memory_order_release);
}

void CriticalSection::destroy() { mExists.store(false, std::memory_order_release); }

// The analysis knows a section by its public face and cannot follow the lock inside.
void CriticalSection::enter() NO_THREAD_SAFETY_ANALYSIS {
  if (!mExists.load(std::memory_order_acquire)) return;
  Section& section = sectionIn(mState);
  // Relaxed will do: the one value that matters, this thread's number, is written by this thread alone.
  const std::uint64_t self = ownNumber();
  if (section.owner.load(std::memory_order_relaxed) != self) {
    section.lock.lock();
    section.owner.store(self, std::memory_order_relaxed);
  }
  ++section.entries;
}

void CriticalSection::leave() NO_THREAD_SAFETY_ANALYSIS {
  if (!mExists.load(std::memory_order_acquire)) return;
  Section& section = sectionIn(mState);
  if (--section.entries != 0) return;
  section.owner.store(0, std::memory_order_relaxed);
  section.lock.unlock();
}

}  // namespace kel::platform
