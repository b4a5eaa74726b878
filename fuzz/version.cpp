// SPDX-License-Identifier: MIT
// File names and versions. Whatever a path looks like:
//   - ExtractFileName() finds in it what a second, plain writing of the rule finds, and cuts it only as told;
//   - a file with a name passes, one without does not, on the engine's side and on the exported one;
//   - without a connection, without version control and without a path the result is the one that is told for that.
#include <cstring>
#include <memory>

#include "KELHandler.h"
#include "engine/Brel.h"
#include "engine/Instances.h"
#include "support/core_process.h"
#include "target.h"
#include "version/FileName.h"

namespace kel::fuzz {
namespace {

struct Name {
  bool found;
  std::string name;
  std::string pathAfterwards;
};

Name PlainRule(const std::string& path) {
  std::size_t separator = path.rfind('/');
  if (separator == path.npos) separator = path.rfind('\\');
  if (separator == path.npos) return {true, path, path};
  if (separator + 1 == path.size()) return {false, "", path.substr(0, separator)};
  return {true, path.substr(separator + 1), path};
}

void ExtractOne(const std::string& path, const Name& expected) {
  std::vector<char> text = ExactText(path);
  char* name = nullptr;
  Promise(ExtractFileName(text.data(), &name, KeptBlocks()) == expected.found, "a name is found where the rule finds one");
  Promise((name != nullptr) == expected.found, "there is a name only if one was found");
  Promise(name == nullptr || name == expected.name, "the name is the one of the rule");
  Promise(text.data() == expected.pathAfterwards, "the path is cut at a separator that ends it, and nowhere else");
  std::free(name);
}

/// Two connections to the stand-in for the life of the process: one of the engine's own, with version control switched
/// on, and an exported one without.
struct Connections {
  Connections() {
    Folder();
    Promise(BrelInit(&controlled, nullptr, 1, nullptr, nullptr, nullptr) == kStatusOk, "an engine comes up");
    Promise(KEL_Connect(nullptr, nullptr, &exported) == KEL_OK, "a connection comes up");
  }

  test::CoreProcess process;
  std::uint32_t controlled = kNoBrelHandle;
  std::uint64_t exported = 0;
};

}  // namespace
}  // namespace kel::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kel::fuzz;
  static const Connections& connections = *new Connections;  // its threads run until the process ends
  Input input(data, size);
  const std::uint8_t choice = input.byte();
  const bool exported = (choice & 1) != 0, hasContent = (choice & 2) != 0, hasVectors = (choice & 4) != 0,
             isOpen = (choice & 8) == 0;
  const std::string path = input.line().c_str();
  const std::string vectors = input.line().c_str();
  const std::string content = input.rest();

  const Name expected = PlainRule(path);
  ExtractOne(path, expected);

  std::vector<char> text = ExactText(path);
  const std::vector<char> bytes(content.begin(), content.end());
  const void* buffer = hasContent ? bytes.data() : nullptr;
  const auto length = static_cast<std::uint32_t>(bytes.size());
  std::uint64_t userVersion = 0;
  const char* vectorsPath = hasVectors ? vectors.c_str() : nullptr;
  if (exported) {
    const std::uint64_t connection = connections.exported + (isOpen ? 0 : 1);
    const std::uint32_t result =
        KEL_ValidateVersion(connection, text.data(), buffer, length, &userVersion, vectorsPath);
    const std::uint32_t valid = hasVectors && expected.found ? KEL_VERSION_VALID : KEL_VERSION_INVALID;
    Promise(result == (isOpen ? valid : KEL_E_CONNECTION), "the exported check tells whether the file has a name");
  } else {
    const kel::Status status =
        kel::BrelValidateVersion(connections.controlled, text.data(), buffer, length, &userVersion, vectorsPath);
    Promise(status == (expected.found ? kel::kStatusOk : kel::kStatusNoFileName), "a file with a name passes");
  }
  return 0;
}
