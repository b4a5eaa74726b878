// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "faults/posix/faults.h"

namespace kel::faults {
namespace {

// ---------------------------------------------------------------------------------------------------------------------
// Modules and stacks
// ---------------------------------------------------------------------------------------------------------------------

enum class Owner { runtime, library, standIn, program };

struct Module {
  std::uintptr_t base, begin, end;
  Owner owner;
  char name[64];
};

constexpr std::size_t kMostModules = 64;
Module gModules[kMostModules];
std::size_t gModuleCount = 0;

int AddModule(dl_phdr_info* info, std::size_t, void*) {
  for (int i = 0; i < info->dlpi_phnum && gModuleCount < kMostModules; ++i) {
    const auto& header = info->dlpi_phdr[i];
    if (header.p_type != PT_LOAD || (header.p_flags & PF_X) == 0) continue;
    Module& module = gModules[gModuleCount++];
    module.base = info->dlpi_addr;
    module.begin = info->dlpi_addr + header.p_vaddr;
    module.end = module.begin + header.p_memsz;
    const char* slash = std::strrchr(info->dlpi_name, '/');
    std::snprintf(module.name, sizeof module.name, "%s", slash != nullptr ? slash + 1 : info->dlpi_name);
    module.owner = std::strstr(module.name, "KELHandler") != nullptr  ? Owner::library
                   : std::strstr(module.name, "SluiceHub") != nullptr ? Owner::standIn
                   : info->dlpi_name[0] == 0                          ? Owner::program
                                                                      : Owner::runtime;
  }
  return 0;
}

const Module* ModuleOf(std::uintptr_t address) {
  for (std::size_t i = 0; i < gModuleCount; ++i) {
    if (address >= gModules[i].begin && address < gModules[i].end) return &gModules[i];
  }
  return nullptr;
}

constexpr std::size_t kMostFrames = 40;

struct Stack {
  std::size_t count = 0;
  std::uintptr_t frames[kMostFrames];

  /// A number that does not depend on where the modules are mapped.
  std::uint64_t number() const {
    std::uint64_t hash = 14695981039346656037U;
    const auto mix = [&hash](std::uint64_t value) { hash = (hash ^ value) * 1099511628211U; };
    for (std::size_t i = 0; i < count; ++i) {
      const Module* module = ModuleOf(frames[i]);
      // Within the runtime only the module counts: whether a caller finds a name already bound makes no difference.
      mix(module != nullptr ? static_cast<std::uint64_t>(module - gModules) + 1 : 0);
      if (module != nullptr && module->owner != Owner::runtime) mix(frames[i] - module->base);
    }
    return hash != 0 ? hash : 1;
  }
};

_Unwind_Reason_Code AddFrame(_Unwind_Context* context, void* argument) {
  Stack& stack = *static_cast<Stack*>(argument);
  if (stack.count == kMostFrames) return _URC_END_OF_STACK;
  // The return address stands behind the call.
  stack.frames[stack.count++] = _Unwind_GetIP(context) - 1;
  return _URC_NO_REASON;
}

/// The stack from the caller whose return address is given; all of it if there is none.
Stack StackFrom(const void* returnAddress) {
  Stack stack;
  _Unwind_Backtrace(AddFrame, &stack);
  if (returnAddress == nullptr) return stack;
  std::uintptr_t* const end = stack.frames + stack.count;
  std::uintptr_t* const caller = std::find(stack.frames, end, reinterpret_cast<std::uintptr_t>(returnAddress) - 1);
  if (caller == end) return stack;
  std::copy(caller, end, stack.frames);
  stack.count = static_cast<std::size_t>(end - caller);
  return stack;
}

bool IsLibrarys(const Stack& stack) {
  for (std::size_t i = 0; i < stack.count; ++i) {
    const Module* module = ModuleOf(stack.frames[i]);
    if (module != nullptr && module->owner != Owner::runtime) return module->owner == Owner::library;
  }
  return false;
}

// ---------------------------------------------------------------------------------------------------------------------
// What fails
// ---------------------------------------------------------------------------------------------------------------------

struct Counted {
  std::uint64_t number;
  std::uint64_t calls;
  bool failed;
  Stack stack;
};

constexpr std::size_t kMostStacks = 16384;
Counted gCounted[kMostStacks];  // sorted by nothing: an open hash table
std::atomic_flag gBusy = ATOMIC_FLAG_INIT;
Plan gPlan;
std::atomic<bool> gArmed{false};
std::uint64_t gCalls = 0;
std::uint64_t gFailures = 0;
const Counted* gFirst = nullptr;  ///< that failed

thread_local constinit bool tInside = false;

/// Whether the call to be made now is to fail.
bool Fails(Family family, const void* returnAddress) {
  if (!gArmed.load(std::memory_order_acquire) || tInside || gPlan.family != family) return false;
  const Module* caller = ModuleOf(reinterpret_cast<std::uintptr_t>(returnAddress));
  if (caller == nullptr || caller->owner == Owner::program || caller->owner == Owner::standIn) return false;
  tInside = true;
  const int error = errno;
  const Stack stack = StackFrom(returnAddress);
  bool fails = false;
  if (IsLibrarys(stack)) {
    const std::uint64_t number = stack.number();
    while (gBusy.test_and_set(std::memory_order_acquire)) {
    }
    ++gCalls;
    std::size_t place = number % kMostStacks;
    while (gCounted[place].calls != 0 && gCounted[place].number != number) place = (place + 1) % kMostStacks;
    if (gCounted[place].calls++ == 0) {
      gCounted[place].number = number;
      gCounted[place].stack = stack;
    }
    fails = gFailures != 0 ? gPlan.onwards : (gPlan.stack == number || (gPlan.stack == 0 && gPlan.call == gCalls));
    if (fails) {
      gCounted[place].failed = true;
      if (gFailures++ == 0) gFirst = &gCounted[place];
    }
    gBusy.clear(std::memory_order_release);
  }
  errno = error;
  tInside = false;
  return fails;
}

}  // namespace

// ---------------------------------------------------------------------------------------------------------------------
// The program's side
// ---------------------------------------------------------------------------------------------------------------------

namespace {

/// A line of text that is made and written without the heap and without the functions below.
class Line {
 public:
  explicit Line(int descriptor) : mDescriptor(descriptor) {}
  ~Line() {
    *this << "\n";
    for (std::size_t done = 0; done < mLength;) {
      const long written = syscall(SYS_write, mDescriptor, mText + done, mLength - done);
      if (written <= 0) break;
      done += static_cast<std::size_t>(written);
    }
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  Line& operator<<(const char* text) {
    while (*text != 0 && mLength < sizeof mText) mText[mLength++] = *text++;
    return *this;
  }
  Line& operator<<(std::uint64_t number) { return add(number, 10); }
  Line& operator<<(const Stack& stack) {
    for (std::size_t i = 0; i < stack.count; ++i) {
      const Module* module = ModuleOf(stack.frames[i]);
      const bool known = module != nullptr;
      *this << " " << (!known ? "unknown" : module->owner == Owner::program ? "program" : module->name) << "+0x";
      add(stack.frames[i] - (known ? module->base : 0), 16);
    }
    return *this;
  }

 private:
  Line& add(std::uint64_t number, unsigned base) {
    char digits[24];
    char* first = digits + sizeof digits - 1;
    *first = 0;
    do {
      *--first = "0123456789abcdef"[number % base];
      number /= base;
    } while (number != 0);
    return *this << first;
  }

  const int mDescriptor;
  std::size_t mLength = 0;
  char mText[4096];
};

}  // namespace

void Prepare() {
  dl_iterate_phdr(AddModule, nullptr);
  StackFrom(nullptr);  // the unwinder's own preparations
}

void Arm(const Plan& plan) {
  gPlan = plan;
  gArmed.store(true, std::memory_order_release);
}

void Disarm() { gArmed.store(false, std::memory_order_release); }

void WriteStacks(int descriptor) {
  for (const Counted& counted : gCounted) {
    if (counted.calls != 0) Line(descriptor) << "stack " << counted.number << " " << counted.calls << counted.stack;
  }
}

void WriteFailure(int descriptor) {
  if (gFirst != nullptr) Line(descriptor) << "failed " << gFirst->number << gFirst->stack;
  for (const Counted& counted : gCounted) {
    if (counted.failed && &counted != gFirst) Line(descriptor) << "failed " << counted.number << counted.stack;
  }
  Line(descriptor) << "failures " << gFailures;
}

void WriteOwnStack(int descriptor, const char* word) { Line(descriptor) << word << StackFrom(nullptr); }

}  // namespace kel::faults

// ---------------------------------------------------------------------------------------------------------------------
// The functions that everybody else finds in place of the runtime's
// ---------------------------------------------------------------------------------------------------------------------

using namespace kel::faults;

namespace {

/// The next definition behind this program's own, looked up by the first call. Without a guard, since the C library may
/// ask for memory before anything else has run.
template <class Function>
Function* Next(std::atomic<Function*>& known, const char* name) {
  if (Function* const next = known.load(std::memory_order_acquire)) return next;
  Function* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
  known.store(next, std::memory_order_release);
  return next;
}

/// While one lives, calls of this thread are part of one that was counted already.
class Inside {
 public:
  Inside() : mBefore(std::exchange(tInside, true)) {}
  ~Inside() { tInside = mBefore; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  const bool mBefore;
};

}  // namespace

// INTERPOSE(family, errno and result of a failure, result type, name, parameters, arguments)
#define INTERPOSE(family, error, failure, Result, name, parameters, arguments)             \
  Result name parameters {                                                                 \
    static constinit std::atomic<Result(*) parameters> known{nullptr};                     \
    using Function = Result parameters;                                                    \
    if (Fails(Family::family, __builtin_return_address(0))) return errno = error, failure; \
    Function* const next = Next<Function>(known, #name);                                   \
    return next arguments;                                                                 \
  }

extern "C" {

INTERPOSE(memory, ENOMEM, nullptr, void*, malloc, (std::size_t size) noexcept, (size))
INTERPOSE(memory, ENOMEM, nullptr, void*, calloc, (std::size_t count, std::size_t size) noexcept, (count, size))
INTERPOSE(memory, ENOMEM, nullptr, void*, realloc, (void* block, std::size_t size) noexcept, (block, size))

INTERPOSE(thread, EAGAIN, EAGAIN, int, pthread_create,
          (pthread_t * thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) noexcept,
          (thread, attributes, run, argument))

INTERPOSE(file, EMFILE, nullptr, std::FILE*, fopen, (const char* name, const char* mode), (name, mode))
INTERPOSE(file, EMFILE, nullptr, std::FILE*, fopen64, (const char* name, const char* mode), (name, mode))
INTERPOSE(file, EIO, 0, std::size_t, fread, (void* data, std::size_t size, std::size_t count, std::FILE* file),
          (data, size, count, file))
INTERPOSE(file, EIO, EOF, int, fgetc, (std::FILE * file), (file))
INTERPOSE(file, EIO, nullptr, char*, fgets, (char* text, int size, std::FILE* file), (text, size, file))
INTERPOSE(file, ENOSPC, 0, std::size_t, fwrite,
          (const void* data, std::size_t size, std::size_t count, std::FILE* file), (data, size, count, file))
INTERPOSE(file, ENOSPC, EOF, int, fputs, (const char* text, std::FILE* file), (text, file))
INTERPOSE(file, ENOSPC, EOF, int, fputc, (int character, std::FILE* file), (character, file))
INTERPOSE(file, ENOSPC, -1, int, vfprintf, (std::FILE * file, const char* format, va_list arguments),
          (file, format, arguments))
INTERPOSE(file, ENOSPC, EOF, int, fflush, (std::FILE * file), (file))
INTERPOSE(file, EIO, -1, int, fseek, (std::FILE * file, long offset, int from), (file, offset, from))
INTERPOSE(file, EIO, -1, long, ftell, (std::FILE * file), (file))
INTERPOSE(file, EIO, -1, ssize_t, read, (int file, void* data, std::size_t size), (file, data, size))
INTERPOSE(file, ENOSPC, -1, ssize_t, write, (int file, const void* data, std::size_t size), (file, data, size))
INTERPOSE(file, ENOSPC, -1, ssize_t, writev, (int file, const iovec* parts, int count), (file, parts, count))
INTERPOSE(file, EIO, -1, off64_t, lseek64, (int file, off64_t offset, int from) noexcept, (file, offset, from))

int fprintf(std::FILE* file, const char* format, ...) {
  if (Fails(Family::file, __builtin_return_address(0))) return errno = ENOSPC, -1;
  const Inside inside;
  std::va_list arguments;
  va_start(arguments, format);
  const int length = vfprintf(file, format, arguments);
  va_end(arguments);
  return length;
}

// A descriptor or a stream is closed all the same, as the system does it.
int fclose(std::FILE* file) {
  static constinit std::atomic<int (*)(std::FILE*)> known{nullptr};
  const bool fails = Fails(Family::file, __builtin_return_address(0));
  const Inside inside;
  const int result = Next(known, "fclose")(file);
  return fails ? (errno = EIO, EOF) : result;
}

int close(int file) {
  static constinit std::atomic<int (*)(int)> known{nullptr};
  const bool fails = Fails(Family::file, __builtin_return_address(0));
  const int result = Next(known, "close")(file);
  return fails ? (errno = EIO, -1) : result;
}

// The mode stands behind the flags only where a file may be made.
int open(const char* name, int flags, ...) {
  static constinit std::atomic<int (*)(const char*, int, ...)> known{nullptr};
  if (Fails(Family::file, __builtin_return_address(0))) return errno = EMFILE, -1;
  std::va_list arguments;
  va_start(arguments, flags);
  const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
  va_end(arguments);
  return Next(known, "open")(name, flags, mode);
}

// operator new and new[]. Where a sanitizer has its own, that is the next.
void* New(std::size_t size) asm("_Znwm");
void* NewArray(std::size_t size) asm("_Znam");

void* New(std::size_t size) {
  static constinit std::atomic<void* (*)(std::size_t)> known{nullptr};
  if (Fails(Family::memory, __builtin_return_address(0))) throw std::bad_alloc();
  const Inside inside;
  return Next(known, "_Znwm")(size);
}

void* NewArray(std::size_t size) {
  static constinit std::atomic<void* (*)(std::size_t)> known{nullptr};
  if (Fails(Family::memory, __builtin_return_address(0))) throw std::bad_alloc();
  const Inside inside;
  return Next(known, "_Znam")(size);
}

// ---------------------------------------------------------------------------------------------------------------------
// Asked by the library, where only its own calls are meant
// ---------------------------------------------------------------------------------------------------------------------

bool KelFaultsLoadFails() { return Fails(Family::load, __builtin_return_address(0)); }
bool KelFaultsObjectFails() { return Fails(Family::object, __builtin_return_address(0)); }

}  // extern "C"
