// SPDX-License-Identifier: MIT
#include "task_table.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "adapter/TaskRecord.h"
#include "catalogue/BrelTUIsList.h"
#include "files.h"
#include "sequencer/SequenceNumber.h"

namespace kelctl {
namespace {

/// More than any table: half a million rows.
constexpr std::size_t kMostTableBytes = 64 << 20;

/// The text of a table that the library can read through.
std::string tableText(const std::string& fileName) {
  std::string text;
  if (!fileName.empty()) text = readTableFile(fileName);
  kel::BrelTUIsList list;
  // An empty name cannot be opened, which leaves the built-in table.
  list.SetTUIsFile(nullptr, libraryFile(fileName).c_str());
  if (!list.ReadTUIs()) {
    throw std::runtime_error(fileName + ": this task table cannot be read through.\n`kelctl tasks check` tells why.");
  }
  if (!fileName.empty()) return text;
  const char* unused = nullptr;
  const char* bytes = nullptr;  // the library's, since there is no file
  std::uint32_t length = 0;
  list.RetrieveRawTUIsList(&unused, &bytes, &length);
  return {bytes, length};
}

std::string classWord(std::uint32_t tui) {
  switch (kel::GetSeqNumType(kel::GetTuiSeqNum(tui))) {
    case kel::SEQ_NUM_ACK:
      return "answer";
    case kel::SEQ_NUM_STREAM_MESSAGE:
      return "stream message";
    case kel::SEQ_NUM_STREAM_END:
      return "stream end";
    default:
      return "none";
  }
}

}  // namespace

std::string readTableFile(const std::string& name) {
  const Bytes bytes = readFile(name, kMostTableBytes);
  return {bytes.begin(), bytes.end()};
}

std::vector<Task> readTable(const std::string& fileName) {
  kel::BrelTUIsList list;
  std::istringstream rows(tableText(fileName));
  std::vector<Task> table;
  Task task;
  for (std::string row; std::getline(rows, row); table.push_back(task)) {
    const char* position = row.c_str();
    std::uint8_t unused[5];
    std::uint32_t hexColumn = 0, rowLength = 0;
    if (list.ReadOneTUI(&position, &task.name, &unused[0], &unused[1], &unused[2], &unused[3], &unused[4], &task.tui,
                        &hexColumn, &rowLength) != 1) {
      break;
    }
  }
  return table;
}

std::string nameOf(const std::vector<Task>& table, std::uint32_t tui) {
  const auto found =
      std::find_if(table.rbegin(), table.rend(), [&](const Task& task) { return task.tui == kel::MakeSeqTUI(tui, 0); });
  return found != table.rend() ? found->name : "";
}

std::string targetWord(std::uint32_t tui) {
  switch (const std::uint32_t target = kel::GetTuiTarget(tui)) {
    case 2:
      return "user driver";
    case 4:
      return "firmware";
    case kel::kTargetBroadcast:
      return "broadcast";
    case 6:
      return "trace";
    case 8:
      return "upper DSPs";
    default:
      return std::to_string(target);
  }
}

std::string typeWord(std::uint32_t tui) {
  const std::uint32_t type = kel::GetTuiType(tui);
  if (type > kel::kTypeRef) return std::to_string(type);
  return type == kel::kTypeRef ? "REF" : "VAL";
}

std::string tuiText(std::uint32_t tui) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%05x", tui);
  return text;
}

std::uint32_t zoneOf(std::uint32_t tui) { return tui >> 5 & 127; }

std::uint32_t priorityOf(std::uint32_t tui) { return tui >> 16 & 7; }

Json tuiJson(const std::string& name, std::uint32_t tui) {
  Json json;
  if (!name.empty()) json["name"] = name;
  json.update({{"tui", tui},
               {"index", kel::GetTuiIndex(tui)},
               {"zone", zoneOf(tui)},
               {"target", targetWord(tui)},
               {"priority", priorityOf(tui)},
               {"type", typeWord(tui)}});
  if (kel::GetTuiSeqNum(tui) != 0) {
    json["sequence"] = kel::GetCoreSeqNum(kel::GetTuiSeqNum(tui));
    json["class"] = classWord(tui);
  }
  return json;
}

std::string tuiText(const std::string& name, std::uint32_t tui) {
  std::ostringstream text;
  text << "name      " << (name.empty() ? "not in the table" : name) << "\nTUI       " << tuiText(tui) << "  " << tui
       << "\ntarget    " << targetWord(tui) << "\nzone      " << zoneOf(tui) << "\nindex     " << kel::GetTuiIndex(tui)
       << "\npriority  " << priorityOf(tui) << "\ntype      " << typeWord(tui) << '\n';
  if (kel::GetTuiSeqNum(tui) != 0) {
    text << "sequence  " << kel::GetCoreSeqNum(kel::GetTuiSeqNum(tui)) << ", " << classWord(tui) << '\n';
  }
  return text.str();
}

}  // namespace kelctl
