/* SPDX-License-Identifier: MIT */
// What the fuzz targets share. A target is one file with LLVMFuzzerTestOneInput(), which takes any bytes, does its work
// with them and ends the process if something does not hold that it promises. libFuzzer calls it with inputs that it
// makes up, replay.cpp with the files of the corpus.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "support/scratch_directory.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace kel::fuzz {

/// Ends the process if a promise does not hold.
inline void Promise(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "Broken promise: %s\n", promise);
  std::abort();
}

/// Takes an input apart from its front. Behind its end all bytes are 0 and all texts empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : mRest(reinterpret_cast<const char*>(data), size) {}

  bool empty() const { return mRest.empty(); }
  std::uint8_t byte() { return number<std::uint8_t>(); }

  /// Low byte first.
  template <class Number>
  Number number() {
    Number number = 0;
    for (std::size_t i = 0; i < sizeof number && i < mRest.size(); ++i) {
      number = static_cast<Number>(number | Number{static_cast<std::uint8_t>(mRest[i])} << 8 * i);
    }
    mRest.remove_prefix(std::min(sizeof number, mRest.size()));
    return number;
  }

  std::string bytes(std::size_t most) {
    const std::string bytes(mRest.substr(0, most));
    mRest.remove_prefix(bytes.size());
    return bytes;
  }
  std::string rest() { return bytes(mRest.size()); }

  /// Up to the next line feed, which is taken as well.
  std::string line() {
    const std::size_t end = mRest.find('\n');
    const std::string line(mRest.substr(0, end));
    mRest.remove_prefix(end == mRest.npos ? mRest.size() : end + 1);
    return line;
  }

 private:
  std::string_view mRest;
};

/// A copy that ends where its block ends, so that a look behind it is seen.
inline std::vector<char> ExactText(const std::string& text) { return {text.c_str(), text.c_str() + text.size() + 1}; }

/// The working directory of the process, with nothing in it but an empty registry, which hides the machine's.
inline const test::ScratchDirectory& Folder() {
  static const test::ScratchDirectory folder;
  static const bool prepared = (folder.write("Brel.registry", ""), true);
  static_cast<void>(prepared);
  return folder;
}

}  // namespace kel::fuzz
