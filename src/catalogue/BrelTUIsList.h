/* SPDX-License-Identifier: MIT */
// The task table: which TUI belongs to which task name.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "logging/ALogger.h"
#include "logging/DebugPrint.h"
#include "platform/kept_blocks.h"

namespace kel {

/// The TUI of a task by the columns of its row. Nothing is masked.
constexpr std::uint32_t ComposeTUI(std::uint8_t index, std::uint8_t zone, std::uint8_t target, std::uint8_t priority,
                                   std::uint8_t type) {
  return index | zone * 32u | target * 4096u | priority * 0x10000u | type * 0x80000u;
}

/// The task table of one engine.
///
/// The table is text, one row a task, eight fields with commas between them:
///
///     NAME,  INDEX, ZONE, TARGET, PRIORITY, TYPE, decimal TUI, hex TUI
///     TASK_ID_TRACE_ADAPTER,  0, 0, KEL_TRACE, 1, REF, 614400, 0x96000
///
/// Of a row only the name and the decimal TUI are kept, and of the rest only TYPE is looked at: it must begin with REF
/// or VAL. That the other columns repeat the TUI's bits is a property of how tables are generated and is not checked. A
/// copy is built into the library; a file of the same form replaces it whole. A file is read each time. The built-in
/// table is read through once in a process, and the lists that hold it share its rows.
///
/// Threads: ReadTUIs() runs while the engine comes up, before any task can. After that the maps do not change, and only
/// the cursors, which each lookup leaves behind, are written.
class BrelTUIsList {
 public:
  using TuiByName = std::map<std::string, std::uint32_t, std::less<>>;
  using NameByTui = std::map<std::uint32_t, std::string>;

  BrelTUIsList();
  /// The file name becomes a kept block.
  ~BrelTUIsList() { mKeptBlocks.leave(mTUIsFileName); }
  BrelTUIsList(const BrelTUIsList&) = delete;
  BrelTUIsList& operator=(const BrelTUIsList&) = delete;

  /// Names the external file, which is copied, and the log, which is not. A null name leaves the old one in place.
  void SetTUIsFile(ALogger* logger, const char* fileName);

  /// Fills the list from the external file if that opens, else from the built-in table, which must be there either way.
  /// False if the table cannot be read through; the rows up to there are then in the list.
  bool ReadTUIs();

  /// Reads the row at `*stringStream`. 1: it was read, and `*stringStream` stands behind it. 0: a field failed, and
  /// `*stringStream` is where it was. -1: there is no further row.
  std::int32_t ReadOneTUI(const char** stringStream, std::string* name, std::uint8_t* index, std::uint8_t* zone,
                          std::uint8_t* target, std::uint8_t* priority, std::uint8_t* type, std::uint32_t* decimalTUI,
                          std::uint32_t* hexTUI, std::uint32_t* oneTUIlineLength);

  /// "REF" gives 1, "VAL" gives 0, anything else false with `*type` left alone.
  static bool ResolveType(std::string_view typeBuf, std::uint8_t* type);

  /// The table's bytes as they stand in the file, or else in the library. `*fileName` stays the list's. `*buffer` is a
  /// block of the caller's if it comes from a file and the library's if it is built in, and nothing says which. A
  /// byte 0xFF or a failed read ends the copy of a file early; `*length` is the file's all the same, and the rest of
  /// the block is zero.
  bool RetrieveRawTUIsList(const char** fileName, const char** buffer, std::uint32_t* length);

  /// Whether RetrieveRawTUIsList() gave out the library's own table.
  bool isBuiltIn(const char* buffer) const { return buffer == mInternalTUIsFile; }

  /// The TUI of a name, which is compared exactly. If there is none: false, `*tui` 0, and a line in the log under
  /// `callerName`.
  bool FindTuiByName(const char* callerName, std::string_view name, std::uint32_t* tui);

  /// The name of a TUI, in a block that is the caller's to free. If there is none: false, "UNKNOWN_TASK", and a line in
  /// the log under `callerName`.
  bool FindNameByTui(const char* callerName, std::uint32_t tui, char** name);

  /// 0 prints nothing on the console. The engine copies its own setting here.
  std::atomic<std::uint32_t> mLogToConsole{0};
  KeptBlocks mKeptBlocks;  ///< The engine copies its own setting here.

 private:
  /// Takes the rows of the built-in table, and reads them through if no list has done so.
  bool takeBuiltInRows();
  /// Reads the rows of a file, or with null those of the built-in table.
  bool readRows(std::FILE* stream);
  /// Closes a file that may be null; false, with a line in the log, if that fails.
  bool close(std::FILE* stream);
  /// The end of a table that cannot be read through.
  bool endedUnexpectedly(std::FILE* stream);
  template <class... Pieces>
  void report(std::uint32_t level, const char* function, const Pieces&... pieces) const {
    if (mLogger != nullptr) ReportTwice(*mLogger, debugPrint, level, function, pieces...);
  }

  // Constant after ReadTUIs(), but for the cursors. The maps may be other lists' as well.
  std::shared_ptr<const TuiByName> mTuiByName = std::make_shared<TuiByName>();
  std::atomic<TuiByName::const_iterator> mTuiByNameCursor{mTuiByName->cend()};  ///< the last lookup's position
  std::shared_ptr<const NameByTui> mNameByTui = std::make_shared<NameByTui>();
  std::atomic<NameByTui::const_iterator> mNameByTuiCursor{mNameByTui->cend()};  ///< the last lookup's position
  char* mTUIsFileName;
  [[maybe_unused]] void* mReserved = nullptr;
  const char* mInternalTUIsFile = nullptr;  ///< the built-in table, from ReadTUIs() on
  std::uint32_t mInternalTUIsFileLength = 0;
  ALogger* mLogger = nullptr;

  DebugPrint debugPrint{mLogToConsole};
};

}  // namespace kel
