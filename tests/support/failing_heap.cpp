#include "support/failing_heap.h"

#include <cstdlib>
#include <new>

namespace {

thread_local constinit bool tFails = false;

}  // namespace

namespace kel::test {

FailingHeap::FailingHeap() { tFails = true; }
FailingHeap::~FailingHeap() { tFails = false; }

}  // namespace kel::test

// All other forms of both operators come down to these.
void* operator new(std::size_t size) {
  void* block = tFails ? nullptr : std::malloc(size != 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
