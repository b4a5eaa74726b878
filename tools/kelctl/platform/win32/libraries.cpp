// SPDX-License-Identifier: MIT
#include "platform/libraries.h"

#include <windows.h>

#include "platform/win32/wide_text.h"

namespace kelctl {
namespace {

constexpr char kPipeLibrary[] = "SluiceHub.dll";
constexpr DWORD kLongestName = 32768;

Library load(const char* name) {
  // No box on the screen about a name that is missing.
  const UINT former = SetErrorMode(SEM_FAILCRITICALERRORS);
  const HMODULE library = LoadLibraryA(name);
  const DWORD error = GetLastError();
  SetErrorMode(former);
  SetLastError(error);
  return library;
}

}  // namespace

Library loadKelHandler() { return load("KELHandler.dll"); }

// Without what it imports itself: all that counts are its own names.
Library loadPipeLibrary() { return LoadLibraryExA(kPipeLibrary, nullptr, DONT_RESOLVE_DLL_REFERENCES); }

std::string loaderWords() {
  const DWORD error = GetLastError();
  wchar_t text[512];
  DWORD size = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text,
                              static_cast<DWORD>(std::size(text)), nullptr);
  while (size != 0 && (text[size - 1] == L'\n' || text[size - 1] == L'\r')) --size;
  return size != 0 ? toUtf8({text, size}) : "error " + std::to_string(error);
}

void* findFunction(Library library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

const char* pipeLibraryName() { return kPipeLibrary; }

std::string findPipeLibrary() {
  std::wstring name(kLongestName, L'\0');
  name.resize(SearchPathW(nullptr, L"SluiceHub.dll", nullptr, kLongestName, name.data(), nullptr));
  return toUtf8(name);
}

std::string pipeLibraryFile() {
  const HMODULE library = GetModuleHandleA(kPipeLibrary);
  if (library == nullptr) return {};
  std::wstring name(kLongestName, L'\0');
  name.resize(GetModuleFileNameW(library, name.data(), kLongestName));
  return toUtf8(name);
}

bool isStandIn() {
  const HMODULE library = GetModuleHandleA(kPipeLibrary);
  return library != nullptr && GetProcAddress(library, "SluiceHubSim_Reset") != nullptr;
}

}  // namespace kelctl
