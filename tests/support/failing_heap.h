/* SPDX-License-Identifier: MIT */
// A heap that is exhausted for a while. A program that uses this links test_failing_heap, which puts its own operator
// new and malloc() in front of the runtime's for all that is linked into the program.
#pragma once

namespace kel::test {

/// While one lives, the heap gives nothing to the thread that made it, by operator new or by malloc(): always, or just
/// once, after `objects` that can still be made. One at a time in a process. Where something is to throw, only once: on
/// some systems an exception needs memory of its own.
class FailingHeap {
 public:
  FailingHeap();
  explicit FailingHeap(int objects);
  ~FailingHeap();
  FailingHeap(const FailingHeap&) = delete;
  FailingHeap& operator=(const FailingHeap&) = delete;

  /// Whether it has failed.
  bool failed() const;
};

}  // namespace kel::test
