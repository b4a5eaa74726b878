// The linker's --wrap sends each call of operator new to "__wrap_" and its name, from where "__real_" and its name is
// the runtime's. So a sanitizer's operator, which would not stand a replacement beside it, goes on seeing every block.
// The name is the build's to know: it holds the type of a size.
#include "support/failing_heap.h"

#include <atomic>
#include <new>

#define KEL_NOTHROW "RKSt9nothrow_t"  // the second argument

namespace {

/// What is asked of this thread's heap.
struct Shortage {
  bool always = false;
  bool once = false;
  int objectsLeft = 0;  ///< before it fails once
  bool failed = false;
};

thread_local constinit Shortage tShortage;
// Of all threads, since what is a thread's own may come from malloc() itself.
std::atomic<bool> gMallocFails{false};

bool FailsNow() {
  Shortage& shortage = tShortage;
  const bool fails = shortage.always || (shortage.once && shortage.objectsLeft-- == 0);
  if (!fails) return false;
  shortage.once = false;
  shortage.failed = true;
  return true;
}

}  // namespace

namespace kel::test {

FailingHeap::FailingHeap() { tShortage = {.always = true}; }
FailingHeap::FailingHeap(int objects) { tShortage = {.once = true, .objectsLeft = objects}; }
FailingHeap::~FailingHeap() { tShortage = {}; }

bool FailingHeap::failed() const { return tShortage.failed; }

FailingMalloc::FailingMalloc() { gMallocFails = true; }
FailingMalloc::~FailingMalloc() { gMallocFails = false; }

}  // namespace kel::test

extern "C" {

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);

void* __wrap_malloc(std::size_t size) { return gMallocFails.exchange(false) ? nullptr : __real_malloc(size); }

void* RuntimesNew(std::size_t size) asm("__real_" KEL_OPERATOR_NEW);
void* ProgramsNew(std::size_t size) asm("__wrap_" KEL_OPERATOR_NEW);
void* RuntimesArray(std::size_t size) asm("__real_" KEL_OPERATOR_NEW_ARRAY);
void* ProgramsArray(std::size_t size) asm("__wrap_" KEL_OPERATOR_NEW_ARRAY);
void* RuntimesNewOrNull(std::size_t size, const std::nothrow_t&) asm("__real_" KEL_OPERATOR_NEW KEL_NOTHROW);
void* ProgramsNewOrNull(std::size_t size, const std::nothrow_t&) asm("__wrap_" KEL_OPERATOR_NEW KEL_NOTHROW);
void* RuntimesArrayOrNull(std::size_t size, const std::nothrow_t&) asm("__real_" KEL_OPERATOR_NEW_ARRAY KEL_NOTHROW);
void* ProgramsArrayOrNull(std::size_t size, const std::nothrow_t&) asm("__wrap_" KEL_OPERATOR_NEW_ARRAY KEL_NOTHROW);

void* ProgramsNew(std::size_t size) {
  if (FailsNow()) throw std::bad_alloc();
  return RuntimesNew(size);
}

void* ProgramsArray(std::size_t size) {
  if (FailsNow()) throw std::bad_alloc();
  return RuntimesArray(size);
}

void* ProgramsNewOrNull(std::size_t size, const std::nothrow_t& tag) {
  return FailsNow() ? nullptr : RuntimesNewOrNull(size, tag);
}

void* ProgramsArrayOrNull(std::size_t size, const std::nothrow_t& tag) {
  return FailsNow() ? nullptr : RuntimesArrayOrNull(size, tag);
}

}  // extern "C"
