// SPDX-License-Identifier: MIT
// A client that gives back what the library hands out, on the library's C runtime or on another one:
//
//     PROGRAM same|other
//
// Ends with 0 if the free() that it gives blocks back with belongs to its own runtime, or to another; if every block
// was one of that runtime's heap; and if no answer is left there. It has no test framework, since none is
// made for the other runtime.
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "KELHandler.h"
#include "kel/detail/library_memory.hpp"

namespace {

constexpr std::uint32_t kAnswers = 3000;
constexpr std::uint32_t kBroadcasts = 3000;
constexpr std::uint32_t kAnswerSize = 5003;  // of no other block in the process

std::atomic<std::uint32_t> gBroadcasts{0};
std::atomic<std::uint32_t> gStrangers{0};
HANDLE gAllBroadcasts = nullptr;
HANDLE gLibraryHeap = nullptr;

[[noreturn]] void fail(const char* what, unsigned long number = 0) {
  std::fprintf(stderr, "%s (%lu)\n", what, number);
  ExitProcess(1);
}

HMODULE moduleOf(ULONG_PTR address) {
  HMODULE module = nullptr;
  if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<const char*>(address), &module)) {
    fail("a function belongs to no module", GetLastError());
  }
  return module;
}

const char* nameOf(HMODULE module, char (&path)[MAX_PATH]) {
  GetModuleFileNameA(module, path, MAX_PATH);
  return path;
}

HANDLE heapOf(HMODULE runtime) {
  const auto heap = reinterpret_cast<ULONG_PTR (*)()>(GetProcAddress(runtime, "_get_heap_handle"));
  if (heap == nullptr) fail("the runtime does not tell its heap");
  return reinterpret_cast<HANDLE>(heap());
}

void giveBack(void* block) {
  if (!HeapValidate(gLibraryHeap, 0, block)) ++gStrangers;
  kel::detail::freeLibraryBlock(block);
}

void onBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  giveBack(name);
  giveBack(payload);
  if (++gBroadcasts == kBroadcasts) SetEvent(gAllBroadcasts);
}

/// How many blocks of an answer's size a heap holds.
unsigned answersIn(HANDLE heap) {
  unsigned count = 0;
  HeapLock(heap);
  for (PROCESS_HEAP_ENTRY entry{}; HeapWalk(heap, &entry);) {
    if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 && entry.cbData == kAnswerSize) ++count;
  }
  HeapUnlock(heap);
  return count;
}

/// Asks for an answer; it is the caller's to give back.
void* ask(std::uint64_t conn, const char* task, const void* payload, std::uint32_t size) {
  void* answer = nullptr;
  std::uint32_t answerSize = 0;
  const std::uint32_t result = KEL_SendReceiveKEL(conn, task, 1, payload, size, &answer, &answerSize, nullptr);
  if (result != KEL_OK || answer == nullptr || answerSize != size) fail(task, result);
  return answer;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) fail("same or other");
  const HMODULE own = moduleOf(kel::detail::importedFunction(GetModuleHandleA(nullptr), "free"));
  const HMODULE librarys = moduleOf(reinterpret_cast<ULONG_PTR>(kel::detail::libraryFree()));
  char ownName[MAX_PATH], librarysName[MAX_PATH];
  std::printf("own free() in %s, the library's in %s\n", nameOf(own, ownName), nameOf(librarys, librarysName));
  if ((own == librarys) != (std::strcmp(argv[1], "same") == 0)) fail("that is not what was expected");
  gLibraryHeap = heapOf(librarys);
  if (own != librarys && heapOf(own) == gLibraryHeap) fail("both runtimes have one heap, which shows nothing");

  gAllBroadcasts = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::uint64_t conn = 0;
  KEL_Init();
  if (const std::uint32_t result = KEL_Connect(nullptr, onBroadcast, &conn); result != KEL_OK) fail("connect", result);

  static const char payload[kAnswerSize] = {};
  void* const kept = ask(conn, "TASK_ID_APPLICATION_DEBUG_REF", payload, kAnswerSize);
  const unsigned withOneKept = answersIn(gLibraryHeap);
  const std::uint32_t request[3] = {kBroadcasts, 0, 0};
  giveBack(ask(conn, "TASK_ID_APPLICATION_DEBUG_BROADCASTER", request, sizeof request));
  for (std::uint32_t i = 0; i < kAnswers; ++i) {
    giveBack(ask(conn, "TASK_ID_APPLICATION_DEBUG_REF", payload, kAnswerSize));
  }
  if (WaitForSingleObject(gAllBroadcasts, 60'000) != WAIT_OBJECT_0) fail("broadcasts are missing", gBroadcasts);
  giveBack(kept);
  kel::detail::freeLibraryBlock(nullptr);

  if (KEL_Disconnect(conn) != KEL_OK) fail("disconnect");
  const unsigned left = answersIn(gLibraryHeap);
  KEL_Finalize();
  std::printf("answers in the heap: %u with one kept, %u at the end\n", withOneKept, left);
  if (withOneKept == 0) fail("the heap does not show its blocks");
  if (gStrangers != 0) fail("blocks of another heap", gStrangers);
  // The stand-in may keep one that looks the same.
  if (left >= withOneKept) fail("answers are left in the heap", left);
  for (const HANDLE heap : {heapOf(own), gLibraryHeap, GetProcessHeap()}) {
    if (!HeapValidate(heap, 0, nullptr)) fail("a heap is broken");
  }
  return 0;
}
