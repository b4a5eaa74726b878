/* SPDX-License-Identifier: MIT */
// Threads that a test leaves to themselves: those that may never end, and those that nobody waits for.
#pragma once

#include <future>
#include <thread>
#include <utility>

namespace kel::test {

/// The thread detaches itself. With mingw's threads, one that is detached before it has begun may never begin, or end
/// the process.
template <class Work>
void LeaveToItself(Work work) {
  std::promise<std::thread> thread;
  thread.set_value(std::thread([work = std::move(work), self = thread.get_future()]() mutable {
    self.get().detach();
    work();
  }));
}

}  // namespace kel::test
