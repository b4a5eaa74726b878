/* SPDX-License-Identifier: MIT */
// The library as benchmarks use it.
#pragma once

#include <cstdint>

#include "KELHandler.h"

namespace bench {

/// Payload sizes of a round trip, one for each form of a payload.
inline constexpr std::uint32_t kValSize = 12;
inline constexpr std::uint32_t kRefSize = 4096;

/// Messages of a stream, or broadcasts, in one go.
inline constexpr std::uint32_t kSeriesLength = 2000;

/// Makes an empty folder the working directory, once, so that no settings of the user's have a say.
void EnterScratchFolder();

/// What the library does with blocks that nobody uses any more.
enum class Blocks { kept, released };

/// For the next connect.
void SetBlocks(Blocks blocks);

/// One connection of each kind for all rounds, so that none of them pays for a connect. Broadcasts go to the callback
/// below.
std::uint64_t Connection(Blocks blocks = Blocks::kept);

/// Called for each broadcast, on the listener's thread. To be set while none is on its way.
extern void (*onBroadcast)();

/// Sends an asynchronous task. The number of a task is back only some time behind its callback, when its thread has
/// ended, so a task that finds none is sent again a little later. False if that does not help.
bool SendAsync(std::uint64_t conn, const char* task, const void* payload, std::uint32_t size,
               KEL_AsyncCallback callback, KEL_StreamCallback streamCallback);

}  // namespace bench
