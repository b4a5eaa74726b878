/* SPDX-License-Identifier: MIT */
// Calls to the system that fail on request, for all that the library does and for nothing else.
//
// The program defines the functions named in interposed.cpp itself, so that the loader binds every call of the process
// to them, those of the C++ runtime and of the C library's own allocations included. A call counts if it is made while
// armed and by the library: walking outwards from the caller, past the runtime libraries, the first frame is the
// library's. Calls of the stand-in, of a client's callback and of the program itself are thus never counted, on
// whichever thread.
//
// Each counted call has a stack; stacks are told apart by a number that is the same in each run of the same build.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kel::faults {

enum class Family { memory, thread, file, load, object };

/// Which call fails: the first one with this stack, or with `stack` 0 the one of this number (0: none). With `onwards`
/// all calls of the family that come behind it on any thread fail too.
struct Plan {
  Family family = Family::memory;
  std::uint64_t stack = 0;
  std::uint64_t call = 0;
  bool onwards = false;
};

/// Prepares what takes memory itself. To be called once, ahead of all else.
void Prepare();

void Arm(const Plan& plan);
/// From here on no call fails.
void Disarm();

/// Writes to a descriptor, a line each: "stack NUMBER CALLS FRAME...", innermost frame first, for each stack that was
/// counted; or "failed NUMBER FRAME..." and "failures COUNT" for what failed. A frame is MODULE+OFFSET.
void WriteStacks(int descriptor);
void WriteFailure(int descriptor);
/// The caller's own stack, in one line behind `word`. Safe in a signal handler.
void WriteOwnStack(int descriptor, const char* word);

}  // namespace kel::faults

// Asked by the library that tests/faults links: ahead of loading or looking something up, and of making an event or
// mutex.
extern "C" bool KelFaultsLoadFails();
extern "C" bool KelFaultsObjectFails();
