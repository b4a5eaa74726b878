// SPDX-License-Identifier: MIT
// The task table. Whatever the bytes are:
//   - as a text, they are walked row by row to an end, never behind it, and a row that fails moves nothing;
//   - as a file, they are read as the rows say that stand in its lines, and every row that was taken is found again by
//     its name and by its number, and nothing else is;
//   - handed out raw, they are the file's, up to the byte that ends them.
#include <cstring>
#include <map>

#include "catalogue/BrelTUIsList.h"
#include "target.h"

namespace kel::fuzz {
namespace {

constexpr const char* kFile = "table.csv";
constexpr std::size_t kLongestLine = 254;

struct Row {
  std::int32_t result = 0;
  std::string name;
  std::uint32_t tui = 0;
};

Row ReadRow(BrelTUIsList& list, const char** position) {
  Row row;
  std::uint8_t index = 0, zone = 0, target = 9, priority = 0, type = 9;
  std::uint32_t hexTUI = 9, lineLength = 0;
  row.result =
      list.ReadOneTUI(position, &row.name, &index, &zone, &target, &priority, &type, &row.tui, &hexTUI, &lineLength);
  if (row.result != 1) return row;
  Promise(type <= 1 && target == 0 && hexTUI == 0, "a row is VAL or REF, and two of its columns are not read");
  Promise(**position == '\0' || (*position)[-1] == '\n', "a row ends at its line's end");
  Promise(row.name.find_first_of(", \t\r\n") == row.name.npos, "a name has no comma and no blank");
  return row;
}

void WalkText(BrelTUIsList& list, const std::string& content) {
  const std::vector<char> text = ExactText(content.c_str());
  const char* position = text.data();
  for (;;) {
    const char* before = position;
    const std::int32_t result = ReadRow(list, &position).result;
    Promise(position <= text.data() + text.size() - 1, "no look is taken behind the end");
    Promise(result == 1 ? position > before : position == before, "only a row that was read is passed");
    if (result != 1) return;
  }
}

/// The lines of a file as a text-mode stream of Windows has them, with long ones in pieces.
std::vector<std::string> Lines(const std::string& content) {
  std::string text = content.substr(0, content.find('\x1A'));
  for (std::size_t at = 0; (at = text.find("\r\n", at)) != text.npos;) text.erase(at, 1);
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size(); at += lines.back().size()) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1);
    lines.push_back(text.substr(at, std::min(end + 1 - at, kLongestLine)));
  }
  return lines;
}

/// Whether all of a file can be read, one line a row. An empty row ends it.
bool ReadLines(BrelTUIsList& list, const std::string& content, std::map<std::string, std::uint32_t>& byName,
               std::map<std::uint32_t, std::string>& byTui) {
  const std::vector<std::string> lines = Lines(content);
  for (const std::string& line : lines) {
    const char* position = line.c_str();
    const Row row = ReadRow(list, &position);
    if (row.result == -1) return true;
    if (row.result == 0) return false;
    byName[row.name] = row.tui;
    byTui[row.tui] = row.name;
  }
  return !lines.empty();
}

void CheckLookups(BrelTUIsList& list, const std::map<std::string, std::uint32_t>& byName,
                  const std::map<std::uint32_t, std::string>& byTui) {
  for (const auto& [name, tui] : byName) {
    std::uint32_t found = ~tui;
    Promise(list.FindTuiByName("fuzz", name, &found) && found == tui, "a row is found by its name");
    std::uint32_t none = 1;
    if (!byName.contains(name + "!")) {
      Promise(!list.FindTuiByName("fuzz", name + "!", &none) && none == 0, "what is no name is not found");
    }
  }
  for (const auto& [tui, name] : byTui) {
    char* found = nullptr;
    Promise(list.FindNameByTui("fuzz", tui, &found) && found == name, "a row is found by its number");
    std::free(found);
  }
}

void CheckRaw(BrelTUIsList& list, const std::string& content) {
  const char* name = nullptr;
  const char* bytes = nullptr;
  std::uint32_t length = 0;
  Promise(list.RetrieveRawTUIsList(&name, &bytes, &length), "a table is always at hand");
  Promise(name != nullptr && std::strcmp(name, kFile) == 0, "the table's file has the name that it was given");
  if (content.empty()) {
    Promise(length == 4101, "an empty file stands back behind the built-in table");
    return;
  }
  std::string expected = content.substr(0, content.find('\xFF'));
  expected.resize(content.size(), '\0');
  Promise(std::string_view(bytes, length) == expected, "the raw table is the file's bytes");
  std::free(const_cast<char*>(bytes));
}

}  // namespace
}  // namespace kel::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kel::fuzz;
  const std::string content(reinterpret_cast<const char*>(data), size);
  Folder().write(kFile, content);
  kel::BrelTUIsList list;
  list.SetTUIsFile(nullptr, kFile);
  WalkText(list, content);

  std::map<std::string, std::uint32_t> byName;
  std::map<std::uint32_t, std::string> byTui;
  const bool readable = ReadLines(list, content, byName, byTui);
  Promise(list.ReadTUIs() == readable, "a table is read through if each of its rows is");
  CheckLookups(list, byName, byTui);
  CheckRaw(list, content);
  return 0;
}
