// SPDX-License-Identifier: MIT
#include "catalogue/BrelTUIsList.h"

#include <limits>
#include <utility>

#include "platform/handler_module.h"
#include "platform/memory.h"
#include "platform/platform.h"

namespace kel {
namespace {

/// A line of an external file is read in pieces of at most this many bytes, end mark included.
constexpr int kLineSize = 255;

/// Ends a text in the files of old systems, and to this day in the text-mode streams of Windows.
constexpr char kEndOfText = '\x1A';

/// The next byte as a text-mode stream of Windows has it, on every platform: CR LF is one LF, and the end of the text
/// is the end of the file.
int ReadTextByte(std::FILE* stream) {
  const int byte = std::fgetc(stream);
  if (byte == kEndOfText) {
    std::ungetc(byte, stream);  // for whoever looks again
    return EOF;
  }
  if (byte != '\r') return byte;
  const int next = std::fgetc(stream);
  if (next == '\n') return next;
  std::ungetc(next, stream);
  return byte;
}

/// Reads a line, or the next piece of a long one. False if there is none, or if it cannot be read to its end.
bool ReadLine(std::FILE* stream, char (&line)[kLineSize]) {
  int length = 0;
  while (length < kLineSize - 1) {
    const int byte = ReadTextByte(stream);
    if (byte == EOF) break;
    line[length++] = static_cast<char>(byte);
    if (byte == '\n') break;
  }
  line[length] = '\0';
  return length > 0 && std::ferror(stream) == 0;
}

/// Length of a file, 0 if it has none that can be told.
std::uint32_t FileLength(std::FILE* file) {
  if (std::fseek(file, 0, SEEK_END) != 0) return 0;
  const long length = std::ftell(file);
  if (length < 0 || static_cast<unsigned long>(length) > std::numeric_limits<std::int32_t>::max()) return 0;
  return std::fseek(file, 0, SEEK_SET) == 0 ? static_cast<std::uint32_t>(length) : 0;
}

/// The rows of the built-in table, from the first list on that has read it through.
struct BuiltInRows {
  platform::CriticalSection lock;
  const char* table GUARDED_BY(lock) = nullptr;  ///< whose rows they are; null for none
  std::shared_ptr<const BrelTUIsList::TuiByName> tuiByName GUARDED_BY(lock);
  std::shared_ptr<const BrelTUIsList::NameByTui> nameByTui GUARDED_BY(lock);
};

/// Without a destructor: threads of the client may still connect while the process ends. A library that is unloaded
/// therefore leaves its rows behind.
union KeptRows {
  constexpr KeptRows() : rows() {}
  ~KeptRows() {}
  BuiltInRows rows;
};
constinit KeptRows gKeptRows;
BuiltInRows& gBuiltInRows = gKeptRows.rows;

}  // namespace

BrelTUIsList::BrelTUIsList() : mTUIsFileName(CopyText("KEL_ALLTASKS.csv")) {}

void BrelTUIsList::SetTUIsFile(ALogger* logger, const char* fileName) {
  mLogger = logger;
  if (fileName == nullptr) return;
  std::free(std::exchange(mTUIsFileName, CopyText(fileName)));
}

// ---------------------------------------------------------------------------------------------------------------------
// Reading
// ---------------------------------------------------------------------------------------------------------------------

bool BrelTUIsList::close(std::FILE* stream) {
  if (stream == nullptr || std::fclose(stream) == 0) return true;
  report(kError, "ReadTUIs", "The KEL_ALLTASKS.csv TUIs file was not closed. \n");
  return false;
}

bool BrelTUIsList::endedUnexpectedly(std::FILE* stream) {
  report(kError, "ReadTUIs", "The KEL_ALLTASKS.csv TUIs file ended unexpectedly. \n");
  close(stream);
  return false;
}

bool BrelTUIsList::ReadTUIs() {
  if (!mTuiByName->empty()) mTuiByName = std::make_shared<TuiByName>();

  const platform::Resource builtIn = platform::findResource(gHandlerModule.load(), "#101", "TUISFILE");
  if (builtIn.bytes == nullptr) {
    report(kError, "ReadTUIs",
           "The resouce equivalent of the KEL_ALLTASKS.csv TUIs file could NOT be found. \n");
    return false;
  }
  mInternalTUIsFile = builtIn.bytes;
  mInternalTUIsFileLength = builtIn.size;

  std::FILE* stream = platform::openToRead(mTUIsFileName);
  if (stream == nullptr) {
    report(kInfo, "ReadTUIs", "The KEL_ALLTASKS.csv TUIs file could NOT be opened. Using defaults. \n");
  } else {
    report(kInfo, "ReadTUIs", "The KEL_ALLTASKS.csv TUIs file was opened. \n");
    if (std::ftell(stream) == -1) {
      report(kError, "ReadTUIs", "The KEL_ALLTASKS.csv TUIs file is EMPTY. Using defaults. \n");
      if (!close(stream)) return false;
      stream = nullptr;
    }
  }

  return stream != nullptr ? readRows(stream) : takeBuiltInRows();
}

bool BrelTUIsList::takeBuiltInRows() {
  // A list that was read before keeps its old TUIs beside the new ones, and so has to have rows of its own.
  if (!mNameByTui->empty()) return readRows(nullptr);
  const platform::InSection sharing(gBuiltInRows.lock);
  if (gBuiltInRows.table != mInternalTUIsFile) {
    if (!readRows(nullptr)) return false;
    gBuiltInRows.table = mInternalTUIsFile;
    gBuiltInRows.tuiByName = mTuiByName;
    gBuiltInRows.nameByTui = mNameByTui;
  }
  mTuiByName = gBuiltInRows.tuiByName;
  mNameByTui = gBuiltInRows.nameByTui;
  return true;
}

bool BrelTUIsList::readRows(std::FILE* stream) {
  // The list has them from the beginning on: a table that cannot be read through leaves what stands ahead of that.
  const auto tuiByName = std::make_shared<TuiByName>();
  const auto nameByTui = std::make_shared<NameByTui>(*mNameByTui);
  mTuiByName = tuiByName;
  mNameByTui = nameByTui;

  char line[kLineSize];
  const char* stringStream = mInternalTUIsFile;
  if (stream != nullptr) {
    if (!ReadLine(stream, line)) return endedUnexpectedly(stream);
    stringStream = line;
  }

  std::string name;
  std::uint8_t index = 0, zone = 0, target = 0, priority = 0, type = 0;
  std::uint32_t decimalTUI = 0, hexTUI = 0, oneTUIlineLength = 0;
  for (;;) {
    const std::int32_t result = ReadOneTUI(&stringStream, &name, &index, &zone, &target, &priority, &type, &decimalTUI,
                                           &hexTUI, &oneTUIlineLength);
    if (result == -1) break;
    if (result == 0) return endedUnexpectedly(stream);
    (*tuiByName)[name] = decimalTUI;
    (*nameByTui)[decimalTUI] = name;

    if (stream != nullptr) {
      if (!ReadLine(stream, line)) {
        close(stream);  // the normal end of a file, whatever becomes of the closing
        return true;
      }
      stringStream = line;
    }
  }
  return close(stream);
}

bool BrelTUIsList::RetrieveRawTUIsList(const char** fileName, const char** buffer, std::uint32_t* length) {
  *buffer = nullptr;
  *length = 0;
  *fileName = mTUIsFileName;
  if (*fileName == nullptr) {
    report(kError, "RetrieveRawTUIsList", "Brel has a NULL name for the KEL_ALLTASKS.csv TUIs file. \n");
    return false;
  }
  *buffer = mInternalTUIsFile;
  *length = mInternalTUIsFileLength;

  std::FILE* file = platform::openToRead(*fileName);
  if (file == nullptr) {
    report(kInfo, "RetrieveRawTUIsList",
           "An external KEL_ALLTASKS.csv TUIs file could not be opened. Retrieving internal resource. \n");
    return true;
  }
  bool result = true;
  const std::uint32_t fileLength = FileLength(file);
  if (fileLength == 0) {
    report(kError, "RetrieveRawTUIsList",
           "The KEL_ALLTASKS.csv TUIs file is EMPTY. Retrieving internal resource. \n");
    if (*buffer == nullptr) {
      report(kError, "RetrieveRawTUIsList",
             "Brel's internally stored version of the KEL_ALLTASKS.csv TUIs file is empty. \n");
      result = false;
    }
  } else {
    char* block = static_cast<char*>(AllocateBlock(fileLength));
    std::memset(block, 0, fileLength);
    // The end of the file and a byte 0xFF read alike here, and both end the copy.
    for (std::uint32_t i = 0; i < fileLength; ++i) {
      const auto byte = static_cast<std::int8_t>(std::fgetc(file));
      if (byte == -1) break;
      block[i] = static_cast<char>(byte);
    }
    *buffer = block;
    *length = fileLength;
  }
  std::fclose(file);
  return result;
}

// ---------------------------------------------------------------------------------------------------------------------
// Looking up
// ---------------------------------------------------------------------------------------------------------------------

bool BrelTUIsList::FindTuiByName(const char* callerName, std::string_view name, std::uint32_t* tui) {
  const auto found = mTuiByName->find(name);
  mTuiByNameCursor.store(found, std::memory_order_relaxed);
  if (found != mTuiByName->cend()) {
    *tui = found->second;
    return true;
  }
  *tui = 0;
  report(kError, callerName, "could not find TUI \n");
  return false;
}

bool BrelTUIsList::FindNameByTui(const char* callerName, std::uint32_t tui, char** name) {
  const auto found = mNameByTui->find(tui);
  mNameByTuiCursor.store(found, std::memory_order_relaxed);
  if (found != mNameByTui->cend()) {
    *name = CopyText(found->second.c_str());
    return true;
  }
  *name = CopyText("UNKNOWN_TASK");
  report(kError, callerName, "could not find TUI \n");
  return false;
}

}  // namespace kel
