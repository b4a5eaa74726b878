// SPDX-License-Identifier: MIT
#include "table_check.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>

#include "catalogue/BrelTUIsList.h"
#include "task_table.h"

namespace kelctl {
namespace {

/// The library reads a line in pieces of at most this many bytes.
constexpr std::size_t kPiece = 254;
constexpr std::size_t kColumns = 8;
constexpr char kBlanks[] = " \t\r\n";
constexpr std::uint32_t kMostIndex = 31, kMostZone = 127, kMostPriority = 7;

const std::map<std::string, std::uint8_t> kTargets{
    {"KEL_USER_MODE_DRIVER", 2}, {"KEL_FIRMWARE", 4}, {"KEL_TRACE", 6}, {"KEL_UPPER_DSPS", 8}};

std::string trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::vector<std::string> columnsOf(const std::string& line) {
  std::vector<std::string> columns;
  for (std::size_t begin = 0; begin <= line.size();) {
    const std::size_t comma = std::min(line.find(',', begin), line.size());
    columns.push_back(trimmed(line.substr(begin, comma - begin)));
    begin = comma + 1;
  }
  return columns;
}

/// The whole text as a number that is at most `most`.
std::optional<std::uint32_t> numberOf(const std::string& text, int base, std::uint32_t most = UINT32_MAX) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size() || number > most) return std::nullopt;
  return number;
}

class TableCheck {
 public:
  TableFindings check(const std::string& text) {
    if (text.empty()) fault("the file is empty, and a connect with it fails");
    for (std::size_t begin = 0; begin < text.size() && !mEnded; ++mLine) {
      const std::size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
      checkLine(text.substr(begin, end - begin), end < text.size());
      begin = end;
    }
    if (mFindings.rows == 0 && mFindings.faults.empty()) fault("there is no task in the table");
    return std::move(mFindings);
  }

 private:
  void fault(const std::string& text) { mFindings.faults.push_back({mLine, text}); }

  void checkLine(const std::string& line, bool moreFollows) {
    if (trimmed(line).empty()) {
      mEnded = true;
      if (moreFollows) fault("a blank line ends the table: the lines behind it are not read");
      return;
    }
    if (line.find('\0') != std::string::npos) fault("a zero byte ends the line");
    if (line.find('\xFF') != std::string::npos) fault("a byte 0xFF ends the table for those who fetch its text");
    if (line.size() > kPiece) {
      fault("the line has " + std::to_string(line.size()) + " bytes: it is read in pieces of " +
            std::to_string(kPiece) + ", each taken for a line");
    }
    std::int32_t result = 1;
    for (std::size_t begin = 0; begin < line.size() && result == 1; begin += kPiece) {
      result = readRow(line.substr(begin, kPiece), line.size() <= kPiece);
    }
    mEnded = result != 1;
    if (result == 0) fault("the library cannot read this: a connect with this table fails");
    if (result == -1) fault("a piece without a name ends the table: what follows is not read");
  }

  /// Has the library read a piece, and judges the columns if that is a whole line. Returns what the library returns: 1
  /// for a row, 0 for one that it cannot read, -1 for the end of the table.
  std::int32_t readRow(const std::string& piece, bool isLine) {
    const std::vector<std::string> columns = columnsOf(piece);
    if (isLine && columns.size() != kColumns) {
      fault("a row has " + std::to_string(kColumns) + " columns, not " + std::to_string(columns.size()) +
            ": NAME, INDEX, ZONE, TARGET, PRIORITY, TYPE, decimal TUI, hex TUI");
    }
    const char* position = piece.c_str();
    Task task;
    std::uint8_t unused[5];
    std::uint32_t hexColumn = 0, rowLength = 0;
    const std::int32_t result = mReader.ReadOneTUI(&position, &task.name, &unused[0], &unused[1], &unused[2],
                                                   &unused[3], &unused[4], &task.tui, &hexColumn, &rowLength);
    if (result == 1) {
      ++mFindings.rows;
      checkNames(task);
    }
    if (isLine && columns.size() == kColumns) checkColumns(columns, result == 1 ? &task : nullptr);
    return result;
  }

  void checkNames(const Task& task) {
    if (const auto [at, isNew] = mLineOfName.try_emplace(task.name, mLine); !isNew) {
      fault("the name " + task.name + " stands in line " + std::to_string(at->second) +
            " as well: the last one counts");
    }
    if (const auto [at, isNew] = mLineOfTui.try_emplace(task.tui, mLine); !isNew) {
      fault("the TUI " + tuiText(task.tui) + " stands in line " + std::to_string(at->second) +
            " as well: broadcasts get the last one's name");
    }
  }

  void checkColumns(const std::vector<std::string>& columns, const Task* task) {
    const std::string& name = columns[0];
    if (name.empty() || !std::all_of(name.begin(), name.end(), [](char c) {
          return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
        })) {
      fault("a name has letters, digits and underscores, not \"" + name + "\"" +
            (task != nullptr ? ": it is read as \"" + task->name + "\"" : ""));
    }
    const auto index = number(columns, 1, "INDEX", kMostIndex);
    const auto zone = number(columns, 2, "ZONE", kMostZone);
    const auto target = kTargets.find(columns[3]);
    if (target == kTargets.end()) {
      fault("TARGET is one of KEL_USER_MODE_DRIVER, KEL_FIRMWARE, KEL_TRACE, KEL_UPPER_DSPS, not \"" + columns[3] +
            "\"");
    }
    const auto priority = number(columns, 4, "PRIORITY", kMostPriority);
    std::uint8_t type = 0;
    const bool typeKnown = kel::BrelTUIsList::ResolveType(columns[5], &type);
    if (!typeKnown) fault("TYPE is REF or VAL, not \"" + columns[5] + "\"");
    const auto tui = numberOf(columns[6], 10);
    if (!tui) {
      fault("the decimal TUI is a number up to 4294967295, not \"" + columns[6] + "\"" +
            (task != nullptr ? ": it is read as " + std::to_string(task->tui) : ""));
      return;
    }
    const std::string& hex = columns[7];
    if (hex.substr(0, 2) != "0x" || numberOf(hex.substr(2), 16) != tui) {
      fault("the hex TUI says \"" + hex + "\", the decimal TUI is " + tuiText(*tui));
    }
    if (!index || !zone || target == kTargets.end() || !priority || !typeKnown) return;
    const std::uint32_t composed = kel::ComposeTUI(static_cast<std::uint8_t>(*index), static_cast<std::uint8_t>(*zone),
                                                   target->second, static_cast<std::uint8_t>(*priority), type);
    if (composed != *tui) {
      fault("INDEX to TYPE make the TUI " + tuiText(composed) + ", the decimal TUI is " + tuiText(*tui) +
            ", and that counts");
    }
  }

  std::optional<std::uint32_t> number(const std::vector<std::string>& columns, std::size_t column, const char* title,
                                      std::uint32_t most) {
    const auto value = numberOf(columns[column], 10, most);
    if (!value) {
      fault(std::string(title) + " is a number up to " + std::to_string(most) + ", not \"" + columns[column] + "\"");
    }
    return value;
  }

  kel::BrelTUIsList mReader;
  TableFindings mFindings;
  std::map<std::string, std::size_t> mLineOfName;
  std::map<std::uint32_t, std::size_t> mLineOfTui;
  std::size_t mLine = 1;
  bool mEnded = false;
};

}  // namespace

TableFindings checkTable(const std::string& text) { return TableCheck().check(text); }

}  // namespace kelctl
