// SPDX-License-Identifier: MIT
#include "support/process_resources.h"

#include <windows.h>

#include <tlhelp32.h>

namespace kel::test {

std::size_t LivingThreads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  std::size_t count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
  }
  CloseHandle(snapshot);
  return count;
}

// Windows counts handles of every origin together, and Wine none at all.
std::optional<std::size_t> OpenHandles() { return {}; }

std::optional<std::size_t> OpenDescriptors() { return {}; }

std::optional<std::size_t> HeapBytes() { return {}; }

std::optional<std::size_t> ResidentBytes() { return {}; }

}  // namespace kel::test
