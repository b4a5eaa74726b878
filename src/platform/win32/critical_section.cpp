// Critical sections.
#include <new>

#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace kel::platform {
namespace {

template <typename State>
CRITICAL_SECTION* sectionIn(State& state) {
  static_assert(sizeof(CRITICAL_SECTION) <= sizeof(state) && alignof(CRITICAL_SECTION) <= 8);
  return std::launder(reinterpret_cast<CRITICAL_SECTION*>(state));
}

}  // namespace

void CriticalSection::init() {
  if (mExists.load(std::memory_order_acquire)) return;
  InitializeCriticalSection(new (mState) CRITICAL_SECTION);
  mExists.store(true, std::memory_order_release);
}

void CriticalSection::destroy() {
  if (mExists.exchange(false, std::memory_order_acq_rel)) DeleteCriticalSection(sectionIn(mState));
}

// The analysis knows a section by its public face and cannot follow the one inside.
void CriticalSection::enter() NO_THREAD_SAFETY_ANALYSIS {
  if (mExists.load(std::memory_order_acquire)) EnterCriticalSection(sectionIn(mState));
}

void CriticalSection::leave() NO_THREAD_SAFETY_ANALYSIS {
  if (mExists.load(std::memory_order_acquire)) LeaveCriticalSection(sectionIn(mState));
}

}  // namespace kel::platform
