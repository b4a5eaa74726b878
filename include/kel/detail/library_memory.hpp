// SPDX-License-Identifier: MIT
/**
 * @file
 * Blocks that the library handed out, and how they are given back.
 *
 * They come from the library's own malloc(). On Windows a program may have another C runtime than KELHandler.dll, whose
 * free() must not be used on them: a runtime ignores a block of another one's heap, or ends the program. The library
 * has no function to give a block back, but it imports the free() of its runtime, and Windows keeps the address of that
 * in the loaded DLL.
 */
#pragma once

#include <cstdlib>
#include <cstring>

#include "kel/detail/windows.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

using FreeFunction = void (*)(void*);

#ifdef _WIN32

/** What a loaded module calls as a function that it imports by that name; null if it imports none. */
inline ULONG_PTR importedFunction(HMODULE module, const char* name) noexcept {
  const auto* const image = reinterpret_cast<const BYTE*>(module);
  const auto* const head =
      reinterpret_cast<const IMAGE_NT_HEADERS*>(image + reinterpret_cast<const IMAGE_DOS_HEADER*>(image)->e_lfanew);
  const IMAGE_DATA_DIRECTORY& imports = head->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (imports.VirtualAddress == 0) return 0;
  for (auto dll = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + imports.VirtualAddress); dll->Name != 0;
       ++dll) {
    if (dll->OriginalFirstThunk == 0) continue;  // its names are gone
    auto symbol = reinterpret_cast<const IMAGE_THUNK_DATA*>(image + dll->OriginalFirstThunk);
    auto address = reinterpret_cast<const IMAGE_THUNK_DATA*>(image + dll->FirstThunk);
    for (; symbol->u1.AddressOfData != 0; ++symbol, ++address) {
      if (IMAGE_SNAP_BY_ORDINAL(symbol->u1.Ordinal)) continue;
      const auto* const import = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(image + symbol->u1.AddressOfData);
      if (std::strcmp(reinterpret_cast<const char*>(import->Name), name) == 0) return address->u1.Function;
    }
  }
  return 0;
}

/**
 * The library's free(), looked for once. The program's own where there is no KELHandler.dll, as in a program that has
 * the library's code linked in, or where the DLL imports none.
 */
inline FreeFunction libraryFree() noexcept {
  static const FreeFunction found = [] {
    const HMODULE library = GetModuleHandleA("KELHandler.dll");
    const ULONG_PTR address = library != nullptr ? importedFunction(library, "free") : 0;
    return address != 0 ? reinterpret_cast<FreeFunction>(address) : &std::free;
  }();
  return found;
}

#else

/** The library's free(): elsewhere a process has but one. */
inline FreeFunction libraryFree() noexcept { return &std::free; }

#endif

/**
 * Gives back a block that KELHandler handed out, or null. The library has to be in the process, as it is while anybody
 * has a block of it. Any thread may call it; it takes no lock but that of the heap.
 */
inline void freeLibraryBlock(void* block) noexcept { libraryFree()(block); }

}  // namespace detail
}  // namespace v1
}  // namespace kel
