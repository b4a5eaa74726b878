// SPDX-License-Identifier: MIT
#include "platform/pipe_library.h"

#include <windows.h>

#include "platform/text.h"

namespace kelctl {

std::string pipeLibraryFile() {
  const HMODULE library = GetModuleHandleA("SluiceHub.dll");
  if (library == nullptr) return {};
  std::wstring name(32768, L'\0');
  name.resize(GetModuleFileNameW(library, name.data(), static_cast<DWORD>(name.size())));
  return toUtf8(name);
}

bool isStandIn() {
  const HMODULE library = GetModuleHandleA("SluiceHub.dll");
  return library != nullptr && GetProcAddress(library, "SluiceHubSim_Reset") != nullptr;
}

}  // namespace kelctl
