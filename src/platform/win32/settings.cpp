// SPDX-License-Identifier: MIT
// Settings: ini files, the registry and the environment.
#include <charconv>
#include <cstring>
#include <vector>

#include "platform/platform.h"
#include "platform/win32/windows_api.h"

namespace kel::platform {
namespace {

/// A registry key opened for reading; its handle is null if there is no such key.
class OpenKey {
 public:
  OpenKey(RegistryRoot root, const char* subKey) {
    // The numbers of the roots are handles, sign-extended as the system's own header has them.
    const auto handle = static_cast<LONG_PTR>(static_cast<LONG>(root));
    check(RegOpenKeyExA(reinterpret_cast<HKEY>(handle), subKey, 0, KEY_READ, &mKey));
  }
  ~OpenKey() { RegCloseKey(mKey); }
  OpenKey(const OpenKey&) = delete;
  OpenKey& operator=(const OpenKey&) = delete;

  bool read(const char* valueName, DWORD type, void* data, DWORD* size) const {
    return mKey && check(RegQueryValueExA(mKey, valueName, nullptr, &type, static_cast<BYTE*>(data), size));
  }

  bool longestValue(DWORD* size) const {
    return mKey && check(RegQueryInfoKeyA(mKey, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                          size, nullptr, nullptr));
  }

 private:
  // The registry calls return their error and do not set it.
  static bool check(LSTATUS status) {
    if (status != ERROR_SUCCESS) SetLastError(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS;
  }

  HKEY mKey = nullptr;
};

}  // namespace

std::uint32_t iniValue(const char* section, const char* key, const char* defaultText, char* value, std::uint32_t size,
                       const char* fileName) {
  return GetPrivateProfileStringA(section, key, defaultText, value, size, fileName);
}

bool registryNumber(RegistryRoot root, const char* subKey, const char* valueName, std::uint32_t* number) {
  return registryNumbers(root, subKey, 1, &valueName, number) == 1;
}

std::uint32_t registryNumbers(RegistryRoot root, const char* subKey, std::uint32_t count, const char* const* valueNames,
                              std::uint32_t* numbers) {
  const OpenKey key(root, subKey);
  std::uint32_t read = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    DWORD data = 0;
    DWORD size = sizeof data;
    if (!key.read(valueNames[i], REG_DWORD, &data, &size)) continue;
    numbers[i] = data;
    ++read;
  }
  return read;
}

bool registryText(RegistryRoot root, const char* subKey, const char* valueName, std::string* text) {
  const OpenKey key(root, subKey);
  DWORD size = 0;
  if (!key.longestValue(&size)) return false;
  std::vector<char> data(size);
  if (!key.read(valueName, REG_SZ, data.data(), &size)) return false;
  text->assign(data.data(), strnlen(data.data(), size));  // a stored text may lack its end mark
  return true;
}

bool environmentNumber(const char* name, std::uint32_t* number) {
  char text[64];
  SetLastError(ERROR_SUCCESS);
  const DWORD length = GetEnvironmentVariableA(name, text, sizeof text);
  if (length == 0 && GetLastError() != ERROR_SUCCESS) return false;
  if (length < sizeof text) {  // else it did not fit
    std::uint32_t read = 0;
    const auto [stop, error] = std::from_chars(text, text + length, read);
    if (error == std::errc() && stop == text + length) {
      *number = read;
      return true;
    }
  }
  SetLastError(ERROR_INVALID_DATA);
  return false;
}

}  // namespace kel::platform
