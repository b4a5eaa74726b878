/* SPDX-License-Identifier: MIT */
// What this process has of the system, as far as the system tells.
#pragma once

#include <cstddef>
#include <optional>

namespace kel::test {

/// Threads that live.
std::size_t LivingThreads();

/// Open handles of the platform's objects; none where the system does not count them.
std::optional<std::size_t> OpenHandles();

/// Files and the like that are open; none where these are handles and are counted as such.
std::optional<std::size_t> OpenDescriptors();

/// Bytes that the heap has given out, its own bookkeeping included.
std::optional<std::size_t> HeapBytes();

/// Memory that the process takes; none where a sanitizer takes its own.
std::optional<std::size_t> ResidentBytes();

}  // namespace kel::test
