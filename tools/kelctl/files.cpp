#include "files.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

namespace kelctl {
namespace {

Bytes readAll(std::istream& in) { return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()}; }

}  // namespace

void failOnFile(const std::string& name) { throw std::runtime_error(name + ": " + std::strerror(errno)); }

Bytes readFile(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  if (!file) failOnFile(name);
  return readAll(file);
}

Bytes payloadOf(const PayloadOptions& options) {
  if (!options.values.empty()) return fromValues({options.values[0], options.values[1], options.values[2]});
  if (options.hex) return fromHex(*options.hex).value();
  if (options.text) return fromText(*options.text);
  if (options.inFile.empty()) return {};
  return options.inFile == kStandardStream ? readAll(std::cin) : readFile(options.inFile);
}

}  // namespace kelctl
