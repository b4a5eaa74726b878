// A heap that is exhausted for a while. A program that uses this links test_failing_heap, which puts its own operators
// new and delete in the place of the runtime's.
#pragma once

namespace kel::test {

/// While one lives, operator new throws std::bad_alloc on the thread that made it.
class FailingHeap {
 public:
  FailingHeap();
  ~FailingHeap();
  FailingHeap(const FailingHeap&) = delete;
  FailingHeap& operator=(const FailingHeap&) = delete;
};

}  // namespace kel::test
