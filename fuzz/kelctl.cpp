// SPDX-License-Identifier: MIT
// The command line of kelctl, a word a line. Whatever the words are:
//   - they are parsed to an end, and either there is something to do or it is told what is wrong with them;
//   - verbs that only tell something, and ask neither the device nor for a file that could be any, end with a status
//     that scripts know.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <sstream>

#include "command_line.h"
#include "options.h"
#include "target.h"

namespace kel::fuzz {
namespace {

/// Keeps what is printed away from the terminal.
class Printed {
 public:
  Printed() : mOut(std::cout.rdbuf(mText.rdbuf())), mErr(std::cerr.rdbuf(mText.rdbuf())) {}
  ~Printed() {
    std::cout.rdbuf(mOut);
    std::cerr.rdbuf(mErr);
  }
  Printed(const Printed&) = delete;
  Printed& operator=(const Printed&) = delete;

  std::string text() const { return mText.str(); }

 private:
  std::ostringstream mText;
  std::streambuf* mOut;
  std::streambuf* mErr;
};

void Parse(std::vector<std::string> words) {
  kelctl::Plan plan;
  CLI::App app{"", "kelctl"};
  kelctl::addVerbs(app, plan);
  std::reverse(words.begin(), words.end());
  try {
    app.parse(std::move(words));
    Promise(static_cast<bool>(plan.action), "words that are right ask for something to be done");
  } catch (const CLI::ParseError& error) {
    std::ostringstream out, err;
    const int status = app.exit(error, out, err);
    Promise((status == 0) == err.str().empty(), "what is wrong is told, and nothing else is");
    Promise(status == 0 || err.str().starts_with("kelctl: "), "what is wrong is told by name");
  }
}

bool IsHarmless(const std::vector<std::string>& words) {
  constexpr std::string_view kVerbs[] = {"tasks", "completion", "version"};
  const auto harmless = [](const std::string& word) {
    return word.find_first_of("/\\") == word.npos && !word.starts_with("--out");
  };
  return !words.empty() && std::find(std::begin(kVerbs), std::end(kVerbs), words.front()) != std::end(kVerbs) &&
         std::all_of(words.begin(), words.end(), harmless);
}

void Run(const std::vector<std::string>& words) {
  const Printed printed;
  const int status = kelctl::run(words);
  Promise(status >= kelctl::kDone && status <= kelctl::kWrongUsage, "the status is one that scripts know");
  Promise(!printed.text().empty(), "something is told");
}

}  // namespace
}  // namespace kel::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kel::fuzz;
  static const bool prepared =
      (Folder().write("table.csv", "MY_ECHO, 0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240\n"),
       Folder().write("a file", "content"), true);
  static_cast<void>(prepared);
  std::vector<std::string> words;
  // As the system hands words over, none holds a zero.
  for (Input input(data, size); !input.empty();) words.emplace_back(input.line().c_str());
  Parse(words);
  if (IsHarmless(words)) Run(words);
  return 0;
}
