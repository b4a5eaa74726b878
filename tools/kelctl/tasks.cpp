#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "adapter/TaskRecord.h"
#include "catalogue/BrelTUIsList.h"
#include "commands.h"

namespace kelctl {
namespace {

std::string targetWord(std::uint32_t target) {
  switch (target) {
    case 2:
      return "user driver";
    case 4:
      return "firmware";
    case 6:
      return "trace";
    case 8:
      return "upper DSPs";
    default:
      return std::to_string(target);
  }
}

std::string typeWord(std::uint32_t type) {
  if (type > kel::kTypeRef) return std::to_string(type);
  return type == kel::kTypeRef ? "REF" : "VAL";
}

/// The text of a table that the library could read through.
std::string tableText(kel::BrelTUIsList& list, const std::string& table) {
  // An empty name cannot be opened, which leaves the built-in table.
  list.SetTUIsFile(nullptr, table.c_str());
  if (!list.ReadTUIs()) throw std::runtime_error(table + ": this task table cannot be read through");
  const char* fileName = nullptr;
  const char* bytes = nullptr;
  std::uint32_t length = 0;
  list.RetrieveRawTUIsList(&fileName, &bytes, &length);
  std::string text(bytes, length);
  if (!table.empty()) std::free(const_cast<char*>(bytes));  // from a file it is a block of ours
  return text;
}

}  // namespace

// The library keeps a row's name and number. The other columns are shown as the number has them, which is what counts
// when a task is sent, whatever the table says.
int tasks(const std::string& table) {
  kel::BrelTUIsList list;
  std::istringstream rows(tableText(list, table));
  std::printf("TUI      TYPE  PRI  TARGET       NAME\n");
  int count = 0;
  for (std::string row, name; std::getline(rows, row); ++count) {
    const char* position = row.c_str();
    std::uint8_t unused[5];
    std::uint32_t tui = 0, hexColumn = 0, rowLength = 0;
    if (list.ReadOneTUI(&position, &name, &unused[0], &unused[1], &unused[2], &unused[3], &unused[4], &tui, &hexColumn,
                        &rowLength) != 1) {
      break;
    }
    std::printf("0x%05x  %-4s  %3u  %-11s  %s\n", tui, typeWord(kel::GetTuiType(tui)).c_str(), tui >> 16 & 7,
                targetWord(kel::GetTuiTarget(tui)).c_str(), name.c_str());
  }
  std::printf("\n%d tasks\n", count);
  return 0;
}

}  // namespace kelctl
