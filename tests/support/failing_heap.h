// A heap that is exhausted for a while. A program that uses this links test_failing_heap, which puts its own operator
// new and malloc() in front of the runtime's for all that is linked into the program.
#pragma once

namespace kel::test {

/// While one lives, operator new throws std::bad_alloc on the thread that made it, or gives null where it may not
/// throw: always, or just once, after `objects` that can still be made.
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

/// Has the next malloc() of its life give nothing, whatever the thread.
class FailingMalloc {
 public:
  FailingMalloc();
  ~FailingMalloc();
  FailingMalloc(const FailingMalloc&) = delete;
  FailingMalloc& operator=(const FailingMalloc&) = delete;
};

}  // namespace kel::test
