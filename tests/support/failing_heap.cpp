// The linker's --wrap sends each call of operator new to "__wrap_" and its name, from where "__real_" and its name is
// the runtime's. So a sanitizer's operator, which would not stand a replacement beside it, goes on seeing every block.
// The name is the build's to know: it holds the type of a size.
#include "support/failing_heap.h"

#include <new>

namespace {

thread_local constinit bool tFails = false;

}  // namespace

namespace kel::test {

FailingHeap::FailingHeap() { tFails = true; }
FailingHeap::~FailingHeap() { tFails = false; }

}  // namespace kel::test

extern "C" {

void* RuntimesNew(std::size_t size) asm("__real_" KEL_OPERATOR_NEW);
void* ProgramsNew(std::size_t size) asm("__wrap_" KEL_OPERATOR_NEW);

void* ProgramsNew(std::size_t size) {
  if (tFails) throw std::bad_alloc();
  return RuntimesNew(size);
}

}  // extern "C"
