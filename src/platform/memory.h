/* SPDX-License-Identifier: MIT */
// Blocks that may leave the library. They come from malloc, so that a client on the same C runtime can free them.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace kel {

/// A block of `size` bytes, at least one, for std::free(). Throws std::bad_alloc.
inline void* AllocateBlock(std::size_t size) {
  void* block = std::malloc(size != 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

/// A block that holds a copy of `size` bytes.
inline std::uint8_t* CopyBlock(const void* bytes, std::size_t size) {
  void* block = AllocateBlock(size);
  if (size != 0) std::memcpy(block, bytes, size);
  return static_cast<std::uint8_t*>(block);
}

/// A block that holds a copy of a text and its end mark.
inline char* CopyText(const char* text) {
  return reinterpret_cast<char*>(CopyBlock(text, std::strlen(text) + 1));
}

}  // namespace kel
