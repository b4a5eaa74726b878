// SPDX-License-Identifier: MIT
// Hands a target the files that the command line names, or those of the folders that it names: the main() of the
// targets where libFuzzer has none.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "target.h"

namespace {

std::vector<std::filesystem::path> Files(const std::filesystem::path& name) {
  if (!std::filesystem::is_directory(name)) return {name};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(name)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

void Replay(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
  std::fprintf(stderr, "%s, %zu bytes\n", file.filename().string().c_str(), bytes.size());
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  // All names first: a target may change the working directory.
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    for (const auto& file : Files(argv[i])) files.push_back(std::filesystem::absolute(file));
  }
  for (const auto& file : files) Replay(file);
  return files.empty() ? 2 : 0;
}
