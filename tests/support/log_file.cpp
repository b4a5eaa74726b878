// SPDX-License-Identifier: MIT
#include "support/log_file.h"

#include <algorithm>

#include "support/scratch_directory.h"

namespace kel::test {

std::filesystem::path LogPath(const std::string& name, const std::filesystem::path& folder) {
  constexpr std::size_t kDateSize = 8;  // MM-DD-YY
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string file = entry.path().filename().string();
    if (file.size() > kDateSize && file.substr(kDateSize) == "-" + name) return entry.path();
  }
  return {};
}

std::string LogText(const std::string& name, const std::filesystem::path& folder) {
  const std::filesystem::path path = LogPath(name, folder);
  return path.empty() ? std::string() : ReadText(path);
}

std::string LogEntry(const std::string& level, const std::string& module, const std::string& function,
                     const std::string& text) {
  return "\n[0 - 0] " + level + " - " + module + " - " + function + " - " + text;
}

std::string LogFile::fresh() {
  const std::string whole = LogText(mName);
  const std::size_t from = std::min(mRead, whole.size());
  mRead = whole.size();
  return whole.substr(from);
}

}  // namespace kel::test
