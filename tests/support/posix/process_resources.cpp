// SPDX-License-Identifier: MIT
#include "support/process_resources.h"

#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/heap_of_sanitizer.h"
#ifdef KEL_HEAP_OF_SANITIZER
#include <sanitizer/allocator_interface.h>
#endif

namespace kel::test {
namespace {

std::size_t EntriesOf(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace

std::size_t LivingThreads() { return EntriesOf("/proc/self/task"); }

std::optional<std::size_t> OpenDescriptors() { return EntriesOf("/proc/self/fd"); }

std::optional<std::size_t> HeapBytes() {
#ifdef KEL_HEAP_OF_SANITIZER
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

std::optional<std::size_t> ResidentBytes() {
#ifdef KEL_HEAP_OF_SANITIZER
  return {};
#else
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;  // the second number
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
#endif
}

}  // namespace kel::test
