// SPDX-License-Identifier: MIT
// The real registry, with a key of the test's own in the place of HKEY_LOCAL_MACHINE for this process.
#include <windows.h>

#include "support/registry_settings.h"

#include <stdexcept>

namespace kel::test {
namespace {

void Check(LSTATUS status, const char* call) {
  if (status != ERROR_SUCCESS) throw std::runtime_error(std::string(call) + " gave " + std::to_string(status));
}

void SetValue(void* root, const std::string& key, const std::string& valueName, DWORD type, const void* data,
              std::size_t size) {
  HKEY open = nullptr;
  Check(RegCreateKeyExA(static_cast<HKEY>(root), key.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                        &open, nullptr),
        "RegCreateKeyExA");
  const LSTATUS status =
      RegSetValueExA(open, valueName.c_str(), 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size));
  RegCloseKey(open);
  Check(status, "RegSetValueExA");
}

}  // namespace

RegistrySettings::RegistrySettings() : mKeyName("Software\\KELHandlerTests\\" + std::to_string(GetCurrentProcessId())) {
  HKEY key = nullptr;
  RegDeleteTreeA(HKEY_CURRENT_USER, mKeyName.c_str());  // of an earlier process with this number
  Check(RegCreateKeyExA(HKEY_CURRENT_USER, mKeyName.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                        &key, nullptr),
        "RegCreateKeyExA");
  mKey = key;
  Check(RegOverridePredefKey(HKEY_LOCAL_MACHINE, key), "RegOverridePredefKey");
}

RegistrySettings::~RegistrySettings() {
  RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  RegCloseKey(static_cast<HKEY>(mKey));
  RegDeleteTreeA(HKEY_CURRENT_USER, mKeyName.c_str());
}

void RegistrySettings::set(const std::string& key, const std::string& valueName, std::uint32_t number) {
  SetValue(mKey, key, valueName, REG_DWORD, &number, sizeof number);
}

void RegistrySettings::set(const std::string& key, const std::string& valueName, const std::string& text) {
  SetValue(mKey, key, valueName, REG_SZ, text.c_str(), text.size() + 1);
}

}  // namespace kel::test
