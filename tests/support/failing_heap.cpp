// SPDX-License-Identifier: MIT
// The linker's --wrap sends each call of a function to "__wrap_" and its name, from where "__real_" and its name is the
// runtime's. So a sanitizer's own, which would not stand a replacement beside it, goes on seeing every block. The names
// of operator new are the build's to know: they hold the type of a size.
#include "support/failing_heap.h"

#include <atomic>
#include <new>

#include "support/thread_number.h"

#define KEL_NOTHROW "RKSt9nothrow_t"  // the second argument

namespace {

/// What is asked of the heap. Not data of a thread's own, which may come from malloc() itself; only the thread that it
/// is for looks at the rest.
struct Shortage {
  bool always;
  int objectsLeft;  ///< before it fails once
  bool failed = false;
  bool insideNew = false;  ///< which takes its memory from malloc()
};

std::atomic<std::uint64_t> gThread{0};  // that has a failing heap
Shortage gShortage;

bool IsShort() {
  const std::uint64_t thread = gThread.load(std::memory_order_relaxed);
  return thread != 0 && thread == kel::test::ThreadNumber();
}

bool FailsNow() {
  if (!IsShort()) return false;
  const bool fails = gShortage.always || gShortage.objectsLeft-- == 0;
  gShortage.failed |= fails;
  return fails;
}

/// An allocation that counts once, however it comes by its memory.
template <class Allocate>
void* Once(Allocate allocate) {
  if (!IsShort()) return allocate();
  gShortage.insideNew = true;
  void* const block = allocate();
  gShortage.insideNew = false;
  return block;
}

}  // namespace

namespace kel::test {

FailingHeap::FailingHeap() {
  gShortage = {.always = true, .objectsLeft = 0};
  gThread = ThreadNumber();
}
FailingHeap::FailingHeap(int objects) {
  gShortage = {.always = false, .objectsLeft = objects};
  gThread = ThreadNumber();
}
FailingHeap::~FailingHeap() { gThread = 0; }

bool FailingHeap::failed() const { return gShortage.failed; }

}  // namespace kel::test

extern "C" {

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);

void* RuntimesNew(std::size_t size) asm("__real_" KEL_OPERATOR_NEW);
void* ProgramsNew(std::size_t size) asm("__wrap_" KEL_OPERATOR_NEW);
void* RuntimesArray(std::size_t size) asm("__real_" KEL_OPERATOR_NEW_ARRAY);
void* ProgramsArray(std::size_t size) asm("__wrap_" KEL_OPERATOR_NEW_ARRAY);
void* RuntimesNewOrNull(std::size_t size, const std::nothrow_t&) asm("__real_" KEL_OPERATOR_NEW KEL_NOTHROW);
void* ProgramsNewOrNull(std::size_t size, const std::nothrow_t&) asm("__wrap_" KEL_OPERATOR_NEW KEL_NOTHROW);
void* RuntimesArrayOrNull(std::size_t size, const std::nothrow_t&) asm("__real_" KEL_OPERATOR_NEW_ARRAY KEL_NOTHROW);
void* ProgramsArrayOrNull(std::size_t size, const std::nothrow_t&) asm("__wrap_" KEL_OPERATOR_NEW_ARRAY KEL_NOTHROW);

void* __wrap_malloc(std::size_t size) {
  if (IsShort() && !gShortage.insideNew && FailsNow()) return nullptr;
  return __real_malloc(size);
}

void* ProgramsNew(std::size_t size) {
  if (FailsNow()) throw std::bad_alloc();
  return Once([&] { return RuntimesNew(size); });
}

void* ProgramsArray(std::size_t size) {
  if (FailsNow()) throw std::bad_alloc();
  return Once([&] { return RuntimesArray(size); });
}

void* ProgramsNewOrNull(std::size_t size, const std::nothrow_t& tag) {
  return FailsNow() ? nullptr : Once([&] { return RuntimesNewOrNull(size, tag); });
}

void* ProgramsArrayOrNull(std::size_t size, const std::nothrow_t& tag) {
  return FailsNow() ? nullptr : Once([&] { return RuntimesArrayOrNull(size, tag); });
}

}  // extern "C"
