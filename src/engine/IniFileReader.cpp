// SPDX-License-Identifier: MIT
#include "engine/IniFileReader.h"

#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "platform/memory.h"
#include "platform/platform.h"

namespace kel {

IniFileReader::~IniFileReader() { std::free(mIniFileName); }

void IniFileReader::SetDefaultIniFileName() {
  mIniFileName = CopyText((std::string(".") + platform::kPathSeparator + "demo.ini").c_str());
}

void IniFileReader::SetIniFileName(const char* name) {
  std::free(std::exchange(mIniFileName, CopyText(name)));
}

std::uint32_t IniFileReader::ReadIntValue(const char* section, const char* key, std::uint32_t defaultValue) const {
  char strDefValue[kIniValueSize];
  std::snprintf(strDefValue, sizeof strDefValue, "%d", static_cast<int>(defaultValue));
  char tmp[kIniValueSize];
  platform::iniValue(section, key, strDefValue, tmp, sizeof tmp, mIniFileName);
  if (tmp[0] == '0' && (tmp[1] == 'x' || tmp[1] == 'X')) {
    // The scan knows only the small x. A value behind "0X" stays 0, and existing files get that from it.
    unsigned retVal = 0;
    if (std::sscanf(tmp, "0x%x", &retVal) != 1) return 0;
    return retVal;
  }
  return static_cast<std::uint32_t>(std::strtoll(tmp, nullptr, 10));
}

char* IniFileReader::ReadStringValue(const char* section, const char* key, const char* defaultText) const {
  std::unique_ptr<char, void (*)(void*)> value(static_cast<char*>(AllocateBlock(kIniValueSize)), &std::free);
  platform::iniValue(section, key, defaultText, value.get(), kIniValueSize, mIniFileName);
  return value.release();
}

}  // namespace kel
