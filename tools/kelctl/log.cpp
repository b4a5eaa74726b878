// SPDX-License-Identifier: MIT
// The library's log files as one log. Its lines bear no time: the files of a day are shown one behind the other, and
// followed side by side, in the order in which lines come.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "diagnosis.h"
#include "interrupt.h"
#include "platform/text.h"
#include "settings.h"
#include "suggestion.h"

namespace kelctl {
namespace {

namespace fs = std::filesystem;

/// What the names of the files end in, in the order in which they are shown.
constexpr std::array kFiles{"-Brel.logs",
                            "-Brel_Tasks_Sequencer.logs",
                            "-Brel_Async_Listener.logs",
                            "-Brel_Broadcast_Listener.logs",
                            "-Brel_Alerts_Listener.logs",
                            "-DorvL5.logs"};

struct LogOptions {
  std::string folder;
  std::optional<std::string> level, module, function, text;
  std::optional<std::uint32_t> sequence;
  bool follow = false;
};

/// "[0 - 0] LEVEL - MODULE - FUNCTION - text"
struct Line {
  std::string level, module, function, text;
};

std::optional<Line> parsed(const std::string& text) {
  constexpr char kBetween[] = " - ";
  const std::size_t head = text.find("] ");
  if (text.empty() || text.front() != '[' || head == std::string::npos) return std::nullopt;
  std::array<std::string, 3> fields;
  std::size_t at = head + 2;
  for (std::string& field : fields) {
    const std::size_t end = text.find(kBetween, at);
    if (end == std::string::npos) return std::nullopt;
    field = text.substr(at, end - at);
    at = end + 3;
  }
  return Line{fields[0], fields[1], fields[2], text.substr(at)};
}

bool has(const std::string& text, const std::optional<std::string>& part) {
  return !part || lower(text).find(lower(*part)) != std::string::npos;
}

/// Whether a line speaks of a sequence number: "sequence number 5", "seqNum = 5".
bool hasNumber(const std::string& text, std::uint32_t number) {
  const std::string digits = std::to_string(number);
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  for (std::size_t at = lower(text).find("seq"); (at = text.find(digits, at)) != std::string::npos; ++at) {
    const std::size_t end = at + digits.size();
    if (!isDigit(text[at - 1]) && (end == text.size() || !isDigit(text[end]))) return true;
  }
  return false;
}

bool isWanted(const Line& line, const LogOptions& options) {
  return has(line.level, options.level) && has(line.module, options.module) && has(line.function, options.function) &&
         has(line.text, options.text) && (!options.sequence || hasNumber(line.text, *options.sequence));
}

/// The part of a log that has been read.
class Reader {
 public:
  Reader(fs::path folder, const LogOptions& options, Output& output)
      : mFolder(std::move(folder)), mOptions(options), mOutput(output) {}

  /// Prints what is new in each file.
  void readOn() {
    for (const fs::path& file : files()) read(file);
  }

  bool hasFiles() { return !files().empty(); }

 private:
  std::vector<fs::path> files() const {
    std::vector<std::pair<std::string, std::size_t>> names;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(mFolder, error)) {
      const std::string name = entry.path().filename().string();
      for (std::size_t i = 0; i < kFiles.size(); ++i) {
        if (!name.ends_with(kFiles[i])) continue;
        // "MM-DD-YY-" is sorted by the year first.
        const std::string day = name.substr(0, name.size() - std::string(kFiles[i]).size());
        names.emplace_back((day.size() == 8 ? day.substr(6) + day.substr(0, 5) : day) + '\n' + name, i);
      }
    }
    std::sort(names.begin(), names.end(), [](const auto& one, const auto& other) {
      const auto day = [](const std::string& key) { return key.substr(0, key.find('\n')); };
      return std::pair(day(one.first), one.second) < std::pair(day(other.first), other.second);
    });
    std::vector<fs::path> files;
    for (const auto& [key, unused] : names) files.push_back(mFolder / key.substr(key.find('\n') + 1));
    return files;
  }

  void read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::streamoff& position = mPositions[path];
    file.seekg(position);
    // A line without an end is not whole yet.
    for (std::string line; std::getline(file, line) && !file.eof();) {
      position += static_cast<std::streamoff>(line.size()) + 1;
      while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
      const std::optional<Line> fields = parsed(line);
      if (fields && isWanted(*fields, mOptions)) print(*fields, path.filename().string());
    }
  }

  void print(const Line& line, const std::string& file) {
    if (mOutput.json()) {
      return mOutput.object({{"verb", "log"},
                             {"file", file},
                             {"level", line.level},
                             {"module", line.module},
                             {"function", line.function},
                             {"text", line.text}});
    }
    const std::string text = line.level + "  " + line.module + "  " + line.function + "  " + line.text;
    const bool isBad = line.level != "info";
    mOutput.text((isBad ? mOutput.bad(text) : text) + '\n');
  }

  const fs::path mFolder;
  const LogOptions& mOptions;
  Output& mOutput;
  std::map<fs::path, std::streamoff> mPositions;
};

int log(const LogOptions& options, Output& output) {
  const std::string folder = options.folder.empty() ? readLogSettings().folder : options.folder;
  Reader reader(pathOf(folder), options, output);
  if (!options.follow && !reader.hasFiles()) {
    throw Fault(
        kRefused,
        folder + ": there are no log files.\nThe registry switches logs on; `kelctl doctor` tells whether it does.");
  }
  if (options.follow) catchInterrupt();
  reader.readOn();
  while (options.follow && !interrupted()) {
    std::this_thread::sleep_for(kLook);
    reader.readOn();
  }
  return kDone;
}

}  // namespace

void addLog(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<LogOptions>(app, plan, "log",
                          "Print the library's log files as one log\n"
                          "Their lines bear no time. So the files of a day come one behind the other, and\n"
                          "with --follow the lines of all of them as they are written.",
                          "kelctl log --level err\n"
                          "kelctl log --follow --sequence 5\n"
                          "kelctl log --module BrelEngine --function connect --json\n",
                          log);
  addFolder(verb, "--folder", options.folder, "Folder of the files (the registry's LogPath, or the working directory)");
  addText(verb, "--level", "LEVEL", options.level, "Only info, warn or error")
      ->check(CLI::IsMember({"info", "warn", "err", "error"}, CLI::ignore_case).description(""));
  addText(verb, "--module", "NAME", options.module, "Only modules with NAME in their name, in any case");
  addText(verb, "--function", "NAME", options.function, "Only functions with NAME in their name");
  addText(verb, "--text", "TEXT", options.text, "Only lines with TEXT in what they say");
  addNumber(verb, "--sequence", "N", options.sequence, "Only lines that speak of sequence number N");
  addFlag(verb, "-f,--follow", options.follow, "Go on with what is written until Ctrl-C");
}

}  // namespace kelctl
