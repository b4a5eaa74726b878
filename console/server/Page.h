/* SPDX-License-Identifier: MIT */
// The page's files, which are part of the program.
#pragma once

#include <string_view>
#include <vector>

namespace kel::console {

struct PageFile {
  const char* path;
  const char* type;
  std::string_view content;
};

std::vector<PageFile> pageFiles();

}  // namespace kel::console
