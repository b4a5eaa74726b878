/* SPDX-License-Identifier: MIT */
// The table of engines, one for each connection, and the adapter's key to it.
//
// At most 15 engines live at once, though the table has 16 rows. An engine's handle is its row. The second key of a
// row, the adapter handle, is what data comes in by; it is entered when the engine has an adapter row.
//
// An engine that is looked up stays alive while it is in use, also when its row is given up meanwhile. Finalize() sees
// to it that nobody is left in normal use; this covers a pipe library that still delivers.
//
// Threads: any. gBrelInstLock guards the rows. The table starts afresh with the first engine, which is told by a count
// outside of the lock; so the first and the last need callers who do not come at once, as the exports do not. Look-ups
// may come at any time.
#pragma once

#include <cstdint>
#include <memory>

#include "engine/BrelEngine.h"

namespace kel {

inline constexpr std::uint32_t kNoBrelHandle = 0xFFFFFFFF;

/// Makes an engine in the lowest free row. Null, with `*handle` kNoBrelHandle, if 15 are alive. If the constructor
/// throws the lock stays held and the engine stays counted, so other threads that need the lock wait for ever.
std::shared_ptr<BrelEngine> AddBrelInst(std::uint32_t* handle);

/// The engine of a row, or null.
std::shared_ptr<BrelEngine> GetBrelInst(std::uint32_t handle);

/// The engine of the first row with that adapter handle, or null.
std::shared_ptr<BrelEngine> GetBrelInstByDorvHandle(std::uint32_t dorvHandle);

/// False for a handle of 16 or more, and then `*dorvHandle` is kNoDorvHandle.
bool GetDorvHandle(std::uint32_t handle, std::uint32_t* dorvHandle);
bool SetDorvHandle(std::uint32_t handle, std::uint32_t dorvHandle);

/// Destroys the engine of a row and frees the row.
void RemoveBrelInst(std::uint32_t handle);

/// The row's adapter handle, with no lock. The handle must be below 16.
std::uint32_t BrelGetDorvHandle(std::uint32_t handle);

}  // namespace kel
