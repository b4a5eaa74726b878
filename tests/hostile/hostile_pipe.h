/* SPDX-License-Identifier: MIT */
// The pipe library of the hostile tests, and how a test has it behave.
//
// It has the names of the closed one and keeps to the letter of what a pipe library may do, and to nothing else:
// several threads deliver at once, its disconnect waits for none of them, and they go on with connections that are
// closed. What it delivers is told in letters, one for each delivery:
//
//   A  the answer                                    S  an answer that is shorter than it announces
//   M  a message of a stream                         H  an answer that announces nearly all that 32 bits can hold
//   E  the end of a stream                           R  an answer to a row that is not the connection's
//   U  an answer whose class has no meaning          I  a message with an ID of no meaning
//   O  an answer to any of the 64 numbers            N  an answer whose reply outputs are null
//   B  a broadcast                                   V  an event of no meaning
//   L  the loss of the link, for any reason
//
// Bodies lie in blocks of just their size, so that AddressSanitizer sees every byte read beyond one.
#pragma once

#include <cstdint>

// What makes a name leave the library where it is built.
#ifndef HOSTILE_API
#define HOSTILE_API
#endif

/// Texts of the letters above, which must stay.
struct HostileManners {
  const char* connecting = "";     ///< for each connection, before its owner knows it
  const char* before = "";         ///< for each request, before its send returns
  const char* after = "";          ///< for each request, by a thread that nobody waits for
  const char* disconnecting = "";  ///< for each connection, before its disconnect returns
  const char* pouring = "";        ///< one at random at a time, to one of the latest connections, open or not
  std::uint32_t refuses = 0;       ///< HOSTILE_REFUSES_* together
};

#define HOSTILE_REFUSES_EXPECTANT 1u  ///< requests that expect a response
#define HOSTILE_REFUSES_OTHERS 2u     ///< requests that expect none
#define HOSTILE_REFUSES_SOME 4u       ///< of these only some, at random
#define HOSTILE_REFUSES_SOCKETS 8u    ///< and the socket of a new connection, in one of several ways

extern "C" {

/// How it behaves from now on. At first it takes everything and delivers nothing.
HOSTILE_API void Hostile_Behave(const HostileManners* manners);

/// Starts threads that pour, and picks everything that is left to chance by `seed`.
HOSTILE_API void Hostile_Pour(std::uint32_t threads, std::uint64_t seed);

/// Has all threads end, and waits for that so many milliseconds. How many are left, which are inside the handlers.
HOSTILE_API std::uint32_t Hostile_Quiet(std::uint32_t milliseconds);

/// How many deliveries have returned.
HOSTILE_API std::uint64_t Hostile_Deliveries(void);

/// A message and an event for the latest connection, on the calling thread.
HOSTILE_API void Hostile_Message(std::uint32_t messageID, const void* body, std::uint32_t size);
HOSTILE_API void Hostile_Event(std::uint32_t event, const std::uint32_t* reason);
}
