/* SPDX-License-Identifier: MIT */
// What a block of the heap takes.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "support/process_resources.h"

namespace kel::test {

/// How much of the heap a block of that size takes, as HeapBytes() counts; 0 where it does not.
inline std::int64_t HeapBytesOfBlock(std::size_t size) {
  constexpr std::size_t kBlocks = 1000;
  std::vector<void*> blocks(kBlocks);
  const std::size_t before = HeapBytes().value_or(0);
  for (void*& block : blocks) block = std::malloc(size);
  const std::size_t after = HeapBytes().value_or(0);
  for (void* block : blocks) std::free(block);
  return static_cast<std::int64_t>((after - before) / kBlocks);
}

}  // namespace kel::test
