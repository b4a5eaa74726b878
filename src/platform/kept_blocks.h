/* SPDX-License-Identifier: MIT */
// Blocks that stay allocated by default, and are released on request.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <memory>

#include "platform/memory.h"

namespace kel {

/// Says what becomes of a block that nobody uses any more, where the library is known to keep it: it stays allocated,
/// or is released if ReleaseBlocks asks for that. Each object that has such blocks has one of these, to which the
/// engine copies its setting. Threads: any.
class KeptBlocks {
 public:
  KeptBlocks() = default;
  KeptBlocks(const KeptBlocks&) = delete;
  KeptBlocks& operator=(const KeptBlocks&) = delete;

  void setReleased(bool released) { mReleased.store(released, std::memory_order_relaxed); }
  bool released() const { return mReleased.load(std::memory_order_relaxed); }

  /// Ends the use of a block from malloc(), or null.
  void leave(void* block) const {
    if (released()) std::free(block);
  }

  struct Leaver {
    const KeptBlocks* keptBlocks;
    void operator()(void* block) const { keptBlocks->leave(block); }
  };
  template <class T>
  using Held = std::unique_ptr<T, Leaver>;

  /// Leaves the block at the end of a scope, by the setting that counts then.
  template <class T>
  Held<T> hold(T* block) const {
    return Held<T>(block, Leaver{this});
  }

 private:
  std::atomic<bool> mReleased{false};
};

/// A block for the life of a scope that is kept behind it. Where kept blocks are released it lies in the scope itself,
/// if there is room, and takes nothing from the heap. Throws std::bad_alloc.
template <std::size_t Room>
class ScopedBlock {
 public:
  ScopedBlock(const KeptBlocks& keptBlocks, std::size_t size)
      : mHeld(keptBlocks.hold<void>(keptBlocks.released() && size <= Room ? nullptr : AllocateBlock(size))) {}
  ScopedBlock(const ScopedBlock&) = delete;
  ScopedBlock& operator=(const ScopedBlock&) = delete;

  void* get() { return mHeld != nullptr ? mHeld.get() : mRoom; }

 private:
  const KeptBlocks::Held<void> mHeld;
  alignas(std::max_align_t) std::byte mRoom[Room];  // left as it is
};

}  // namespace kel
