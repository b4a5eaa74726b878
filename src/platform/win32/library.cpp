// SPDX-License-Identifier: MIT
// Shared libraries; error numbers and their words.
#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace kel::platform {

Module loadLibrary(const char* name) { return LoadLibraryA((std::string(name) + ".dll").c_str()); }

Symbol findSymbol(Module library, const char* name) {
  return reinterpret_cast<Symbol>(GetProcAddress(static_cast<HMODULE>(library), name));
}

bool freeLibrary(Module library) { return FreeLibrary(static_cast<HMODULE>(library)) != 0; }

std::uint32_t lastError() { return GetLastError(); }

std::string errorText(std::uint32_t error) {
  char text[512];
  DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text,
                                sizeof text, nullptr);
  // The system ends its words with a line break.
  while (length > 0 && static_cast<unsigned char>(text[length - 1]) <= ' ') --length;
  return length > 0 ? std::string(text, length) : "Error " + std::to_string(error);
}

}  // namespace kel::platform
