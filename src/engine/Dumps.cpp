// SPDX-License-Identifier: MIT
// A debugging aid: the last record sent and the last one received, each in one file as it is and in another one in
// readable form. Failures are logged and change nothing else. Each dump replaces the whole file, in text mode. There is
// no lock: two threads may write one file at once.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "engine/BrelEngine.h"

namespace kel {

bool BrelEngine::DumpRequestBuffer(const task* record, std::uint32_t size) {
  const auto failed = [&](const char* fileName) {
    report(kError, "DumpRequestBuffer", "Error dumping to RequestStruct dump file: ", fileName, " \n");
  };
  const char* structFile = mRequestStructDumpFilename;
  const char* payloadFile = mRequestStructPayloadDumpFilename;
  if (*structFile != '\0' && !DumpStruct(structFile, record, size)) failed(structFile);
  // The same words for both files; only the name tells them apart. Log readers know the line like this.
  if (*payloadFile != '\0' && !DumpStructPayload(payloadFile, record, size)) failed(payloadFile);
  return true;
}

bool BrelEngine::DumpResponseBuffer(const task* record, std::uint32_t size) {
  const char* structFile = mResponseStructDumpFilename;
  const char* payloadFile = mResponseStructPayloadDumpFilename;
  if (*structFile != '\0' && !DumpStruct(structFile, record, size)) {
    report(kError, "DumpResponseBuffer", "Error dumping to ResponseStruct dump file: ", structFile, " \n");
  }
  if (*payloadFile != '\0' && !DumpStructPayload(payloadFile, record, size)) {
    report(kError, "DumpResponseBuffer", "Error dumping to ResponseStructPayload dump file: ", payloadFile, " \n");
  }
  return true;
}

/// The record's size on a line of its own, then the record. The size is the one that the record itself states.
bool BrelEngine::DumpStruct(const char* fileName, const task* record, std::uint32_t /*size*/) {
  std::FILE* file = std::fopen(fileName, "w");
  if (file == nullptr) {
    report(kError, "DumpStruct", "Could not open DumpStruct file. \n");
    return false;
  }
  bool result = true;
  const std::uint32_t recordSize = record->payloadSize + std::uint32_t{sizeof(task)};
  std::fprintf(file, "%d\n", static_cast<int>(recordSize));
  if (std::fwrite(record, 1, recordSize, file) != recordSize) {
    report(kError, "DumpStruct", "Could not complete dump to DumpStruct file. \n");
    result = false;
  }
  if (std::fclose(file) != 0) {
    report(kError, "DumpStruct", "Could not close DumpStruct file. \n");
    result = false;
  }
  return result;
}

/// A VAL record's three values, or a REF record's payload behind its size; nothing for any other type.
bool BrelEngine::DumpStructPayload(const char* fileName, const task* record, std::uint32_t /*size*/) {
  constexpr const char* kDump = "DumpStructPayload";
  constexpr std::uint32_t kTypeVal = 0;
  std::FILE* file = std::fopen(fileName, "w");
  if (file == nullptr) {
    report(kError, kDump, "Could not open DumpStructPayload file. \n");
    return false;
  }
  bool result = true;
  const std::uint32_t type = GetTuiType(record->TUI);
  if (type == kTypeVal) {
    // Always three. Only the payload is read, since a caller's record, and any answer, may end with it; what a short
    // one does not hold shows as 0.
    std::int32_t values[3] = {};
    std::memcpy(values, PayloadOf(record), std::min(record->payloadSize, kValPayloadSize));
    std::fprintf(file, "VAL\n%d\n%d\n%d\n", values[0], values[1], values[2]);
    report(kInfo, kDump, "DumpStructPayload got a VAL call \n");
  } else if (type == kTypeRef) {
    std::fprintf(file, "REF\n%d\n", static_cast<int>(record->payloadSize));
    if (std::fwrite(PayloadOf(record), 1, record->payloadSize, file) != record->payloadSize) {
      report(kError, kDump, "Could not complete dump to DumpStructPayload file. \n");
      result = false;
    }
    report(kInfo, kDump, "DumpStructPayload got a REF call \n");
  }
  if (std::fclose(file) != 0) {
    report(kError, kDump, "Could not close DumpStructPayload file. \n");
    result = false;
  }
  return result;
}

}  // namespace kel
