// SPDX-License-Identifier: MIT
#include "platform/programs.h"

#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace kelctl {

void becomeProgramBeside(const std::string& name, const std::vector<std::string>& words) {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return;
  const std::string file = (self.parent_path() / name).string();
  std::vector<char*> arguments{const_cast<char*>(file.c_str())};
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execv(file.c_str(), arguments.data());
}

}  // namespace kelctl
