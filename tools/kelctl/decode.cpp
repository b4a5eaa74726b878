// SPDX-License-Identifier: MIT
#include <algorithm>
#include <charconv>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "adapter/TaskRecord.h"
#include "files.h"
#include "options.h"
#include "task_table.h"

namespace kelctl {
namespace {

struct DecodeOptions {
  std::string file;
  std::string table;
  std::string outFile;
};

/// What a dump file holds. Bytes that it should have and does not are missing from the payload, not made up.
struct Dump {
  std::optional<kel::task> head;  ///< of a record; a payload has none
  std::string form;               ///< REF, VAL, a type without a name, or empty for an empty file
  Bytes payload;
  std::size_t missing = 0;
};

/// Reads a dump's text lines and the bytes behind them. Windows wrote each line feed as two bytes, in the lines and in
/// the bytes; a first line that ends so tells that, and then all are taken back.
class DumpReader {
 public:
  explicit DumpReader(const Bytes& bytes) : mText(bytes.begin(), bytes.end()) {
    const std::size_t end = mText.find('\n');
    if (end == std::string::npos || end == 0 || mText[end - 1] != '\r') return;
    std::size_t size = 0;
    for (std::size_t at = 0; at < mText.size(); ++at) {
      if (mText[at] != '\r' || mText[at + 1] != '\n') mText[size++] = mText[at];
    }
    mText.resize(size);
  }

  std::string line() {
    const std::size_t end = mText.find('\n', mPosition);
    if (end == std::string::npos) fail();
    const std::string line = mText.substr(mPosition, end - mPosition);
    mPosition = end + 1;
    return line;
  }

  static std::int32_t number(const std::string& line) {
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
    if (error != std::errc() || end != line.data() + line.size()) fail();
    return number;
  }

  /// As many as are there, `size` at most.
  Bytes bytes(std::size_t size) {
    const Bytes bytes(mText.begin() + static_cast<std::ptrdiff_t>(mPosition),
                      mText.begin() + static_cast<std::ptrdiff_t>(std::min(mText.size(), mPosition + size)));
    mPosition += bytes.size();
    return bytes;
  }

  [[noreturn]] static void fail() {
    throw std::runtime_error(
        "this is no dump file. One begins with VAL, REF or a record's size; the\n"
        "...DumpFilename keys of Brel.ini say where the library writes them.");
  }

 private:
  std::string mText;
  std::size_t mPosition = 0;
};

Dump readDump(const Bytes& bytes) {
  Dump dump;
  if (bytes.empty()) return dump;
  DumpReader reader(bytes);
  const std::string first = reader.line();
  if (first == "VAL") {
    dump.form = first;
    Values values;
    for (std::uint32_t& value : values) value = static_cast<std::uint32_t>(DumpReader::number(reader.line()));
    dump.payload = fromValues(values);
    return dump;
  }
  std::size_t size = 0;
  if (first == "REF") {
    dump.form = first;
    size = static_cast<std::uint32_t>(DumpReader::number(reader.line()));
  } else {
    DumpReader::number(first);  // the size that follows from the record
    const Bytes head = reader.bytes(sizeof(kel::task));
    if (head.size() != sizeof(kel::task)) DumpReader::fail();
    std::memcpy(&dump.head.emplace(), head.data(), head.size());
    dump.form = typeWord(dump.head->TUI);
    size = dump.head->payloadSize;
  }
  dump.payload = reader.bytes(size);
  dump.missing = size - dump.payload.size();
  return dump;
}

Json dumpJson(const DecodeOptions& options, const Dump& dump, const std::string& name) {
  Json json{{"verb", "decode"}, {"file", options.file}, {"kind", dump.head ? "record" : "payload"}};
  if (dump.head) {
    json["task"] = tuiJson(name, dump.head->TUI);
    json["word2"] = dump.head->responseExpected;
    json["seqTui"] = dump.head->seqTUI;
  }
  json["form"] = dump.form;
  json["payload"] = payloadJson(dump.payload);
  json["missing"] = dump.missing;
  return json;
}

std::string dumpText(const Dump& dump, const std::string& name) {
  std::string text;
  if (dump.head) {
    const std::string word = std::to_string(dump.head->responseExpected);
    text = tuiText(name, dump.head->TUI) + "word 2    " + word +
           "  (in a request: 1 if a response is expected; in a response: its error)\nseqTUI    " +
           tuiText(dump.head->seqTUI) + "\npayload   ";
  }
  if (dump.form.empty()) return "an empty file: the payload dump of a record that is neither VAL nor REF\n";
  return text + payloadText(dump.form != "VAL", dump.payload);
}

int decode(const DecodeOptions& options, Output& output) {
  ByteFile file(options.outFile);
  const Bytes bytes = readFile(options.file);
  Dump dump;
  try {
    dump = readDump(bytes);
  } catch (const std::exception& error) {
    throw std::runtime_error(options.file + ": " + error.what());
  }
  const std::string name = dump.head ? nameOf(readTable(options.table), dump.head->TUI) : "";
  if (file) {
    file.write(dump.payload);
  } else if (output.json()) {
    output.object(dumpJson(options, dump, name));
  } else {
    output.text(dumpText(dump, name));
  }
  if (dump.missing == 0) return kDone;
  std::cerr << "kelctl: " << options.file << ": the last " << dump.missing << " bytes of the payload are missing\n";
  return kRefused;
}

}  // namespace

void addDecode(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<DecodeOptions>(app, plan, "decode", "Show a dump file that settings in Brel.ini had the library write",
                             "kelctl decode request.dump\n"
                             "kelctl decode response.dump --out payload.bin\n",
                             decode);
  addFile(verb, options.file, "The dump of a record or of a payload, of Linux or Windows");
  addTable(verb, options.table);
  addOut(verb, options.outFile, "The payload's bytes");
}

}  // namespace kelctl
