/* SPDX-License-Identifier: MIT */
// The reader of one ini file.
#pragma once

#include <cstdint>

namespace kel {

/// Reads keys of one file, which it opens again for each key. A missing file, section or key gives the
/// default. Threads: one.
class IniFileReader {
 public:
  IniFileReader() = default;
  ~IniFileReader();
  IniFileReader(const IniFileReader&) = delete;
  IniFileReader& operator=(const IniFileReader&) = delete;

  /// A name that stands until the real one is known. An earlier one is not released.
  void SetDefaultIniFileName();
  void SetIniFileName(const char* name);

  /// A decimal number, or a hexadecimal one behind "0x"; behind "0X", or where there is no number, 0.
  std::uint32_t ReadIntValue(const char* section, const char* key, std::uint32_t defaultValue) const;

  /// The text in a block of kIniValueSize bytes, cut to fit, which is the caller's to free.
  char* ReadStringValue(const char* section, const char* key, const char* defaultText) const;

 private:
  char* mIniFileName = nullptr;  ///< owned
};

inline constexpr std::uint32_t kIniValueSize = 1024;

}  // namespace kel
