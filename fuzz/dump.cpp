// SPDX-License-Identifier: MIT
// `kelctl decode` of a file. Whatever its bytes are:
//   - it is taken apart or refused, as a text and as JSON with one outcome, and the JSON is well formed;
//   - the payload that goes to a file is the one that is shown;
//   - a payload is part of the file or three values, and what it lacks is told.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "command_line.h"
#include "options.h"
#include "target.h"

namespace kel::fuzz {
namespace {

struct Outcome {
  int status = -1;
  std::string out;
  std::string errors;
};

/// The verb alone: to make all of them takes longer than what it does.
Outcome Decode(const std::string& more) {
  kelctl::Plan plan;
  CLI::App app;
  kelctl::addDecode(app, plan);
  std::ostringstream out, errors;
  std::streambuf* const formerOut = std::cout.rdbuf(out.rdbuf());
  std::streambuf* const formerErrors = std::cerr.rdbuf(errors.rdbuf());
  int status = kelctl::kRefused;
  try {
    app.parse("decode dump " + more);
    kelctl::Output output(plan.json);
    status = plan.action(output);
  } catch (const std::exception& error) {
    errors << error.what();
  }
  std::cout.rdbuf(formerOut);
  std::cerr.rdbuf(formerErrors);
  return {status, out.str(), errors.str()};
}

std::string Hex(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) text += {kDigits[static_cast<unsigned char>(c) >> 4], kDigits[c & 15]};
  return text;
}

}  // namespace
}  // namespace kel::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kel::fuzz;
  Folder().write("dump", std::string(reinterpret_cast<const char*>(data), size));
  const Outcome text = Decode(""), json = Decode("--json"), file = Decode("--out bytes");
  Promise(text.status == kelctl::kDone || text.status == kelctl::kRefused, "a file is a dump or is refused");
  Promise(json.status == text.status && file.status == text.status, "the outcome has nothing to do with the form");
  Promise((text.status == kelctl::kDone) == text.errors.empty(), "what is wrong is told");

  if (json.out.empty()) {
    Promise(text.out.empty() && text.status == kelctl::kRefused, "what is no dump is not shown");
    return 0;
  }
  const nlohmann::json object = nlohmann::json::parse(json.out);
  const std::size_t missing = object.at("missing"), shown = object.at("payload").at("size");
  Promise((missing != 0) == (text.status == kelctl::kRefused), "what is missing is told");
  Promise(shown <= std::max<std::size_t>(size, 12), "a payload is part of the file, or three values");
  std::ifstream stream("bytes", std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
  Promise(object.at("payload").at("hex") == Hex(bytes), "the file gets what is shown");
  return 0;
}
