// SPDX-License-Identifier: MIT
// Built-in resources.
#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace kel::platform {

// Resources lie at addresses that are multiples of four with zeros between. So a zero byte follows each one whose size
// is no such multiple, and the tests see to it that the built-in ones are like that.
Resource findResource(Module module, const char* name, const char* type) {
  const auto binary = static_cast<HMODULE>(module);
  const HRSRC place = FindResourceA(binary, name, type);
  if (!place) return {};
  const HGLOBAL loaded = LoadResource(binary, place);
  if (!loaded) return {};
  return {static_cast<const char*>(LockResource(loaded)), static_cast<std::uint32_t>(SizeofResource(binary, place))};
}

}  // namespace kel::platform
