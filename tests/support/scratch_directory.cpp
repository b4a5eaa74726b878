// SPDX-License-Identifier: MIT
#include "support/scratch_directory.h"

#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

namespace kel::test {

std::string ReadText(const std::filesystem::path& file) {
  std::ifstream stream(file);
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

ScratchDirectory::ScratchDirectory() : mFormer(std::filesystem::current_path()) {
  std::random_device random;
  do {
    mPath = std::filesystem::temp_directory_path() / ("kel-test-" + std::to_string(random()));
  } while (!std::filesystem::create_directory(mPath));
  std::filesystem::current_path(mPath);
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::current_path(mFormer, ignored);
  std::filesystem::remove_all(mPath, ignored);
}

void ScratchDirectory::write(const std::string& name, const std::string& content) const {
  std::ofstream file(mPath / name, std::ios::binary | std::ios::trunc);
  file << content;
  if (!file.flush()) throw std::runtime_error("cannot write " + name);
}

}  // namespace kel::test
