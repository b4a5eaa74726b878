// SPDX-License-Identifier: MIT
#include "files.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "platform/standard_streams.h"
#include "platform/text.h"

namespace kelctl {
namespace {

[[noreturn]] void failOnFile(const std::string& name) { throw Fault(kWrongUsage, name + ": " + std::strerror(errno)); }

/// As the first one, for a write: whoever reads standard output may have gone.
[[noreturn]] void failOnWrite(const std::string& name) {
  if (name == kStandardStream && errno == EPIPE) throw ReaderGone();
  failOnFile(name);
}

Bytes readAll(std::istream& in, const std::string& name, std::size_t most) {
  Bytes bytes;
  std::array<char, 65536> piece;
  while (in.read(piece.data(), piece.size()), in.gcount() != 0) {
    bytes.insert(bytes.end(), piece.begin(), piece.begin() + in.gcount());
    if (bytes.size() > most) {
      throw std::runtime_error(name + ": this is larger than " + std::to_string(most >> 20) + " MiB");
    }
  }
  if (in.bad()) failOnFile(name);  // a folder, say, which can be opened
  return bytes;
}

}  // namespace

std::string libraryFile(const std::string& name) {
  const std::optional<std::string> file = libraryName(name);
  if (!file) throw Fault(kWrongUsage, name + ": the library cannot open a file of this name.");
  return *file;
}

Bytes readFile(const std::string& name, std::size_t most) {
  if (name == kStandardStream) {
    passBytes(stdin);
    return readAll(std::cin, name, most);
  }
  std::ifstream file(pathOf(name), std::ios::binary);
  if (!file) failOnFile(name);
  return readAll(file, name, most);
}

Bytes payloadOf(const PayloadOptions& options) {
  if (!options.values.empty()) return fromValues({options.values[0], options.values[1], options.values[2]});
  if (options.hex) return fromHex(*options.hex).value();
  if (options.text) return fromText(*options.text);
  return options.inFile.empty() ? Bytes() : readFile(options.inFile);
}

ByteFile::ByteFile(const std::string& name) : mName(name) {
  if (mName == kStandardStream) {
    passBytes(stdout);
  } else if (!mName.empty()) {
    mFile.open(pathOf(mName), std::ios::binary);
    if (!mFile) failOnFile(mName);
  }
}

void ByteFile::write(const Bytes& bytes) {
  errno = 0;
  std::ostream& out = mFile.is_open() ? mFile : std::cout;
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())).flush();
  if (!out) failOnWrite(mName);
}

}  // namespace kelctl
