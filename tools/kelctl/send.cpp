#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "commands.h"
#include "session.h"

namespace kelctl {
namespace {

constexpr char kStandardStream[] = "-";

[[noreturn]] void failOnFile(const std::string& name) { throw std::runtime_error(name + ": " + std::strerror(errno)); }

Bytes readAll(const std::string& name) {
  std::ifstream file;
  if (name != kStandardStream) {
    file.open(name, std::ios::binary);
    if (!file) failOnFile(name);
  }
  std::istream& in = file.is_open() ? file : std::cin;
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Bytes payloadOf(const SendOptions& options) {
  if (!options.values.empty()) return fromValues({options.values[0], options.values[1], options.values[2]});
  if (options.hex) return fromHex(*options.hex).value();
  if (options.text) return fromText(*options.text);
  if (!options.inFile.empty()) return readAll(options.inFile);
  return {};
}

}  // namespace

int send(const SendOptions& options) {
  const Bytes payload = payloadOf(options);
  // The file is opened ahead of the task, so that a name that leads nowhere costs no answer.
  std::ofstream file;
  if (!options.outFile.empty() && options.outFile != kStandardStream) {
    file.open(options.outFile, std::ios::binary);
    if (!file) failOnFile(options.outFile);
  }

  const Session session(options.table);
  const std::optional<Bytes> answer = session.send(options.task, payload, !options.noResponse);
  if (!answer) {
    std::cerr << "sent, no answer asked for\n";
    return 0;
  }
  if (!options.outFile.empty()) {
    std::ostream& out = file.is_open() ? file : std::cout;
    out.write(reinterpret_cast<const char*>(answer->data()), static_cast<std::streamsize>(answer->size())).flush();
    if (!out) failOnFile(options.outFile);
    return 0;
  }
  if (answer->empty()) std::cerr << "answered with an empty payload\n";
  // An answer does not tell its form. Twelve bytes are values, unless the question was put in raw bytes.
  const bool askedInValues = payload.empty() || !options.values.empty();
  const std::optional<Values> values = toValues(*answer);
  std::cout << (values && askedInValues ? valuesText(*values) + '\n' : hexDump(*answer));
  return 0;
}

}  // namespace kelctl
