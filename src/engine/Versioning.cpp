// SPDX-License-Identifier: MIT
// Version control: whether a file belongs to the software generation that runs on the device side.
//
// The engine fetches the generation's UIDs from the driver, holds the built-in VersionsVectors, checks its own task
// table while it comes up, and offers the check to clients. The judgement itself is RtvValidateVersion's.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "engine/BrelEngine.h"
#include "platform/handler_module.h"
#include "platform/memory.h"
#include "version/FileName.h"
#include "version/Rtv.h"

namespace kel {
namespace {

constexpr std::uint32_t kMostUIDs = 4;

/// The built-in vectors that may exist, and what the log says if one does not. The library carries the first.
constexpr struct {
  const char* type;
  const char* name;
  const char* missing;
} kVectorResources[] = {
    {"UMVERSIONSVECTOR", "#103",
     "The resouce equivalent of the UserMode Driver's VersionsVector file could not be found. \n"},
    {"KMVERSIONSVECTOR", "#104",
     "The resouce equivalent of the KernelMode Driver's VersionsVector file could not be found. \n"},
    {"FWVERSIONSVECTOR", "#105", "The resouce equivalent of the Firmware's VersionsVector file could not be found. \n"},
    {"UDVERSIONSVECTOR", "#106",
     "The resouce equivalent of the UpperDSPS's VersionsVector file could not be found. \n"},
};

template <class Element>
Element* AllocateArray(std::uint32_t count) {
  return static_cast<Element*>(AllocateBlock(count * sizeof(Element)));
}

}  // namespace

/// The UIDs of one fetch with their count.
struct BrelEngine::VerGenUIDs {
  std::uint32_t count;
  std::uint32_t uids[kMostUIDs];
};

Status MapRtvStatus(std::int32_t code) {
  switch (code) {
    case RTV_PASSED:
      return kStatusOk;
    case RTV_NOT_PASSED:
      return kStatusVersionNotPassed;
    case RTV_NO_MATCHING_UID:
      return kStatusNoMatchingUID;
    case RTV_FILE_NOT_LISTED:
      return kStatusFileNotListed;
    case RTV_NULL_UIDS:
      return kStatusNullUIDs;
    case RTV_BAD_FILE_NAME:
      return kStatusBadFileName;
    case RTV_BAD_FILE_BUFFER:
      return kStatusBadFileBuffer;
    case RTV_NULL_USER_VERSION:
      return kStatusNullUserVersion;
    case RTV_NO_VECTOR_FILES:
      return kStatusNoVectorFiles;
    case RTV_NO_VECTORS:
      return kStatusNoVectors;
    default:
      return kStatusUnknownError;
  }
}

bool BrelEngine::InitVersioningSupport() {
  if (!RetrieveVersionsUIDsArray()) return false;
  if (mVersionsVectorsPath == nullptr) LoadVersionsVectorsResources();
  // Ahead of the check, which would otherwise ask for a path and fetch the UIDs once more.
  mVersioningActive = true;
  if (VersionValidateKelAllTasksFile()) return true;
  mVersioningActive = false;
  report(kError, "InitVersioningSupport", "Version validation of KELALLTASKS.csv file failed! \n");
  return false;
}

/// The answer and an earlier array are kept blocks.
bool BrelEngine::RetrieveVersionsUIDsArray() {
  constexpr const char* kRetrieve = "RetrieveVersionsUIDsArray";
  void* vergenUIDsVectorBuf = nullptr;
  std::uint32_t vergenUIDsVectorBufLength = 0, resultParam4 = 0;
  if (InvokeTask("TASK_ID_VERSIONS_GET_UIDS", 1, nullptr, 0, 0, 1, &vergenUIDsVectorBuf, &vergenUIDsVectorBufLength,
                 &resultParam4, nullptr) != kStatusOk) {
    report(kError, kRetrieve, "Failed to retrieve VerGenUIDsVector from the UpperDriver \n");
    return false;
  }
  const auto answer = mKeptBlocks.hold(vergenUIDsVectorBuf);
  // Words that a short answer does not hold count as 0, which is no UID.
  std::uint32_t words[kMostUIDs] = {};
  std::memcpy(words, vergenUIDsVectorBuf, std::min<std::size_t>(vergenUIDsVectorBufLength, sizeof words));
  VerGenUIDs found{};
  const std::uint32_t* end =
      std::copy_if(std::begin(words), std::end(words), found.uids, [](auto uid) { return uid != 0; });
  found.count = static_cast<std::uint32_t>(end - found.uids);
  if (found.count == 0) {
    report(kError, kRetrieve, "The VerGenUIDsVector retrieved from the UpperDriver contained no UIDs \n");
    return false;
  }
  auto* uids = reinterpret_cast<VerGenUIDs*>(CopyBlock(&found, sizeof found));
  const platform::InSection replacing(mVerGenUIDsLock);
  mKeptBlocks.leave(std::exchange(mVerGenUIDs, uids));
  return true;
}

void BrelEngine::LoadVersionsVectorsResources() {
  platform::Resource found[std::size(kVectorResources)];
  std::uint32_t count = 0;
  for (const auto& vector : kVectorResources) {
    const platform::Resource resource = platform::findResource(gHandlerModule.load(), vector.name, vector.type);
    if (resource.bytes != nullptr) {
      found[count++] = resource;
    } else {
      report(kError, "LoadVersionsVectorsResources", vector.missing);
    }
  }
  mVersionsVectorBuffers = AllocateArray<const char*>(count);
  mVersionsVectorSizes = AllocateArray<std::uint32_t>(count);
  mVersionsVectorCount = count;
  for (std::uint32_t i = 0; i < count; ++i) {
    mVersionsVectorBuffers[i] = found[i].bytes;
    mVersionsVectorSizes[i] = found[i].size;
  }
}

/// Checks the table as it can be had now, which may not be the one that was loaded.
bool BrelEngine::VersionValidateKelAllTasksFile() {
  const auto failed = [this](const char* text) {
    report(kError, "VersionValidateKelAllTasksFile", text);
    return false;
  };
  const char* TUIsFileName = nullptr;
  const char* TUIsFile = nullptr;
  std::uint32_t TUIsFileLength = 0;
  std::uint64_t userVersion = 0;
  if (!mTUIsList.RetrieveRawTUIsList(&TUIsFileName, &TUIsFile, &TUIsFileLength)) {
    return failed("KEL_ALLTASKS.csv retrieval failed. \n");
  }
  const auto copyOfFile = mKeptBlocks.hold(mTUIsList.isBuiltIn(TUIsFile) ? nullptr : const_cast<char*>(TUIsFile));
  if (TUIsFileName == nullptr || TUIsFile == nullptr) {
    return failed("KEL_ALLTASKS.csv retrieval attempt returned NULL name or buffer. \n");
  }
  if (ValidateVersion(const_cast<char*>(TUIsFileName), TUIsFile, TUIsFileLength, &userVersion, mVersionsVectorsPath) !=
      kStatusOk) {
    return failed("BrelValidateVersion() of KEL_ALLTASKS.csv failed. \n");
  }
  return true;
}

Status BrelEngine::ValidateVersion(char* fileName, const void* fileBuffer, std::uint32_t fileLength, void* userVersion,
                                   const char* versionsVectorsPath) {
  if (!mVersioningActive) {
    if (versionsVectorsPath == nullptr) return kStatusNullVectorsPath;
    if (!RetrieveVersionsUIDsArray()) return kStatusNoUIDs;
  }
  char* fileNameWithoutPath = nullptr;
  if (!ExtractFileName(fileName, &fileNameWithoutPath, mKeptBlocks)) return kStatusNoFileName;
  const VerGenUIDs known = [this] {
    const platform::InSection reading(mVerGenUIDsLock);
    return *mVerGenUIDs;
  }();
  const std::int32_t code =
      RtvValidateVersion(known.count, known.uids, fileNameWithoutPath, fileBuffer, fileLength, userVersion,
                         versionsVectorsPath, mVersionsVectorCount, mVersionsVectorBuffers, mVersionsVectorSizes);
  std::free(fileNameWithoutPath);
  return MapRtvStatus(code);
}

}  // namespace kel
