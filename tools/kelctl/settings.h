/* SPDX-License-Identifier: MIT */
// The library's settings, read as the library reads them.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace kelctl {

/// RxWaitTimeout: how long the library waits for an answer.
std::chrono::milliseconds waitLimit();

/// The task table that a connect with this table, or with none, reads; empty where the client layer finds it by itself.
std::string tableOf(const std::string& table);

// ---- All of them, to be shown ----

struct Setting {
  std::string name;
  std::string value;
  std::string source;  ///< "Brel.ini", "default", "registry", "environment", ...
  std::string fault;   ///< what to do about a value that is not what it should be; as a rule empty
};

/// What stands in a settings file and has no effect, or not the one that it seems to have.
struct IniFault {
  std::size_t line = 0;
  std::string text;
};

struct Settings {
  std::string file;  ///< empty: none is read
  std::vector<Setting> values;
  std::vector<IniFault> faults;
};

Settings readSettings();

/// The table that a connect without one reads; empty only where the settings say so.
std::string tableOfSettings();

struct LogSettings {
  std::vector<Setting> values;
  std::string folder;
  bool isOn = false;  ///< any level
};

LogSettings readLogSettings();

/// The faults of such a file's text, by line.
std::vector<IniFault> checkIni(const std::string& text);

}  // namespace kelctl
